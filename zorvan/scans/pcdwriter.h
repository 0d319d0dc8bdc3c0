// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string>

namespace Zorvan {

/// Points, normals, colours and intensities when there are any, and the sensor as view point: a binary PCD file,
/// version 0.7. Points about a shift are written where they stand, in double precision. Faces have no place in it.
/// @param unitsPerMm  factor from the scan's millimetres to the unit of the file
[[nodiscard]] ZORVAN_SCANS_API std::string WritePcdBytes(const Scan& scan, double unitsPerMm = 1.0);
/// The same to a file, whole or not at all. @throws CInputError
ZORVAN_SCANS_API void WritePcd(const std::filesystem::path& file, const Scan& scan, double unitsPerMm = 1.0);

} // namespace Zorvan
