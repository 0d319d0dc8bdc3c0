// SPDX-License-Identifier: MIT
#include "zorvan/colour/pixelrows.h"

#include "zorvan/colour/formulas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <stdexcept>

namespace Zorvan::cs {

namespace {

constexpr std::size_t uiBlock = 256; ///< pixels whose three channels fill a quarter of the first cache

/// A block of pixels, channel by channel: the loops over one channel are what the compiler turns into vector code.
struct Block
{
    std::array<double, uiBlock> c0;
    std::array<double, uiBlock> c1;
    std::array<double, uiBlock> c2;
};

/// What the bytes stand for, in light from 0 to 1 for linear bytes and from 0 to 100 for sRGB.
class CByteLight
{
public:
    explicit CByteLight(EPixelLight light)
    {
        for (std::size_t i = 0; i < m_light.size(); ++i) {
            const double unit = detail::ToUnit(static_cast<double>(i));
            m_light[i] = light == EPixelLight::SRGB ? detail::LinearFromSRGB(unit) : unit;
        }
    }

    [[nodiscard]] static const CByteLight& Of(EPixelLight light)
    {
        static const CByteLight linear(EPixelLight::Linear);
        static const CByteLight srgb(EPixelLight::SRGB);
        return light == EPixelLight::SRGB ? srgb : linear;
    }

    [[nodiscard]] double operator[](std::uint8_t byte) const { return m_light[byte]; }

private:
    std::array<double, 256> m_light{};
};

std::uint8_t byteFromLinear(double c)
{
    return detail::ToByte<std::uint8_t>(detail::FromUnit(detail::SRGBFromLinear(c)));
}

/// The bytes of sRGB by comparing with the 255 places where the byte changes: no powers, and the same bytes.
class CSRGBBytes
{
public:
    CSRGBBytes()
    {
        for (std::size_t k = 1; k < m_first.size(); ++k) m_first[k] = firstOf(static_cast<std::uint8_t>(k));
        for (std::size_t bin = 0; bin < m_lowest.size(); ++bin)
            m_lowest[bin] = byteFromLinear(static_cast<double>(bin) / uiBins);
    }

    [[nodiscard]] static const CSRGBBytes& Get()
    {
        static const CSRGBBytes table;
        return table;
    }

    [[nodiscard]] std::uint8_t operator()(double c) const
    {
        if (!(c > 0.0)) return 0;
        if (c >= 1.0) return 255;
        std::size_t byte = m_lowest[static_cast<std::size_t>(c * uiBins)];
        while (byte < 255 && c >= m_first[byte + 1]) ++byte;
        const double below = c - m_first[byte];
        const double above = byte < 255 ? m_first[byte + 1] - c : 1.0;
        return std::min(below, above) < dDoubt ? byteFromLinear(c) : static_cast<std::uint8_t>(byte);
    }

private:
    static constexpr std::size_t uiBins = 4096; ///< the curve is at most 0.81 bytes steep a bin
    /// So near to a change the rounding of the powers decides, which need not be monotone.
    static constexpr double dDoubt = 1e-12;

    static double firstOf(std::uint8_t byte)
    {
        double below = 0.0;
        double at = 1.0;
        for (int i = 0; i < 60; ++i) {
            const double middle = (below + at) / 2.0;
            (byteFromLinear(middle) < byte ? below : at) = middle;
        }
        return at;
    }

    std::array<double, 256> m_first{-1.0};       ///< light from which on a byte holds
    std::array<std::uint8_t, uiBins> m_lowest{}; ///< the byte at the start of each bin
};

void loadLight(std::span<const RGB::Packed> pixels, EPixelLight light, Block& block)
{
    const CByteLight& table = CByteLight::Of(light);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        block.c0[i] = table[pixels[i].r];
        block.c1[i] = table[pixels[i].g];
        block.c2[i] = table[pixels[i].b];
    }
}

/// Linear bytes stand for 0 .. 1 and are stretched last, as in `XYZ(RGB)`; for those of sRGB the factor 1 changes
/// nothing.
void replaceByXYZ(Block& block, EPixelLight light)
{
    const double scale = light == EPixelLight::Linear ? 100.0 : 1.0;
    for (std::size_t i = 0; i < uiBlock; ++i) {
        const auto [x, y, z] = detail::XYZFromLinear(block.c0[i], block.c1[i], block.c2[i]);
        block.c0[i] = scale * x;
        block.c1[i] = scale * y;
        block.c2[i] = scale * z;
    }
}

void replaceByResponse(std::array<double, uiBlock>& channel, double white)
{
    for (double& value : channel) value = detail::LabResponse(value / white);
}

/// Lab to light from 0 to 1.
void replaceLabByLight(Block& block)
{
    for (std::size_t i = 0; i < uiBlock; ++i) {
        const auto [x, y, z] = detail::XYZFromLab(block.c0[i], block.c1[i], block.c2[i]);
        const auto [r, g, b] = detail::LinearFromXYZ(x / 100.0, y / 100.0, z / 100.0);
        block.c0[i] = r;
        block.c1[i] = g;
        block.c2[i] = b;
    }
}

template <typename Colour>
void store(const Block& block, std::span<Colour> colours)
{
    for (std::size_t i = 0; i < colours.size(); ++i) colours[i] = {block.c0[i], block.c1[i], block.c2[i]};
}

template <typename ToByte>
void store(const Block& block, std::span<RGB::Packed> pixels, const ToByte& toByte)
{
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = {toByte(block.c0[i]), toByte(block.c1[i]), toByte(block.c2[i])};
}

/// Calls `convert` with parts of both rows that fit a block.
template <typename From, typename To, typename Convert>
void inBlocks(std::span<const From> from, std::span<To> to, const Convert& convert)
{
    if (from.size() != to.size()) throw std::invalid_argument("rows of different lengths");
    Block block{};
    for (std::size_t at = 0; at < from.size(); at += uiBlock) {
        const std::size_t count = std::min(uiBlock, from.size() - at);
        convert(from.subspan(at, count), to.subspan(at, count), block);
    }
}

} // namespace

void ToXYZ(std::span<const RGB::Packed> pixels, EPixelLight light, std::span<XYZ> colours)
{
    inBlocks(pixels, colours, [light](std::span<const RGB::Packed> in, std::span<XYZ> out, Block& block) {
        loadLight(in, light, block);
        replaceByXYZ(block, light);
        store(block, out);
    });
}

void ToLab(std::span<const RGB::Packed> pixels, EPixelLight light, std::span<Lab> colours)
{
    const XYZ white = XYZ::WhiteReference();
    inBlocks(pixels, colours, [&](std::span<const RGB::Packed> in, std::span<Lab> out, Block& block) {
        loadLight(in, light, block);
        replaceByXYZ(block, light);
        replaceByResponse(block.c0, white.x);
        replaceByResponse(block.c1, white.y);
        replaceByResponse(block.c2, white.z);
        for (std::size_t i = 0; i < out.size(); ++i) {
            const auto [L, a, b] = detail::LabFromResponses(block.c0[i], block.c1[i], block.c2[i]);
            out[i] = {L, a, b};
        }
    });
}

void ToRGB(std::span<const Lab> colours, EPixelLight light, std::span<RGB::Packed> pixels)
{
    inBlocks(colours, pixels, [light](std::span<const Lab> in, std::span<RGB::Packed> out, Block& block) {
        for (std::size_t i = 0; i < in.size(); ++i) {
            block.c0[i] = in[i].L;
            block.c1[i] = in[i].a;
            block.c2[i] = in[i].b;
        }
        replaceLabByLight(block);
        if (light == EPixelLight::SRGB)
            store(block, out, CSRGBBytes::Get());
        else
            store(block, out, [](double c) { return detail::ToByte<std::uint8_t>(detail::FromUnit(c)); });
    });
}

} // namespace Zorvan::cs
