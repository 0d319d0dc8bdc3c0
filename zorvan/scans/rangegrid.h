// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan {

/// The point that each cell of a depth map saw, row by row; -1 where it saw none.
struct RangeGrid
{
    std::size_t columns = 0;
    std::size_t rows = 0;
    std::vector<std::int32_t> cells; ///< columns * rows
};

/// Triangles between neighbouring cells: two where all four corners of a square are there (cut along its shorter
/// diagonal), one where three are. A triangle with an edge more than 8 times as long as the median edge is left out: it
/// bridges a step between two surfaces. Counter-clockwise for columns to the right and rows upwards.
[[nodiscard]] ZORVAN_SCANS_API std::vector<Face> FacesFromRangeGrid(const prereg::Vectors& points,
                                                                    const RangeGrid& grid);

} // namespace Zorvan
