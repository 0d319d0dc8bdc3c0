// SPDX-License-Identifier: MIT
#pragma once

// How one pair of surfels falls into the bins of a CPointFeatureHistogram.

#include "zorvan/core/vector.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace prereg::detail {

inline constexpr float cosineScale = 5.0F;
inline constexpr float angleScale = 1.5915492F; // 5 / pi
inline constexpr float binOffset = 5.0F;
inline constexpr int lastBin = 10;

/// Bin of a scaled and shifted value, 0 to 10. NaN and what no integer holds go to bin 0.
inline std::size_t binOf(float shifted)
{
    return static_cast<std::size_t>(std::clamp(Zorvan::simd::RoundToInt(shifted), 0, lastBin));
}

/// Bin of the angle atan2(y, x) in its part of the histogram.
inline std::size_t angleBin(float y, float x) { return binOf(angleScale * std::atan2(y, x) + binOffset); }

} // namespace prereg::detail
