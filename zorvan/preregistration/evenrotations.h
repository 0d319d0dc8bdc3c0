// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// `count` rotations spread evenly over all of them: 1,500 leave no rotation further than about 17 degrees from the
/// nearest one, 11 degrees on average. The k-th depends on k and `count` alone. Source: Alexa, "Super-Fibonacci
/// Spirals: Fast, Low-Discrepancy Sampling of SO(3)", CVPR 2022.
[[nodiscard]] ZORVAN_API std::vector<CTrafo> EvenRotations(std::size_t count);

} // namespace prereg
