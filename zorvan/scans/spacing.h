// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/export.h"

namespace Zorvan {

/// Median distance from a point to its nearest neighbour, over at most 4000 points taken at equal steps; 0 for fewer
/// than two points. The points are finite and none appears twice. The same points in the same order give the same
/// value.
[[nodiscard]] ZORVAN_SCANS_API double MedianSpacing(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree);

} // namespace Zorvan
