// SPDX-License-Identifier: MIT
#include "zorvan/colour/hsv.h"

#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/hue.h"

#include <cmath>

namespace Zorvan::cs {

HSV::HSV(const RGB& rgb)
{
    const detail::Extremes extremes(rgb);
    v = extremes.dLargest / 255.0;
    s = extremes.dLargest == 0.0 ? 0.0 : extremes.dRange / extremes.dLargest;
    h = s == 0.0 ? 0.0 : detail::HexagonHue(rgb, extremes);
}

RGB HSV::ToRGB() const
{
    const double turn = h / 360.0;
    const double x = turn == 1.0 ? 0.0 : 6.0 * turn;
    if (!(x >= 0.0 && x < 6.0)) return {0.0, 0.0, 0.0};
    const int side = static_cast<int>(x);
    const double f = x - side;

    const double value = 255.0 * v;
    const double low = value * (1.0 - s);
    const double falling = value * (1.0 - s * f);
    const double rising = value * (1.0 - s * (1.0 - f));
    switch (side) {
    case 0:
        return {value, rising, low};
    case 1:
        return {falling, value, low};
    case 2:
        return {low, value, rising};
    case 3:
        return {low, falling, value};
    case 4:
        return {rising, low, value};
    default:
        return {value, low, falling};
    }
}

CChannelTransferCurve HSV::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 360.0}, {0.0, 1.0});
}

CColorTransferCurve<HSV> HSV::CreateColorTransferCurve(int degree) { return MakeColorTransferCurve<HSV>(degree); }

} // namespace Zorvan::cs
