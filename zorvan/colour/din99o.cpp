// SPDX-License-Identifier: MIT
#include "zorvan/colour/din99o.h"

#include "zorvan/colour/ccolortransfercurve.h"

namespace Zorvan::cs {

namespace {

// The axes are turned by 26 degrees, the yellow-blue one is squeezed to 0.83.
constexpr double dCosTurn = 0.898794046299167;
constexpr double dSinTurn = 0.438371146789077;
constexpr double dTurn = 26.0;
constexpr double dSqueeze = 0.83;
constexpr double dRadians = 0.0174532925199433; ///< a degree
constexpr double dDegrees = 57.2957795130823;   ///< a radian

double turned(double a, double b, double degrees) { return (std::atan2(b, a) * dDegrees + degrees) * dRadians; }

} // namespace

DIN99o DIN99o::fromLab(const Lab& lab)
{
    const double e = lab.a * dCosTurn + lab.b * dSinTurn;
    const double f = dSqueeze * (lab.b * dCosTurn - lab.a * dSinTurn);
    const double chroma = std::log1p(0.075 * std::sqrt(e * e + f * f));
    const double hue = turned(e, f, dTurn);
    return {303.67 * std::log1p(0.0039 * lab.L), 23.0 * chroma * std::cos(hue), 23.0 * chroma * std::sin(hue)};
}

Lab DIN99o::ToLab() const
{
    const double hue = turned(a, b, -dTurn);
    const double chroma = std::expm1(Chroma() / 23.0) / 0.075;
    const double e = chroma * std::cos(hue);
    const double f = chroma * std::sin(hue) / dSqueeze;
    return {std::expm1(L / 303.67) / 0.0039, e * dCosTurn - f * dSinTurn, e * dSinTurn + f * dCosTurn};
}

double DIN99o::Hue() const
{
    double angle = 0.0;
    if (a > 0.0 && b >= 0.0) angle = std::atan(b / a);
    if (a == 0.0 && b > 0.0) angle = 1.5707963267949;
    if (a < 0.0) angle = std::atan(b / a) + 3.14159265358979;
    if (a == 0.0 && b < 0.0) angle = 4.71238898038469;
    if (a > 0.0 && b < 0.0) angle = std::atan(b / a) + 6.28318530717959;
    return angle * dDegrees;
}

CChannelTransferCurve DIN99o::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 100.0}, {-128.0, 128.0});
}

CColorTransferCurve<DIN99o> DIN99o::CreateColorTransferCurve(int degree)
{
    return MakeColorTransferCurve<DIN99o>(degree);
}

} // namespace Zorvan::cs
