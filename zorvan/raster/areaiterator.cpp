// SPDX-License-Identifier: MIT
#include "zorvan/raster/areaiterator.h"

#include <algorithm>
#include <cstdint>
#include <tuple>

namespace Zorvan {

namespace {

using Span = AreaIterator::Span;

/// How the margin crosses a row at one pixel: 2 down through it, -2 up, 1 and -1 at a corner, 0 along the row or at a
/// turning point. Down is where the region begins, up where it ends.
struct Crossing
{
    int y;
    int x;
    std::int64_t sum;
};

bool isBefore(const Crossing& a, const Crossing& b) { return std::tie(a.y, a.x) < std::tie(b.y, b.x); }

/// One a pixel, by rows.
std::vector<Crossing> crossingsOf(std::span<const ChainedPixel> chain)
{
    std::vector<Crossing> steps;
    steps.reserve(2 * chain.size());
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const ChainedPixel& p = chain[i];
        const ChainedPixel& q = chain[i + 1 < chain.size() ? i + 1 : 0];
        const std::int64_t dy = static_cast<std::int64_t>(q.y) - p.y;
        steps.push_back({p.y, p.x, dy});
        steps.push_back({q.y, q.x, dy});
    }
    std::sort(steps.begin(), steps.end(), isBefore);

    std::vector<Crossing> crossings;
    crossings.reserve(chain.size());
    for (const Crossing& step : steps) {
        if (!crossings.empty() && crossings.back().y == step.y && crossings.back().x == step.x)
            crossings.back().sum += step.sum;
        else
            crossings.push_back(step);
    }
    return crossings;
}

/// Takes a row apart: what lies between two crossings, the first of which is inside, is a span.
class CRowWalk
{
public:
    CRowWalk(std::span<const Crossing> row, std::vector<Span>& spans) : m_row(row), m_spans(spans) {}

    void Run()
    {
        while (m_next < m_row.size()) {
            if (m_row[m_next].sum <= 0)
                ++m_next; // a line that is all margin
            else
                crossRegion();
        }
    }

private:
    void crossRegion()
    {
        step();
        while (isNextTo() && m_row[m_next].sum >= 0) step();
        while (m_next < m_row.size() && m_row[m_next].sum == 0) addSpanAndStep();
        if (m_next == m_row.size() || m_row[m_next].sum > 0) return;
        addSpanAndStep();
        while (isNextTo() && m_row[m_next].sum <= 0) step();
    }

    [[nodiscard]] bool isNextTo() const { return m_next < m_row.size() && m_row[m_next].x - 1 == m_x; }

    void step() { m_x = m_row[m_next++].x; }

    void addSpanAndStep()
    {
        const int x = m_row[m_next].x;
        if (m_x < x - 1) m_spans.push_back({m_row[m_next].y, m_x + 1, x - 1});
        step();
    }

    std::span<const Crossing> m_row;
    std::vector<Span>& m_spans;
    std::size_t m_next = 0;
    int m_x = 0; ///< of the crossing before
};

std::vector<Span> spansOf(std::span<const ChainedPixel> chain)
{
    const std::vector<Crossing> crossings = crossingsOf(chain);
    std::vector<Span> spans;
    for (auto begin = crossings.begin(); begin != crossings.end();) {
        const auto end = std::find_if(begin, crossings.end(), [y = begin->y](const Crossing& c) { return c.y != y; });
        CRowWalk({begin, end}, spans).Run();
        begin = end;
    }
    return spans;
}

} // namespace

AreaIterator::AreaIterator(std::span<const ChainedPixel> chain)
    : m_spans(std::make_shared<const std::vector<Span>>(spansOf(chain)))
{
    enterSpan();
}

AreaIterator& AreaIterator::operator++()
{
    if (!*this) return *this;
    if (m_place.x < (*m_spans)[m_current].xEnd) {
        ++m_place.x;
    } else {
        ++m_current;
        enterSpan();
    }
    return *this;
}

void AreaIterator::enterSpan()
{
    if (*this)
        m_place = {(*m_spans)[m_current].xStart, (*m_spans)[m_current].y};
    else
        m_place.x = -1;
}

bool AreaIterator::operator==(const AreaIterator& o) const
{
    if (m_place.x != o.m_place.x || static_cast<bool>(*this) != static_cast<bool>(o)) return false;
    return !*this || (*m_spans)[m_current] == (*o.m_spans)[o.m_current];
}

bool AreaIterator::IsInside(int x, int y) const
{
    const std::span<const Span> spans = Spans();
    const auto behind =
        std::upper_bound(spans.begin(), spans.end(), PixelCoords{x, y},
                         [](const PixelCoords& p, const Span& s) { return p.y != s.y ? p.y < s.y : p.x < s.xStart; });
    return behind != spans.begin() && (behind - 1)->y == y && x <= (behind - 1)->xEnd;
}

std::span<const AreaIterator::Span> AreaIterator::Spans() const
{
    return m_spans ? std::span<const Span>(*m_spans) : std::span<const Span>();
}

} // namespace Zorvan
