// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/util/any.h"

#include <cstddef>
#include <limits>

namespace Zorvan {

/// A pixel of a margin, with a payload. Pixels are equal when they lie at the same place; the payload does not count.
class ZORVAN_API ChainedPixel
{
public:
    Any label;
    int x = std::numeric_limits<int>::min();
    int y = std::numeric_limits<int>::min();

    ChainedPixel() = default;
    ChainedPixel(int px, int py) : x(px), y(py) {}

    [[nodiscard]] bool operator==(const ChainedPixel& o) const { return x == o.x && y == o.y; }
    /// By y, then by x.
    [[nodiscard]] bool operator<(const ChainedPixel& o) const { return y != o.y ? y < o.y : x < o.x; }

    void Clamp(int xmin, int ymin, int xmax, int ymax);

    /// Modulo 2^32, as unsigned numbers are.
    [[nodiscard]] unsigned int DistanceSq(const ChainedPixel& o) const { return DistanceSq(o.x, o.y); }
    [[nodiscard]] unsigned int DistanceSq(int px, int py) const;

    struct ZORVAN_API hashFunc
    {
        std::size_t operator()(const ChainedPixel& pixel) const;
    };
};

} // namespace Zorvan
