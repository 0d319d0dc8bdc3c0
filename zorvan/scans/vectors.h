// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"

#include <cmath>
#include <limits>

namespace Zorvan {

using Vector3 = kdtree::Vector<3>;

/// v at length 1; zero when v has no length or is not finite. Goes through double, so that no finite v overflows.
[[nodiscard]] inline Vector3 Normalized(const Vector3& v)
{
    const double x = v.x;
    const double y = v.y;
    const double z = v.z;
    const double length = std::sqrt(x * x + y * y + z * z);
    if (!(length > 0.0) || !std::isfinite(length)) return {};
    return {static_cast<float>(x / length), static_cast<float>(y / length), static_cast<float>(z / length)};
}

/// The nearest float; infinite for what no float can hold, where a plain conversion would be undefined.
[[nodiscard]] inline float ToFloat(double value)
{
    constexpr float max = std::numeric_limits<float>::max();
    constexpr double halfway = static_cast<double>(max) + 0x1p103; // half a unit in the last place beyond
    if (!(std::abs(value) > static_cast<double>(max))) return static_cast<float>(value);
    const float nearest = std::abs(value) < halfway ? max : std::numeric_limits<float>::infinity();
    return value > 0.0 ? nearest : -nearest;
}

} // namespace Zorvan
