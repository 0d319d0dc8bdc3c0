// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <span>
#include <string>

namespace Zorvan {

/// An E57 file of several scans, each in its own frame with its pose and name: points, normals, colours and intensities
/// when there are any. Coordinates are floats, doubles when the points are about a shift. Faces and a sensor away from
/// the origin have no place in it. The format wants metres.
/// @param unitsPerMm  factor from the scans' millimetres to the unit of the file; poses too
[[nodiscard]] ZORVAN_SCANS_API std::string WriteE57Bytes(std::span<const Scan> scans, double unitsPerMm = 1.0);
/// The same to a file, whole or not at all. @throws CInputError
ZORVAN_SCANS_API void WriteE57(const std::filesystem::path& file, std::span<const Scan> scans, double unitsPerMm = 1.0);

} // namespace Zorvan
