// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/raster/cpixelpolygon.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan::Testing {

using Pixel = std::pair<int, int>; ///< y, x: in the order of the rows
using PixelSet = std::set<Pixel>;

/// A picture of set pixels: what regions are compared with, by floods and loops over all pixels.
class Mask
{
public:
    Mask(int width, int height) : m_width(width), m_bytes(static_cast<std::size_t>(width * height)) {}

    [[nodiscard]] int Width() const { return m_width; }
    [[nodiscard]] int Height() const { return static_cast<int>(m_bytes.size()) / m_width; }
    [[nodiscard]] unsigned char& At(int x, int y)
    {
        return m_bytes[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x)];
    }

    [[nodiscard]] PixelSet Pixels() const
    {
        PixelSet pixels;
        for (int i = 0; i < static_cast<int>(m_bytes.size()); ++i)
            if (m_bytes[static_cast<std::size_t>(i)] != 0) pixels.emplace(i / m_width, i % m_width);
        return pixels;
    }

    [[nodiscard]] std::vector<CPixelPolygon> Regions() const
    {
        return CPixelPolygon::RegionsOf(m_bytes.data(), Width(), Height());
    }

private:
    int m_width;
    std::vector<unsigned char> m_bytes;
};

/// From noise over lines to discs, some of which meet.
inline Mask RandomMask(std::mt19937& engine)
{
    const auto draw = [&engine](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); };
    Mask mask(draw(1, 24), draw(1, 24));
    const int kind = draw(0, 3);
    const int density = draw(5, 95);
    const int cx = draw(0, mask.Width());
    const int cy = draw(0, mask.Height());
    const int radius = draw(1, 150);
    for (int y = 0; y < mask.Height(); ++y)
        for (int x = 0; x < mask.Width(); ++x) {
            const int distance = (x - cx) * (x - cx) + (y - cy) * (y - cy);
            const bool isLine = (x + density) % 4 == 0 || (kind == 2 && y % 3 == 0);
            const bool isSet = kind == 0 ? draw(0, 99) < density : kind == 3 ? distance <= radius : isLine;
            mask.At(x, y) =
                isSet != (draw(0, 99) < (kind == 0 ? 0 : 10)) ? static_cast<unsigned char>(draw(1, 255)) : 0;
        }
    return mask;
}

/// Those of `pixels` that can be reached from `from`, by sides only or by corners too.
inline PixelSet Flood(const PixelSet& pixels, const Pixel& from, bool byCorners)
{
    PixelSet reached{from};
    std::vector<Pixel> open{from};
    while (!open.empty()) {
        const auto [y, x] = open.back();
        open.pop_back();
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                const Pixel next(y + dy, x + dx);
                if ((!byCorners && dx != 0 && dy != 0) || !pixels.contains(next)) continue;
                if (reached.insert(next).second) open.push_back(next);
            }
    }
    return reached;
}

/// All pixels of the box around the set and one pixel more that cannot be reached from outside.
inline PixelSet WithoutHoles(const PixelSet& region)
{
    int xmin = region.begin()->second;
    int xmax = xmin;
    for (const auto& [y, x] : region) {
        xmin = std::min(xmin, x);
        xmax = std::max(xmax, x);
    }
    PixelSet box;
    PixelSet empty;
    for (int y = region.begin()->first - 1; y <= region.rbegin()->first + 1; ++y)
        for (int x = xmin - 1; x <= xmax + 1; ++x) {
            box.emplace(y, x);
            if (!region.contains({y, x})) empty.emplace(y, x);
        }
    PixelSet filled;
    std::ranges::set_difference(box, Flood(empty, *empty.begin(), false), std::inserter(filled, filled.end()));
    return filled;
}

/// The region of the first pixel, without holes: what any operation on masks has to give.
inline PixelSet FirstRegion(const PixelSet& pixels)
{
    return pixels.empty() ? PixelSet() : WithoutHoles(Flood(pixels, *pixels.begin(), true));
}

/// The pixels of a region without holes that share a side with the outside.
inline PixelSet MarginOf(const PixelSet& region)
{
    PixelSet margin;
    for (const auto& [y, x] : region)
        if (!region.contains({y - 1, x}) || !region.contains({y + 1, x}) || !region.contains({y, x - 1}) ||
            !region.contains({y, x + 1}))
            margin.emplace(y, x);
    return margin;
}

inline PixelSet ChainOf(const CPixelPolygon& polygon)
{
    PixelSet pixels;
    for (auto it = polygon.GetMarginIterator(); it; ++it) pixels.emplace(it->y, it->x);
    return pixels;
}

inline PixelSet InteriorOf(const CPixelPolygon& polygon)
{
    PixelSet pixels;
    for (auto it = polygon.GetAreaIterator(); it; ++it) pixels.emplace(it->y, it->x);
    return pixels;
}

inline PixelSet PixelsOf(const CPixelPolygon& polygon)
{
    PixelSet pixels = ChainOf(polygon);
    pixels.merge(InteriorOf(polygon));
    return pixels;
}

} // namespace Zorvan::Testing
