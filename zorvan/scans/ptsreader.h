// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <filesystem>
#include <string_view>

namespace Zorvan {

/// Reads a PTS file: a line with the number of points, then a line a point: x y z, x y z intensity, x y z red green
/// blue, or x y z intensity red green blue. Several such blocks are one scan. Points far from the origin come about a
/// shift.
/// @throws CInputError naming the line, also when a block is shorter or longer than its number
[[nodiscard]] ZORVAN_SCANS_API Scan ReadPts(std::string_view bytes, const std::filesystem::path& file);

} // namespace Zorvan
