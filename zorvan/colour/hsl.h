// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/rgb.h"
#include "zorvan/colour/tcolour.h"
#include "zorvan/platform/export.h"

namespace Zorvan::cs {

/// Hue (degrees, 0 to 360), saturation and lightness (0 to 100). The constructor of three numbers holds them in their
/// ranges, and so do the binary operators; `+=` and its like do not.
///
/// The two ways do not fit together, and callers rely on both as they are: from RGB the components have to lie in 0 ..
/// 1, and saturation and lightness come out on that scale; `ToRGB` takes them from 0 to 100 and gives 0 .. 1.
class ZORVAN_API HSL : public TColour<HSL>
{
public:
    double h = detail::dNaN;
    double s = detail::dNaN;
    double l = detail::dNaN;

    HSL() = default;
    HSL(double hue, double saturation, double lightness)
        : h(detail::Clamp(hue, 0.0, 360.0)),
          s(detail::Clamp(saturation, 0.0, 100.0)),
          l(detail::Clamp(lightness, 0.0, 100.0))
    {
    }
    /// Takes r, g and b from 0 to 1. For light colours the saturation is d / (2 - M + m) and not the usual
    /// d / (2 - M - m).
    HSL(const RGB& rgb);

    [[nodiscard]] static HSL min() { return {0.0, 0.0, 0.0}; }
    [[nodiscard]] static HSL max() { return {360.0, 100.0, 100.0}; }

    [[nodiscard]] double& operator[](int i) { return i == 0 ? h : i == 1 ? s : l; }
    [[nodiscard]] double operator[](int i) const { return i == 0 ? h : i == 1 ? s : l; }

    /// From 0 to 1, and held there.
    [[nodiscard]] RGB ToRGB() const;

    /// A curve over the range of a channel. @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<HSL> CreateColorTransferCurve(int degree);
};

} // namespace Zorvan::cs
