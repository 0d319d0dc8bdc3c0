// SPDX-License-Identifier: MIT
#include "zorvan/raster/ctriangle2d.h"

#include "zorvan/raster/exactorientation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Zorvan {

namespace {

using Point = CTriangle2D::Point;

/// Of the parallelogram that two edges span, from the corner p.
double crossOf(const Point& p, const Point& a, const Point& b)
{
    return (a.x - p.x) * (b.y - p.y) - (a.y - p.y) * (b.x - p.x);
}

bool isFinite(const Point& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

/// The first of [first, last] for which `holds` is true, and last + 1 when there is none; all after it hold too.
/// @param guess  where it probably is
template <typename Holds>
std::int64_t firstThat(std::int64_t first, std::int64_t last, double guess, const Holds& holds)
{
    std::int64_t end = last + 1;
    if (!std::isnan(guess)) {
        const auto middle =
            static_cast<std::int64_t>(std::clamp(guess, static_cast<double>(first), static_cast<double>(last)));
        if (holds(middle)) {
            end = middle;
            if (middle == first || !holds(middle - 1)) return middle;
        } else {
            first = middle + 1;
        }
    }
    while (first < end) {
        const std::int64_t middle = first + (end - first) / 2;
        if (holds(middle))
            end = middle;
        else
            first = middle + 1;
    }
    return first;
}

} // namespace

CTriangle2D::CTriangle2D(const Point& a, const Point& b, const Point& c) : m_corners{a, b, c}, m_orientation(0)
{
    if (std::all_of(m_corners.begin(), m_corners.end(), isFinite)) m_orientation = detail::SideOf(a, b, c);
}

double CTriangle2D::GetSignedArea() const { return crossOf(m_corners[0], m_corners[1], m_corners[2]) / 2.0; }

double CTriangle2D::GetArea() const { return std::fabs(GetSignedArea()); }

std::array<double, 3> CTriangle2D::GetBarycentric(const Point& p) const
{
    constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();
    if (m_orientation == 0) return {dNaN, dNaN, dNaN};
    const auto& [a, b, c] = m_corners;
    const double whole = crossOf(a, b, c);
    return {crossOf(p, b, c) / whole, crossOf(p, c, a) / whole, crossOf(p, a, b) / whole};
}

CTriangle2D::Edge CTriangle2D::edge(std::size_t i) const
{
    const Point& from = m_corners[i];
    const Point& to = m_corners[(i + 1) % 3];
    return m_orientation > 0 ? Edge{from, to} : Edge{to, from};
}

bool CTriangle2D::Contains(const Point& p) const
{
    if (m_orientation == 0 || !isFinite(p)) return false;
    for (std::size_t i = 0; i < 3; ++i)
        if (const Edge e = edge(i); detail::SideOf(e.a, e.b, p) < 0) return false;
    return true;
}

bool CTriangle2D::Covers(const Point& p) const
{
    return m_orientation != 0 && isFinite(p) && edge(0).Keeps(p) && edge(1).Keeps(p) && edge(2).Keeps(p);
}

/// On the edge it is the direction of the edge that decides; the reverse edge, of the triangle beside, decides the
/// other way.
bool CTriangle2D::Edge::Keeps(const Point& p) const
{
    const int side = detail::SideOf(a, b, p);
    if (side != 0) return side > 0;
    return b.y < a.y || (b.y == a.y && b.x > a.x);
}

double CTriangle2D::Edge::CrossingAt(double y) const { return a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x); }

std::vector<PixelSpan> CTriangle2D::GetSpans(const PixelRect& clip) const
{
    std::vector<PixelSpan> spans;
    if (m_orientation == 0 || clip.IsEmpty()) return spans;
    const auto [top, bottom] = std::minmax({m_corners[0].y, m_corners[1].y, m_corners[2].y});
    const double first = std::max<double>(std::ceil(top), clip.ymin);
    const double last = std::min<double>(std::floor(bottom), clip.ymax);
    if (first > last) return spans;
    for (auto y = static_cast<std::int64_t>(first); y <= static_cast<std::int64_t>(last); ++y)
        if (const auto span = spanOf(static_cast<int>(y), clip)) spans.push_back(*span);
    return spans;
}

/// Each edge cuts the row where `Keeps` changes: from there on to the right for one that goes up, up to there for one
/// that goes down.
std::optional<PixelSpan> CTriangle2D::spanOf(int y, const PixelRect& clip) const
{
    std::int64_t first = clip.xmin;
    std::int64_t last = clip.xmax;
    for (std::size_t i = 0; i < 3 && first <= last; ++i) {
        const Edge e = edge(i);
        const auto keeps = [&e, y](std::int64_t x) {
            return e.Keeps({static_cast<double>(x), static_cast<double>(y)});
        };
        if (e.b.y == e.a.y) {
            if (!keeps(first)) return std::nullopt;
            continue;
        }
        const double guess = std::ceil(e.CrossingAt(y));
        if (e.b.y < e.a.y)
            first = firstThat(first, last, guess, keeps);
        else
            last = firstThat(first, last, guess, [&keeps](std::int64_t x) { return !keeps(x); }) - 1;
    }
    if (first > last) return std::nullopt;
    return PixelSpan{y, static_cast<int>(first), static_cast<int>(last)};
}

} // namespace Zorvan
