// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/rgb.h"
#include "zorvan/colour/tcolour.h"
#include "zorvan/platform/export.h"

namespace Zorvan::cs {

/// Hue (degrees, 0 to 360), saturation and value (0 to 1). The constructor holds them in their ranges, and so do the
/// binary operators; `+=` and its like do not.
class ZORVAN_API HSV : public TColour<HSV>
{
public:
    double h = detail::dNaN;
    double s = detail::dNaN;
    double v = detail::dNaN;

    HSV() = default;
    HSV(double hue, double saturation, double value)
        : h(detail::Clamp(hue, 0.0, 360.0)), s(detail::Clamp(saturation, 0.0, 1.0)), v(detail::Clamp(value, 0.0, 1.0))
    {
    }
    /// Takes r, g and b from 0 to 255.
    HSV(const RGB& rgb);

    [[nodiscard]] static HSV min() { return {0.0, 0.0, 0.0}; }
    [[nodiscard]] static HSV max() { return {360.0, 1.0, 1.0}; }

    [[nodiscard]] double& operator[](int i) { return i == 0 ? h : i == 1 ? s : v; }
    [[nodiscard]] double operator[](int i) const { return i == 0 ? h : i == 1 ? s : v; }

    /// From 0 to 255; black for a hue outside its range.
    [[nodiscard]] RGB ToRGB() const;

    /// A curve over the range of a channel. @throws std::invalid_argument "invalid channel index"
    [[nodiscard]] static CChannelTransferCurve CreateChannelTransferCurve(int channel, int degree);
    [[nodiscard]] static CColorTransferCurve<HSV> CreateColorTransferCurve(int degree);
};

} // namespace Zorvan::cs
