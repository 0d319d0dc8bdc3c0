// SPDX-License-Identifier: MIT
#include "zorvan/colour/xyz.h"

#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/formulas.h"

namespace Zorvan::cs {

XYZ::XYZ(const RGB& rgb)
{
    const auto [cx, cy, cz] =
        detail::XYZFromLinear(detail::ToUnit(rgb.r), detail::ToUnit(rgb.g), detail::ToUnit(rgb.b));
    *this = {100.0 * cx, 100.0 * cy, 100.0 * cz};
}

XYZ XYZ::FromSRGB(RGB rgb)
{
    for (int i = 0; i < dim; ++i) rgb[i] = detail::LinearFromSRGB(detail::ToUnit(rgb[i]));
    const auto [x, y, z] = detail::XYZFromLinear(rgb.r, rgb.g, rgb.b);
    return {x, y, z};
}

XYZ& XYZ::Clamp()
{
    return *this = {detail::Clamp(x, 0.0, 100.0), detail::Clamp(y, 0.0, 100.0), detail::Clamp(z, 0.0, 100.0)};
}

RGB XYZ::ToRGB() const
{
    const auto [r, g, b] = detail::LinearFromXYZ(x / 100.0, y / 100.0, z / 100.0);
    return {detail::FromUnit(r), detail::FromUnit(g), detail::FromUnit(b)};
}

RGB XYZ::ToSRGB() const
{
    const auto [r, g, b] = detail::LinearFromXYZ(x / 100.0, y / 100.0, z / 100.0);
    return {detail::FromUnit(detail::SRGBFromLinear(r)), detail::FromUnit(detail::SRGBFromLinear(g)),
            detail::FromUnit(detail::SRGBFromLinear(b))};
}

CChannelTransferCurve XYZ::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 100.0}, {0.0, 100.0});
}

CColorTransferCurve<XYZ> XYZ::CreateColorTransferCurve(int degree) { return MakeColorTransferCurve<XYZ>(degree); }

} // namespace Zorvan::cs
