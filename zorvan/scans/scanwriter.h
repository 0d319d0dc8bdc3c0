// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <span>

namespace Zorvan {

/// Writes points, normals, colours and intensities when there are any, and faces as binary little-endian PLY, whole or
/// not at all. Points about a shift are written where they stand, in double precision.
/// @param unitsPerMm  factor from the scan's millimetres to the unit of the file
/// @param colours     empty, or one a point instead of the scan's own: the cloud is then a result to look at, and a
///                    comment in its header says so
/// @throws CInputError when the file cannot be written
ZORVAN_SCANS_API void WritePly(const std::filesystem::path& file, const Scan& scan, double unitsPerMm = 1.0,
                               std::span<const Rgb> colours = {});

/// Whether `WritePly` has coloured it: the merged cloud of a registration, or the features of a scan. A file that
/// cannot be read is none.
[[nodiscard]] ZORVAN_SCANS_API bool IsColouredResult(const std::filesystem::path& file);

} // namespace Zorvan
