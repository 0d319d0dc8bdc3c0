// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace Zorvan {

/// Reads a PTX file: one scan after another, each a grid of columns and rows, the position and axes of the scanner, a
/// pose, and a line a point: x y z, intensity, red green blue. The scans keep the frame of their points; `pose` is that
/// of the file, and `sensor` the scanner in the frame of the points. Cells without a point (0 0 0) are left out,
/// neighbouring cells joined to triangles, see `FacesFromRangeGrid`. Scans without points are left out.
///
/// @param bytes  the whole file
/// @throws CInputError naming the line; never allocates more than a few times the file
[[nodiscard]] ZORVAN_SCANS_API std::vector<Scan> ReadPtx(std::string_view bytes, const std::filesystem::path& file);

/// The scanner of such a scan in the frame of the file. Programs that know of none leave its axes empty; then it stands
/// upright.
/// @param lines  its position, and its axes one a line
/// @return       nothing when the position is not finite
[[nodiscard]] std::optional<FramePose> PtxScanner(const std::array<Position, 4>& lines);

} // namespace Zorvan
