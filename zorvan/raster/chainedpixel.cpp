// SPDX-License-Identifier: MIT
#include "zorvan/raster/chainedpixel.h"

#include <algorithm>
#include <cstdint>

namespace Zorvan {

void ChainedPixel::Clamp(int xmin, int ymin, int xmax, int ymax)
{
    x = std::min(std::max(x, xmin), xmax);
    y = std::min(std::max(y, ymin), ymax);
}

unsigned int ChainedPixel::DistanceSq(int px, int py) const
{
    const unsigned int dx = static_cast<unsigned int>(x) - static_cast<unsigned int>(px);
    const unsigned int dy = static_cast<unsigned int>(y) - static_cast<unsigned int>(py);
    return dx * dx + dy * dy;
}

/// The bytes of two masked copies of the place, in turn, as digits to the base 11; then their upper halves once more.
std::size_t ChainedPixel::hashFunc::operator()(const ChainedPixel& pixel) const
{
    const std::uint64_t place =
        static_cast<std::uint64_t>(static_cast<std::uint32_t>(pixel.y)) << 32 | static_cast<std::uint32_t>(pixel.x);
    const std::uint64_t a = place ^ 0x363F7706;
    const std::uint64_t b = place ^ 0x4ED3AA62;
    std::uint64_t inner = 0;
    std::uint64_t outer = 0;
    std::uint64_t last = 0;
    for (unsigned int shift = 0; shift < 64; shift += 8)
        for (const std::uint64_t word : {b, a}) {
            const std::uint64_t byte = word >> shift & 0xFF;
            inner = inner * 11 + byte;
            outer = outer * 11 + last;
            last = byte >> 4;
        }
    return (outer * 11 + inner * 16 + last) * 11;
}

} // namespace Zorvan
