// SPDX-License-Identifier: MIT
#include "zorvan/workflow/colourscale.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace prereg {

namespace {

// Neighbours are 28 to 30 apart in CIELAB: equal steps of a value look equally large.
constexpr std::array<std::array<double, 3>, 8> anchors{{{18, 22, 98},
                                                        {47, 78, 140},
                                                        {44, 115, 144},
                                                        {35, 148, 137},
                                                        {56, 179, 120},
                                                        {110, 204, 88},
                                                        {178, 222, 50},
                                                        {253, 233, 37}}};

} // namespace

Zorvan::Rgb ColourAt(double value)
{
    const double position = (value > 0.0 ? std::min(value, 1.0) : 0.0) * (anchors.size() - 1);
    const auto low = std::min(static_cast<std::size_t>(position), anchors.size() - 2);
    Zorvan::Rgb colour{};
    for (std::size_t i = 0; i < colour.size(); ++i)
        colour[i] = static_cast<std::uint8_t>(
            std::lround(std::lerp(anchors[low][i], anchors[low + 1][i], position - static_cast<double>(low))));
    return colour;
}

} // namespace prereg
