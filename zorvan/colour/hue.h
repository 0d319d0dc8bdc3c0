// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/rgb.h"

#include <algorithm>

namespace Zorvan::cs::detail {

/// The largest and the smallest of the three components, and how far they lie apart; NaN when one of them is.
struct Extremes
{
    explicit Extremes(const RGB& c)
        : dLargest(c ? std::max({c.r, c.g, c.b}) : dNaN),
          dSmallest(c ? std::min({c.r, c.g, c.b}) : dNaN),
          dRange(dLargest - dSmallest)
    {
    }

    double dLargest;
    double dSmallest;
    double dRange;
};

/// Degrees on the hexagon of red, yellow, green, cyan, blue and magenta; the colour is no grey.
[[nodiscard]] inline double HexagonHue(const RGB& c, const Extremes& e)
{
    const double sixth = c.r == e.dLargest   ? (c.g - c.b) / e.dRange
                         : c.g == e.dLargest ? (c.b - c.r) / e.dRange + 2.0
                                             : (c.r - c.g) / e.dRange + 4.0;
    const double hue = 60.0 * sixth;
    return hue < 0.0 ? hue + 360.0 : hue;
}

} // namespace Zorvan::cs::detail
