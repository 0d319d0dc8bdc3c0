// SPDX-License-Identifier: MIT
#include "zorvan/colour/hsl.h"

#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/hue.h"

namespace Zorvan::cs {

namespace {

double saturation(const detail::Extremes& e, double lightness)
{
    if (e.dRange == 0.0) return 0.0;
    if (lightness <= 0.5) return e.dRange / (e.dLargest + e.dSmallest);
    return e.dRange / (2.0 - e.dLargest + e.dSmallest); // the plus is what callers know
}

/// The value at a position of the colour circle, one turn a unit. Position 0 is moved to 1.
double channel(double p, double q, double t)
{
    if (t <= 0.0)
        t += 1.0;
    else if (t >= 1.0)
        t -= 1.0;
    double value = p;
    if (t < 0.16666666666666666)
        value = 6.0 * (q - p) * t + p;
    else if (t < 0.5)
        value = q;
    else if (t < 0.6666666666666666)
        value = 6.0 * (q - p) * (0.6666666666666666 - t) + p;
    return detail::Clamp(value, 0.0, 1.0);
}

} // namespace

HSL::HSL(const RGB& rgb)
{
    const detail::Extremes extremes(rgb);
    l = (extremes.dLargest + extremes.dSmallest) / 2.0;
    s = saturation(extremes, l);
    h = s == 0.0 ? 0.0 : detail::HexagonHue(rgb, extremes);
}

RGB HSL::ToRGB() const
{
    const double lightness = l / 100.0;
    const double strength = s / 100.0;
    const double q = lightness < 0.5 ? lightness * (1.0 + strength) : lightness + strength - lightness * strength;
    const double p = 2.0 * lightness - q;
    const double turn = h / 360.0;
    constexpr double dThird = 0.3333333333333333;
    return {channel(p, q, turn + dThird), channel(p, q, turn), channel(p, q, turn - dThird)};
}

CChannelTransferCurve HSL::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 360.0}, {0.0, 100.0});
}

CColorTransferCurve<HSL> HSL::CreateColorTransferCurve(int degree) { return MakeColorTransferCurve<HSL>(degree); }

} // namespace Zorvan::cs
