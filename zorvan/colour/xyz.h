// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/rgb.h"
#include "zorvan/colour/tcolour.h"
#include "zorvan/platform/export.h"

namespace Zorvan::cs {

/// A colour as the standard observer sees it (CIE 1931), white at (95.047, 100, 108.883), the illuminant D65.
///
/// There are two ways from and to RGB: the constructor and `ToRGB` take the components as linear light, `FromSRGB` and
/// `ToSRGB` apply the curve of sRGB (IEC 61966-2-1).
class ZORVAN_API XYZ : public TColour<XYZ>
{
public:
    double x = detail::dNaN;
    double y = detail::dNaN;
    double z = detail::dNaN;

    XYZ() = default;
    XYZ(double cx, double cy, double cz) : x(cx), y(cy), z(cz) {}
    /// From linear light; the components are held in 0 .. 255 first.
    XYZ(const RGB& rgb);
    [[nodiscard]] static XYZ FromSRGB(RGB rgb);

    [[nodiscard]] static XYZ min() { return {0.0, 0.0, 0.0}; }
    [[nodiscard]] static XYZ max() { return {100.0, 100.0, 100.0}; }
    [[nodiscard]] static XYZ WhiteReference() { return {95.047, 100.0, 108.883}; }
    /// Where the cube root of L*a*b* gives way to a straight line, (6/29)^3, and the slope of that line, (29/3)^3.
    [[nodiscard]] static double Epsilon() { return 0.008856451679035631; }
    [[nodiscard]] static double Kappa() { return 903.2962962962963; }

    [[nodiscard]] double& operator[](int i) { return i == 0 ? x : i == 1 ? y : z; }
    [[nodiscard]] double operator[](int i) const { return i == 0 ? x : i == 1 ? y : z; }

    /// In place, to 0 .. 100.
    XYZ& Clamp();

    /// As linear light, held in 0 .. 255.
    [[nodiscard]] RGB ToRGB() const;
    /// With the curve of sRGB, held in 0 .. 255.
    [[nodiscard]] RGB ToSRGB() const;

    /// A curve over the range of a channel. @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<XYZ> CreateColorTransferCurve(int degree);
};

} // namespace Zorvan::cs
