// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/chainedpixel.h"
#include "zorvan/raster/pixelcoords.h"

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace Zorvan {

/// Walks the interior of a region, row by row and from left to right, without its margin.
///
///     for (AreaIterator it = polygon.GetAreaIterator(); it; ++it) use(it->x, it->y);
///
/// Copies share the spans of the rows, which never change, and walk on their own.
class ZORVAN_API AreaIterator
{
public:
    /// Pixels of one row between two of the margin.
    using Span = PixelSpan;

    AreaIterator() = default;
    /// @param chain  the margin as a tracer leaves it, closed from its last pixel to its first
    explicit AreaIterator(std::span<const ChainedPixel> chain);

    /// There is a current pixel.
    [[nodiscard]] explicit operator bool() const { return m_spans != nullptr && m_current < m_spans->size(); }
    /// The current pixel; only while there is one.
    [[nodiscard]] const PixelCoords& operator*() const { return m_place; }
    [[nodiscard]] const PixelCoords* operator->() const { return &m_place; }
    AreaIterator& operator++();

    /// At the same x of an equal span, or both without a span at the same x: -1 behind the last pixel, 0 when made
    /// empty.
    [[nodiscard]] bool operator==(const AreaIterator& o) const;

    /// Whether a pixel belongs to the interior, wherever this iterator is. Logarithmic in the number of spans.
    [[nodiscard]] bool IsInside(int x, int y) const;

    /// By ascending y, then x.
    [[nodiscard]] std::span<const Span> Spans() const;

private:
    void enterSpan();

    std::shared_ptr<const std::vector<Span>> m_spans;
    std::size_t m_current = 0;
    PixelCoords m_place{0, 0};
};

} // namespace Zorvan
