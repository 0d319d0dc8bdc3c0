// SPDX-License-Identifier: MIT
#include "zorvan/colour/lab.h"

#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/formulas.h"

#include <cmath>

namespace Zorvan::cs {

namespace {

constexpr double dPi = 3.14159265358979;
constexpr double dRadians = 0.0174532925199433; ///< a degree

double square(double v) { return v * v; }

/// v^7 / (v^7 + 25^7)
double chromaShare(double v)
{
    const double power = v * square(v * square(v));
    return power / (power + 6103515625.0);
}

/// A colour as the formula CIEDE2000 sees it.
struct Chroma
{
    Chroma(const Lab& colour, double stretch)
    {
        const double a = (1.0 + stretch) * colour.a;
        dChroma = std::sqrt(a * a + colour.b * colour.b);
        dHue = std::fmod(std::atan2(colour.b, a) * 180.0 / dPi + 360.0, 360.0);
    }

    double dChroma;
    double dHue; ///< degrees
};

/// From the first hue to the second, the short way round.
double hueDifference(double from, double to)
{
    const double difference = to - from;
    return difference > 180.0 ? difference - 360.0 : difference < -180.0 ? difference + 360.0 : difference;
}

double meanHue(double h1, double h2)
{
    const double mean = (h1 + h2) / 2.0;
    if (std::fabs(h1 - h2) <= 180.0) return mean;
    return h1 + h2 < 360.0 ? mean + 180.0 : mean - 180.0;
}

double hueWeight(double hue)
{
    const auto cosine = [](double degrees) { return std::cos(degrees * dRadians); };
    return 1.0 - 0.17 * cosine(hue - 30.0) + 0.24 * cosine(2.0 * hue) + 0.32 * cosine(3.0 * hue + 6.0) -
           0.20 * cosine(4.0 * hue - 63.0);
}

} // namespace

Lab::Lab(const XYZ& xyz)
{
    static const XYZ white = XYZ::WhiteReference();
    const auto [cL, ca, cb] =
        detail::LabFromResponses(detail::LabResponse(xyz.x / white.x), detail::LabResponse(xyz.y / white.y),
                                 detail::LabResponse(xyz.z / white.z));
    *this = {cL, ca, cb};
}

Lab::operator bool() const { return L >= 0.0 && L <= 100.0 && a >= -128.0 && a <= 127.0 && b >= -128.0 && b <= 127.0; }

Lab& Lab::Clamp()
{
    return *this = {detail::Clamp(L, 0.0, 100.0), detail::Clamp(a, -128.0, 127.0), detail::Clamp(b, -128.0, 127.0)};
}

XYZ Lab::ToXYZ() const
{
    const auto [x, y, z] = detail::XYZFromLab(L, a, b);
    return {x, y, z};
}

float Lab::DistanceSqWeighted(const Lab& o, float wL, float wa, float wb) const
{
    const float dL = static_cast<float>(L) - static_cast<float>(o.L);
    const float da = static_cast<float>(a) - static_cast<float>(o.a);
    const float db = static_cast<float>(b) - static_cast<float>(o.b);
    return wL * (dL * dL) + wa * (da * da) + wb * (db * db);
}

double Lab::DistanceSq_CIEDE2000(const Lab& o) const
{
    const double meanChroma = (std::sqrt(a * a + b * b) + std::sqrt(o.a * o.a + o.b * o.b)) / 2.0;
    const double stretch = 0.5 * (1.0 - std::sqrt(chromaShare(meanChroma)));
    const Chroma first(*this, stretch);
    const Chroma second(o, stretch);

    const double product = first.dChroma * second.dChroma;
    const bool isGrey = product == 0.0;
    const double turn = isGrey ? 0.0 : hueDifference(first.dHue, second.dHue);
    const double hue = isGrey ? 0.0 : meanHue(first.dHue, second.dHue);
    const double chroma = (first.dChroma + second.dChroma) / 2.0;
    const double middle = square((L + o.L) / 2.0 - 50.0);

    const double dL = (o.L - L) / (1.0 + 0.015 * middle / std::sqrt(20.0 + middle));
    const double dC = (second.dChroma - first.dChroma) / (1.0 + 0.045 * chroma);
    const double dH =
        2.0 * std::sqrt(product) * std::sin(turn / 2.0 * dRadians) / (1.0 + 0.015 * chroma * hueWeight(hue));
    const double angle = 30.0 * std::exp(-square((hue - 275.0) / 25.0));
    const double rotation = -std::sin(2.0 * angle * dRadians) * 2.0 * std::sqrt(chromaShare(chroma));
    return dL * dL + dC * dC + dH * dH + rotation * dC * dH;
}

CChannelTransferCurve Lab::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 100.0}, {-128.0, 128.0});
}

CColorTransferCurve<Lab> Lab::CreateColorTransferCurve(int degree) { return MakeColorTransferCurve<Lab>(degree); }

} // namespace Zorvan::cs
