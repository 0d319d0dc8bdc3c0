// SPDX-License-Identifier: MIT
#include "zorvan/raster/cpixelpolygon.h"

#include "zorvan/raster/pixelmask.h"

#include <algorithm>
#include <cstring>

namespace Zorvan {

namespace {

constexpr unsigned char uiSet = 255;

/// ORs each pixel of a row with those `step` away on the two sides, from one buffer into another.
void spread(const unsigned char* from, unsigned char* to, std::int64_t n, std::int64_t step)
{
    std::memcpy(to, from, static_cast<std::size_t>(n));
    for (std::int64_t i = step; i < n; ++i) to[i] |= from[i - step];
    for (std::int64_t i = step; i < n; ++i) to[i - step] |= from[i];
}

/// Steps that together reach every distance up to `radius`: each doubles what the ones before have covered, and one
/// more.
template <typename Spread>
void inSteps(std::int64_t radius, const Spread& spreadBy)
{
    for (std::int64_t covered = 0; covered < radius;) {
        const std::int64_t step = std::min(2 * covered + 1, radius - covered);
        spreadBy(step);
        covered += step;
    }
}

void spreadAlongRows(CPixelMask& mask, CPixelMask& other, std::int64_t radius)
{
    inSteps(radius, [&](std::int64_t step) {
        for (std::int64_t y = mask.Box().ymin; y <= mask.Box().ymax; ++y)
            spread(mask.Row(y), other.Row(y), mask.Box().Width(), step);
        std::swap(mask, other);
    });
}

void orRow(const CPixelMask& from, std::int64_t y, unsigned char* to)
{
    if (y < from.Box().ymin || y > from.Box().ymax) return;
    const unsigned char* const row = from.Row(y);
    for (std::int64_t i = 0; i < from.Box().Width(); ++i) to[i] |= row[i];
}

void spreadAlongColumns(CPixelMask& mask, CPixelMask& other, std::int64_t radius)
{
    inSteps(radius, [&](std::int64_t step) {
        for (std::int64_t y = mask.Box().ymin; y <= mask.Box().ymax; ++y) {
            std::memcpy(other.Row(y), mask.Row(y), static_cast<std::size_t>(mask.Box().Width()));
            orRow(mask, y - step, other.Row(y));
            orRow(mask, y + step, other.Row(y));
        }
        std::swap(mask, other);
    });
}

bool hasSetNeighbour(const CPixelMask& mask, std::int64_t x, std::int64_t y)
{
    const unsigned char* const p = mask.Row(y) + (x - mask.Box().xmin);
    for (const unsigned char* row : {p - mask.Stride(), p, p + mask.Stride()})
        if ((row[-1] | row[0] | row[1]) != 0) return true;
    return false;
}

void growOnce(const CPixelMask& from, CPixelMask& to, const std::function<bool(int, int)>& filter)
{
    const PixelBox& box = from.Box();
    for (std::int64_t y = box.ymin; y <= box.ymax; ++y)
        for (std::int64_t x = box.xmin; x <= box.xmax; ++x) {
            const bool isSet = hasSetNeighbour(from, x, y) && filter(static_cast<int>(x), static_cast<int>(y));
            to.Row(y)[x - box.xmin] = isSet ? uiSet : 0;
        }
}

} // namespace

/// ORs into margin and interior, as far as they lie in the mask.
void CPixelPolygon::paint(CPixelMask& mask, unsigned char bits) const
{
    for (const ChainedPixel& p : m_chain) mask.Paint(p.y, p.x, p.x, bits);
    for (const AreaIterator::Span& span : getAreaIteratorRef().Spans())
        mask.Paint(span.y, span.xStart, span.xEnd, bits);
}

CPixelPolygon CPixelPolygon::Union(const CPixelPolygon& other) const
{
    if (Empty() || other.Empty()) return {};
    const PixelBox common = box().Within(other.box());
    if (common.Width() <= 0 || common.Height() <= 0) return {};
    CPixelMask mask(box().With(other.box()));
    if (!mask) return {};
    paint(mask, 1);
    other.paint(mask, 1);
    return CPixelPolygon(mask.TraceFirst(1));
}

CPixelPolygon CPixelPolygon::Intersect(const CPixelPolygon& other) const
{
    if (Empty() || other.Empty()) return {};
    CPixelMask mask(box().Within(other.box()));
    if (!mask) return {};
    paint(mask, 1);
    other.paint(mask, 2);
    return CPixelPolygon(mask.TraceFirst(1 | 2));
}

CPixelPolygon CPixelPolygon::Dilate(unsigned int radius) const { return Dilate(radius, nullptr); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers have this signature
CPixelPolygon CPixelPolygon::Dilate(unsigned int radius, std::function<bool(int, int)> filter) const
{
    if (radius == 0 || Empty()) return *this;
    const PixelBox padded = box().Padded(radius);
    CPixelMask mask(padded);
    CPixelMask other(padded);
    if (!mask || !other) return *this;

    // The margin alone: what grows inwards is interior anyway.
    for (const ChainedPixel& p : m_chain) mask.Paint(p.y, p.x, p.x, uiSet);
    if (filter) {
        for (unsigned int round = 0; round < radius; ++round) {
            growOnce(mask, other, filter);
            std::swap(mask, other);
        }
    } else {
        spreadAlongRows(mask, other, radius);
        spreadAlongColumns(mask, other, radius);
    }
    return CPixelPolygon(mask.TraceFirst(uiSet));
}

CPixelPolygon CPixelPolygon::Shift(int dx, int dy) const
{
    if (Empty()) return {};
    const PixelBox old = box();
    if (!PixelBox{old.xmin + dx, old.ymin + dy, old.xmax + dx, old.ymax + dy}.IsUsable()) return {};
    std::vector<ChainedPixel> chain = m_chain;
    for (ChainedPixel& p : chain) {
        p.x += dx;
        p.y += dy;
    }
    return {std::move(chain), m_area, m_perimeter};
}

} // namespace Zorvan
