// SPDX-License-Identifier: MIT
#include "zorvan/raster/pixelmask.h"

#include <cstring>
#include <limits>
#include <new>

namespace Zorvan {

namespace {

constexpr std::int64_t iLargestCoordinate = std::int64_t{1} << 29;
constexpr std::int64_t iMostPixels = std::numeric_limits<std::int32_t>::max(); ///< an area is an int

} // namespace

bool PixelBox::IsUsable() const
{
    if (xmin < -iLargestCoordinate || ymin < -iLargestCoordinate) return false;
    if (xmax > iLargestCoordinate || ymax > iLargestCoordinate) return false;
    return Width() > 0 && Height() > 0 && (Width() + 2) * (Height() + 2) <= iMostPixels;
}

CPixelMask::CPixelMask(const PixelBox& box) : m_box(box)
{
    if (!box.IsUsable()) return;
    m_bytes.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(Stride() * (box.Height() + 2))]());
}

void CPixelMask::Paint(std::int64_t y, std::int64_t xStart, std::int64_t xEnd, unsigned char bits)
{
    if (y < m_box.ymin || y > m_box.ymax) return;
    const std::int64_t first = std::max(xStart, m_box.xmin) - m_box.xmin;
    const std::int64_t last = std::min(xEnd, m_box.xmax) - m_box.xmin;
    unsigned char* const row = Row(y);
    for (std::int64_t i = first; i <= last; ++i) row[i] |= bits;
}

Contour CPixelMask::TraceFirst(unsigned char value) const
{
    for (std::int64_t y = m_box.ymin; y <= m_box.ymax; ++y) {
        const auto* const row = Row(y);
        const auto width = static_cast<std::size_t>(m_box.Width());
        if (const void* const found = std::memchr(row, value, width))
            return TraceFrom(m_box.xmin + (static_cast<const unsigned char*>(found) - row), y, value);
    }
    return {};
}

Contour CPixelMask::TraceFrom(std::int64_t x, std::int64_t y, unsigned char value) const
{
    CContourTracer tracer(Row(y) + (x - m_box.xmin), Stride(), value);
    return tracer.Trace(static_cast<int>(x), static_cast<int>(y));
}

} // namespace Zorvan
