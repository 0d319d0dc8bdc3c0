// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/pixelcoords.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

namespace Zorvan {

/// The pixels of a straight line from one pixel to another, in order.
///
///     for (const PixelCoords p : CLineRaster({0, 0}, {7, 3}, {0, 0, width - 1, height - 1})) paint(p.x, p.y);
///
/// The line has one pixel for each step along its longer axis: the one nearest to the exact line. Where two are equally
/// near it takes the one towards its end, so a line and its reverse may differ there; who needs the same pixels both
/// ways orders the ends first. A rectangle leaves out what lies outside, and does not change what lies inside, however
/// far away the ends are: all pixels of an int are allowed. Construction costs the same for any line; each pixel after
/// it costs an addition.
///
/// Source: J. E. Bresenham, IBM Systems Journal 4 (1965).
class ZORVAN_API CLineRaster
{
public:
    class Iterator;

    CLineRaster(const PixelCoords& from, const PixelCoords& to);
    /// Without a pixel for a rectangle that has none.
    CLineRaster(const PixelCoords& from, const PixelCoords& to, const PixelRect& clip);

    [[nodiscard]] std::uint64_t Size() const { return m_size; }
    [[nodiscard]] bool Empty() const { return m_size == 0; }

    [[nodiscard]] Iterator begin() const;
    [[nodiscard]] std::default_sentinel_t end() const { return {}; }

private:
    void clip(const PixelRect& rect);
    /// How far across the line is after `step` steps.
    [[nodiscard]] std::int64_t acrossAt(std::int64_t step) const;
    /// The first step after which it is this far across, which it is at some step.
    [[nodiscard]] std::int64_t stepAt(std::int64_t across) const;

    PixelCoords m_from;
    bool m_isSteep; ///< y is the longer axis
    int m_signAlong;
    int m_signAcross;
    std::int64_t m_length; ///< steps to the end
    std::int64_t m_rise;   ///< pixels across on the way to the end

    std::int64_t m_first = 0; ///< step, of those in the rectangle
    std::uint64_t m_size;
};

/// Goes from pixel to pixel by sums alone.
class ZORVAN_API CLineRaster::Iterator
{
public:
    using value_type = PixelCoords;
    using difference_type = std::ptrdiff_t;

    Iterator() = default;
    explicit Iterator(const CLineRaster& line);

    [[nodiscard]] const PixelCoords& operator*() const { return m_place; }
    [[nodiscard]] const PixelCoords* operator->() const { return &m_place; }
    Iterator& operator++()
    {
        if (--m_left == 0) return *this; // another step might leave the range of an int
        if (m_error >= 0) {
            m_place.x += m_across.x;
            m_place.y += m_across.y;
            m_error -= m_fall;
        }
        m_place.x += m_along.x;
        m_place.y += m_along.y;
        m_error += m_climb;
        return *this;
    }
    Iterator operator++(int)
    {
        const Iterator before = *this;
        ++*this;
        return before;
    }

    /// Of iterators over the same line.
    [[nodiscard]] bool operator==(const Iterator& o) const { return m_left == o.m_left; }
    [[nodiscard]] bool operator==(std::default_sentinel_t) const { return m_left == 0; }

private:
    PixelCoords m_place{0, 0};
    PixelCoords m_along{0, 0};  ///< a step along the longer axis
    PixelCoords m_across{0, 0}; ///< what is added to it now and then
    std::uint64_t m_left = 0;   ///< pixels from here on
    std::int64_t m_error = 0;   ///< twice the distance to where the line goes across, in units of its length
    std::int64_t m_climb = 0;
    std::int64_t m_fall = 0;
};

} // namespace Zorvan
