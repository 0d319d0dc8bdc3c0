// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string>

namespace Zorvan {

/// A LAS file of version 1.2: point format 2 when there are colours, else 0. Coordinates are whole numbers of a power
/// of ten fine enough that no point moves by more than a float does. An intensity is rounded to a whole number up to
/// 65535; when none is above 1, 1 becomes 65535. Normals, faces and the sensor have no place in it.
/// @param unitsPerMm  factor from the scan's millimetres to the unit of the file
/// @param file        what messages name
/// @throws CInputError when a point is not finite
[[nodiscard]] ZORVAN_SCANS_API std::string WriteLasBytes(const Scan& scan, const std::filesystem::path& file,
                                                         double unitsPerMm = 1.0);
/// The same to the file, whole or not at all. @throws CInputError
ZORVAN_SCANS_API void WriteLas(const std::filesystem::path& file, const Scan& scan, double unitsPerMm = 1.0);

} // namespace Zorvan
