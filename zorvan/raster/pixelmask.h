// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/raster/ccontourtracer.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace Zorvan {

/// Pixels from one corner to the other, both inclusive.
struct PixelBox
{
    std::int64_t xmin;
    std::int64_t ymin;
    std::int64_t xmax;
    std::int64_t ymax;

    [[nodiscard]] std::int64_t Width() const { return xmax - xmin + 1; }
    [[nodiscard]] std::int64_t Height() const { return ymax - ymin + 1; }

    [[nodiscard]] PixelBox With(const PixelBox& o) const
    {
        return {std::min(xmin, o.xmin), std::min(ymin, o.ymin), std::max(xmax, o.xmax), std::max(ymax, o.ymax)};
    }
    /// What both have in common; its width or height is below 1 when that is nothing.
    [[nodiscard]] PixelBox Within(const PixelBox& o) const
    {
        return {std::max(xmin, o.xmin), std::max(ymin, o.ymin), std::min(xmax, o.xmax), std::min(ymax, o.ymax)};
    }
    [[nodiscard]] PixelBox Padded(std::int64_t by) const { return {xmin - by, ymin - by, xmax + by, ymax + by}; }

    /// Holds a pixel, all its coordinates are far from overflow, and a mask over it has less than 2 GiB.
    [[nodiscard]] bool IsUsable() const;
};

/// One byte a pixel of a box, all 0 at first, with a border of one more pixel that stays 0: whoever looks at the
/// neighbours of a pixel needs no limits. Null when the box is not usable or the memory is not there.
class CPixelMask
{
public:
    explicit CPixelMask(const PixelBox& box);

    [[nodiscard]] explicit operator bool() const { return m_bytes != nullptr; }
    [[nodiscard]] const PixelBox& Box() const { return m_box; }
    [[nodiscard]] std::int64_t Stride() const { return m_box.Width() + 2; }

    /// Row y from the left edge of the box on.
    [[nodiscard]] unsigned char* Row(std::int64_t y) { return m_bytes.get() + (y - m_box.ymin + 1) * Stride() + 1; }
    [[nodiscard]] const unsigned char* Row(std::int64_t y) const
    {
        return m_bytes.get() + (y - m_box.ymin + 1) * Stride() + 1;
    }

    /// ORs `bits` into the pixels from xStart to xEnd of a row, as far as they lie in the box.
    void Paint(std::int64_t y, std::int64_t xStart, std::int64_t xEnd, unsigned char bits);

    /// The contour around the pixels of this value that hang together with the first of them, row by row; empty when
    /// there is none.
    [[nodiscard]] Contour TraceFirst(unsigned char value) const;
    /// The one that begins at this pixel, the first of its region.
    [[nodiscard]] Contour TraceFrom(std::int64_t x, std::int64_t y, unsigned char value) const;

private:
    PixelBox m_box;
    std::unique_ptr<unsigned char[]> m_bytes;
};

} // namespace Zorvan
