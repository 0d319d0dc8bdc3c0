// SPDX-License-Identifier: MIT
#include "zorvan/colour/rgb.h"

#include "zorvan/colour/ccolortransfercurve.h"

namespace Zorvan::cs {

RGB& RGB::Clamp()
{
    return *this = {detail::Clamp(r, 0.0, 255.0), detail::Clamp(g, 0.0, 255.0), detail::Clamp(b, 0.0, 255.0)};
}

RGB RGB::Mix(const RGB& other, double t) const { return *this + (other - *this) * t; }

std::uint8_t RGB::ToGray() const { return detail::ToByte<std::uint8_t>(0.212671 * r + 0.71516 * g + 0.072169 * b); }

std::uint32_t RGB::ToARGB() const { return Pack().ToARGB(); }
std::uint32_t RGB::ToABGR() const { return Pack().ToABGR(); }
std::uint32_t RGB::ToRGBA() const { return Pack().ToRGBA(); }
std::uint32_t RGB::ToBGRA() const { return Pack().ToBGRA(); }

RGB RGB::FromARGB(std::uint32_t word) { return Packed::FromARGB(word); }
RGB RGB::FromABGR(std::uint32_t word) { return Packed::FromABGR(word); }
RGB RGB::FromRGBA(std::uint32_t word) { return Packed::FromRGBA(word); }
RGB RGB::FromBGRA(std::uint32_t word) { return Packed::FromBGRA(word); }

CChannelTransferCurve RGB::CreateChannelTransferCurve(int channel, int degree)
{
    return MakeChannelTransferCurve(channel, degree, {0.0, 255.0}, {0.0, 255.0});
}

CColorTransferCurve<RGB> RGB::CreateColorTransferCurve(int degree) { return MakeColorTransferCurve<RGB>(degree); }

} // namespace Zorvan::cs
