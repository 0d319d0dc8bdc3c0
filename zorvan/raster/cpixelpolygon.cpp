// SPDX-License-Identifier: MIT
#include "zorvan/raster/cpixelpolygon.h"

#include "zorvan/raster/pixelmask.h"

#include <algorithm>
#include <array>
#include <limits>

namespace Zorvan {

namespace {

/// The side at which the look around a pixel begins, seen from the step that led there: 0 above, 1 left, 2 below, 3
/// right.
int sideBehind(const ChainedPixel& from, const ChainedPixel& to)
{
    const bool isRight = to.x > from.x;
    const bool isLeft = to.x < from.x;
    const bool isDown = to.y > from.y;
    const bool isUp = to.y < from.y;
    if (isDown && !isLeft) return 0;
    if (isRight && !isDown) return 1;
    if (isUp && !isRight) return 2;
    if (isLeft && !isUp) return 3;
    return 0;
}

/// Coordinates may have been changed through `getPixelChainPtr`, and then lie at the end of their range.
int stepped(int coordinate, int by)
{
    return static_cast<int>(static_cast<unsigned int>(coordinate) + static_cast<unsigned int>(by));
}

} // namespace

CPixelPolygon::CPixelPolygon(std::vector<ChainedPixel> chain, int area, float perimeter)
    : m_chain(std::move(chain)), m_area(area), m_perimeter(perimeter)
{
}

CPixelPolygon::CPixelPolygon(Contour contour)
    : CPixelPolygon(std::move(contour.chain), contour.iArea, contour.fPerimeter)
{
}

void CPixelPolygon::Clear()
{
    m_chain.clear();
    m_areaIterator.reset();
    m_area = 0;
}

PixelBox CPixelPolygon::box() const
{
    constexpr std::int64_t iMost = std::numeric_limits<std::int64_t>::max();
    PixelBox box{iMost, iMost, -iMost, -iMost};
    for (const ChainedPixel& p : m_chain) box = box.With({p.x, p.y, p.x, p.y});
    return box;
}

bool CPixelPolygon::GetAABB(int* xmin, int* ymin, int* xmax, int* ymax) const
{
    if (Empty()) return false;
    const PixelBox around = box();
    if (xmin) *xmin = static_cast<int>(around.xmin);
    if (ymin) *ymin = static_cast<int>(around.ymin);
    if (xmax) *xmax = static_cast<int>(around.xmax);
    if (ymax) *ymax = static_cast<int>(around.ymax);
    return true;
}

std::pair<double, double> CPixelPolygon::GetCenterOfGravity() const
{
    constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();
    if (Empty()) return {dNaN, dNaN};
    double x = 0.0;
    double y = 0.0;
    auto n = static_cast<double>(m_chain.size());
    for (const ChainedPixel& p : m_chain) {
        x += p.x;
        y += p.y;
    }
    for (const AreaIterator::Span& span : getAreaIteratorRef().Spans()) {
        const double width = static_cast<double>(span.xEnd) - span.xStart + 1.0;
        x += width * (static_cast<double>(span.xStart) + span.xEnd) / 2.0;
        y += width * span.y;
        n += width;
    }
    return {x / n, y / n};
}

bool CPixelPolygon::operator==(const CPixelPolygon& other) const
{
    const std::size_t common = std::min(m_chain.size(), other.m_chain.size());
    return std::equal(m_chain.begin(), m_chain.begin() + static_cast<std::ptrdiff_t>(common), other.m_chain.begin());
}

CPixelPolygon::ECoordType CPixelPolygon::Classify(int x, int y) const
{
    if (Empty()) return eEmpty;
    if (IsInside(x, y)) return eInterior;
    return std::find(m_chain.begin(), m_chain.end(), ChainedPixel(x, y)) != m_chain.end() ? eMargin : eOutside;
}

int CPixelPolygon::Classify(const CPixelPolygon& other) const
{
    if (Empty() || other.Empty()) return eEmpty;
    const MarginPixelSet margin = GetMarginPixelSet();
    int types = eEmpty;
    for (const ChainedPixel& p : other.m_chain) types |= classify(margin, p.x, p.y);
    return types;
}

/// Many pixels at once: looked up, and not searched for along the chain.
CPixelPolygon::ECoordType CPixelPolygon::classify(const MarginPixelSet& margin, int x, int y) const
{
    if (IsInside(x, y)) return eInterior;
    return margin.contains(ChainedPixel(x, y)) ? eMargin : eOutside;
}

bool CPixelPolygon::IsInside(const CPixelPolygon& other) const
{
    return !Empty() && !other.Empty() && std::all_of(m_chain.begin(), m_chain.end(), [&other](const ChainedPixel& p) {
        return other.IsInside(p.x, p.y);
    });
}

std::vector<ChainedPixel> CPixelPolygon::GetVonNeumannNeighborhood() const
{
    std::vector<ChainedPixel> neighbours;
    if (Empty()) return neighbours;
    const MarginPixelSet margin = GetMarginPixelSet();
    for (std::size_t i = 0; i < m_chain.size(); ++i) {
        const ChainedPixel& p = m_chain[i];
        const ChainedPixel& q = m_chain[i > 0 ? i - 1 : m_chain.size() - 1];
        const auto shared = std::make_shared<ChainedPixel>(p);
        for (int turn = 0, side = sideBehind(q, p); turn < 4; ++turn, side = (side + 1) % 4) {
            ChainedPixel next(stepped(p.x, (side == 3 ? 1 : 0) - (side == 1 ? 1 : 0)),
                              stepped(p.y, (side == 2 ? 1 : 0) - (side == 0 ? 1 : 0)));
            if (classify(margin, next.x, next.y) != eOutside) continue;
            next.label = shared;
            neighbours.push_back(std::move(next));
        }
    }
    return neighbours;
}

const CPixelPolygon::AreaIterator& CPixelPolygon::getAreaIteratorRef() const
{
    if (!m_areaIterator) m_areaIterator.emplace(m_chain);
    return *m_areaIterator;
}

CPixelPolygon::MarginIteratorTemplate<0> CPixelPolygon::GetMarginIterator() const
{
    return MarginIteratorTemplate<0>(getPixelChainPtr());
}

CPixelPolygon::MarginIteratorTemplate<1> CPixelPolygon::GetMarginIterator()
{
    return MarginIteratorTemplate<1>(getPixelChainPtr());
}

CPixelPolygon::Iterator CPixelPolygon::GetAreaAndMarginIterator() const { return Iterator(*this); }

CPixelPolygon::MarginPixelSet CPixelPolygon::GetMarginPixelSet() const
{
    MarginPixelSet margin(8);
    margin.max_load_factor(1.0F);
    margin.insert(m_chain.begin(), m_chain.end());
    return margin;
}

CPixelPolygon::Iterator::Iterator(const CPixelPolygon& polygon)
    : m_margin(std::make_shared<const MarginPixelSet>(polygon.GetMarginPixelSet())),
      m_current(m_margin->begin()),
      m_area(polygon.GetAreaIterator())
{
    readPlace();
}

CPixelPolygon::Iterator& CPixelPolygon::Iterator::operator++()
{
    if (isOnMargin()) {
        ++m_current;
        readPlace();
    } else {
        ++m_area;
    }
    return *this;
}

void CPixelPolygon::Iterator::readPlace()
{
    if (isOnMargin()) m_place = {m_current->x, m_current->y};
}

} // namespace Zorvan
