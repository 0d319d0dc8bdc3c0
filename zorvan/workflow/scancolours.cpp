// SPDX-License-Identifier: MIT
#include "zorvan/workflow/scancolours.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace prereg {

namespace {

// Of the steps and lightness cycles tried, these keep the first ten and the first twenty colours furthest apart.
constexpr double dFirstHue = 250.0; // degrees, a blue
constexpr double dHueStep = 70.3;
constexpr double dChroma = 0.15; // the most that nearly all hues reach on a screen
constexpr std::array dLightness{0.62, 0.74, 0.54, 0.82};

std::uint8_t toByte(double linear)
{
    const double light = std::clamp(linear, 0.0, 1.0);
    const double coded = light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(255 * coded));
}

// B. Ottosson, "A perceptual color space for image processing" (2020), and the transfer curve of sRGB.
Zorvan::Rgb fromOklab(double lightness, double a, double b)
{
    const double l = std::pow(lightness + 0.3963377774 * a + 0.2158037573 * b, 3);
    const double m = std::pow(lightness - 0.1055613458 * a - 0.0638541728 * b, 3);
    const double s = std::pow(lightness - 0.0894841775 * a - 1.2914855480 * b, 3);
    return {toByte(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
            toByte(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
            toByte(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

} // namespace

Zorvan::Rgb ScanColour(std::size_t i)
{
    const double hue = (dFirstHue + dHueStep * static_cast<double>(i)) * std::numbers::pi / 180;
    return fromOklab(dLightness[i % dLightness.size()], dChroma * std::cos(hue), dChroma * std::sin(hue));
}

} // namespace prereg
