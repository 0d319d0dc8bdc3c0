// SPDX-License-Identifier: MIT
#include "zorvan/raster/cpixelpolygon.h"

#include "zorvan/raster/clineraster.h"
#include "zorvan/raster/pixelmask.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace Zorvan {

namespace {

using PixelLabel = CPixelPolygon::PixelLabel;

constexpr double dMostChainPixels = 1 << 24;

/// Vertices in the order in which they are drawn.
template <typename T>
struct Vertices
{
    const T* x;
    const T* y;
    unsigned int n;
    int iStart = 0;     ///< topmost, then leftmost
    int iDirection = 1; ///< so that the region lies on the left of the way, as on that of a tracer

    Vertices(const T* xs, const T* ys, unsigned int count) : x(xs), y(ys), n(count)
    {
        using Term = std::conditional_t<std::is_integral_v<T>, std::int64_t, T>;
        float area = 0.0F;
        for (unsigned int i = 0, start = 0; i < n; ++i) {
            const unsigned int next = (i + 1) % n;
            area += static_cast<float>(static_cast<Term>(x[i]) * y[next] - static_cast<Term>(x[next]) * y[i]);
            if (y[i] < y[start] || (y[i] == y[start] && x[i] < x[start])) start = i;
            iStart = static_cast<int>(start);
        }
        iDirection = area * 0.5F > 0.0F ? -1 : 1;
    }

    /// The vertex after k steps.
    [[nodiscard]] int Index(unsigned int k) const
    {
        const unsigned int steps = iDirection > 0 ? k : n - k;
        return static_cast<int>((static_cast<std::uint64_t>(iStart) + steps) % n);
    }

    void WriteTo(int* start, int* direction) const
    {
        if (start) *start = iStart;
        if (direction) *direction = iDirection;
    }

    /// The box of the vertices and the length of the edges are such that they can be drawn.
    [[nodiscard]] bool CanBeDrawn() const
    {
        constexpr double dLimit = 1 << 29;
        double length = n;
        for (unsigned int i = 0; i < n; ++i) {
            if (!(std::fabs(static_cast<double>(x[i])) <= dLimit && std::fabs(static_cast<double>(y[i])) <= dLimit))
                return false;
            const unsigned int next = (i + 1) % n;
            length += std::fabs(static_cast<double>(x[next]) - static_cast<double>(x[i])) +
                      std::fabs(static_cast<double>(y[next]) - static_cast<double>(y[i]));
        }
        return length <= dMostChainPixels;
    }
};

struct Point
{
    double x;
    double y;
};

/// An edge that labels its pixels. The place along it counts from 0 down to -1: readers of labels know that sign.
struct Edge
{
    int iFirst;
    int iSecond;
    Point a;
    Point b;

    [[nodiscard]] PixelLabel LabelOf(double px, double py) const
    {
        const double dx = b.x - a.x;
        const double dy = b.y - a.y;
        const double t = ((px - a.x) * dx + (py - a.y) * dy) / (dx * dx + dy * dy);
        return {iFirst, iSecond, std::isnan(t) ? 0.5F : static_cast<float>(-t)};
    }
};

/// A chain that leaves out a pixel that it has as its last or its first.
class CChainBuilder
{
public:
    void Add(int x, int y, const Edge& edge) { Add(ChainedPixel(x, y), ChainedPixel(x, y), edge); }

    /// @param pixel   counts for the place on the edge and for what is left out
    /// @param stored  what the chain gets
    void Add(const ChainedPixel& pixel, ChainedPixel stored, const Edge& edge)
    {
        if (!m_chain.empty() && (pixel == m_chain.back() || pixel == m_chain.front())) return;
        stored.label = edge.LabelOf(pixel.x, pixel.y);
        m_chain.push_back(std::move(stored));
    }

    [[nodiscard]] std::vector<ChainedPixel> Take() { return std::move(m_chain); }

private:
    std::vector<ChainedPixel> m_chain;
};

/// Where an edge enters a cell, as a share of its length; infinite when it does not.
double entryOf(const Point& a, const Point& d, double cellX, double cellY)
{
    constexpr double dInfinity = std::numeric_limits<double>::infinity();
    constexpr double dSlack = 1e-9; // a cell that is only touched counts
    double entry = -dInfinity;
    double exit = dInfinity;
    for (const auto& [from, along, cell] : {std::tuple(a.x, d.x, cellX), std::tuple(a.y, d.y, cellY)}) {
        const double lo = cell - dSlack;
        const double hi = cell + 1.000000001;
        if (along == 0.0) {
            if (from < lo || from > hi) return dInfinity;
            continue;
        }
        const double t1 = (lo - from) / along;
        const double t2 = (hi - from) / along;
        entry = std::max(entry, std::min(t1, t2));
        exit = std::min(exit, std::max(t1, t2));
    }
    return entry < 1.0 && exit > 0.0 && entry <= exit ? entry : dInfinity;
}

/// Every cell that the edge crosses, from one to the next by the side through which it leaves first.
void drawThroughCells(const Point& a, const Point& b, const Edge& edge, CChainBuilder& chain)
{
    constexpr double dInfinity = std::numeric_limits<double>::infinity();
    const int endX = static_cast<int>(std::floor(b.x));
    const int endY = static_cast<int>(std::floor(b.y));
    int x = static_cast<int>(std::floor(a.x));
    int y = static_cast<int>(std::floor(a.y));
    const int stepX = endX < x ? -1 : 1;
    const int stepY = endY < y ? -1 : 1;
    const Point d{b.x - a.x, b.y - a.y};

    chain.Add(x, y, edge);
    while (x != endX || y != endY) {
        const double alongX = x != endX ? entryOf(a, d, x + stepX, y) : dInfinity;
        const double alongY = y != endY ? entryOf(a, d, x, y + stepY) : dInfinity;
        const double across = x != endX && y != endY ? entryOf(a, d, x + stepX, y + stepY) : dInfinity;
        const double first = std::min({alongX, alongY, across});
        if (first == dInfinity) return;
        const bool isAcross = across < alongX && across < alongY;
        if (isAcross || alongX == first) x += stepX;
        if (isAcross || alongX != first) y += stepY;
        chain.Add(x, y, edge);
    }
}

/// Two pixels at each step along the longer axis, on both sides of the edge.
void drawWide(const Point& a, const Point& b, const PixelRect& limits, const Edge& edge, CChainBuilder& chain)
{
    const bool isSteep = std::fabs(b.y - a.y) > std::fabs(b.x - a.x);
    const Point from = isSteep ? Point{a.y, a.x} : a;
    const Point to = isSteep ? Point{b.y, b.x} : b;
    const double slope = to.x == from.x ? 0.0 : (to.y - from.y) / (to.x - from.x);
    const int end = static_cast<int>(std::floor(to.x + 0.5));
    int major = static_cast<int>(std::floor(from.x + 0.5));
    const int step = end < major ? -1 : 1;
    for (;; major += step) {
        const int minor = static_cast<int>(std::floor(from.y + (major - from.x) * slope));
        for (const int side : {minor, minor + 1}) {
            const ChainedPixel pixel(isSteep ? side : major, isSteep ? major : side);
            ChainedPixel stored = pixel;
            stored.Clamp(limits.xmin, limits.ymin, limits.xmax, limits.ymax);
            chain.Add(pixel, std::move(stored), edge);
        }
        if (major == end) return;
    }
}

/// Draws all edges in turn with `draw(first vertex, second vertex, chain)`.
template <typename T, typename Draw>
std::vector<ChainedPixel> drawEdges(const Vertices<T>& vertices, const Draw& draw)
{
    CChainBuilder chain;
    for (unsigned int k = 0; k < vertices.n; ++k) draw(vertices.Index(k), vertices.Index(k + 1), chain);
    return chain.Take();
}

/// Moves the corners of the hull to the front, in order; gift wrapping (Jarvis 1973). @return  how many there are
std::size_t wrapGifts(std::vector<int>& x, std::vector<int>& y)
{
    const std::size_t n = x.size();
    if (n < 3) return n;
    const auto swapPoints = [&](std::size_t i, std::size_t j) {
        std::swap(x[i], x[j]);
        std::swap(y[i], y[j]);
    };
    for (std::size_t i = 1; i < n; ++i)
        if (y[i] < y[0] || (y[i] == y[0] && x[i] < x[0])) swapPoints(0, i);

    for (std::size_t corner = 0; corner + 1 < n; ++corner) {
        std::size_t best = 0;
        for (std::size_t c = 1; c < n; ++c) {
            const std::int64_t ux = std::int64_t{x[best]} - x[corner];
            const std::int64_t uy = std::int64_t{y[best]} - y[corner];
            const std::int64_t vx = std::int64_t{x[c]} - x[corner];
            const std::int64_t vy = std::int64_t{y[c]} - y[corner];
            const std::int64_t cross = vx * uy - vy * ux;
            const bool isFarther = std::abs(vx) + std::abs(vy) > std::abs(ux) + std::abs(uy);
            if (cross > 0 || (cross == 0 && isFarther)) best = c;
        }
        if (best == 0) return corner + 1;
        swapPoints(best, corner + 1);
    }
    return n;
}

template <typename T>
Point pointOf(const Vertices<T>& vertices, int i)
{
    return {static_cast<double>(vertices.x[i]), static_cast<double>(vertices.y[i])};
}

} // namespace

CPixelPolygon CPixelPolygon::CreateFromPolygon(const int* x, const int* y, unsigned int n, int* start, int* direction)
{
    if (n < 3) return {};
    const Vertices vertices(x, y, n);
    vertices.WriteTo(start, direction);
    if (!vertices.CanBeDrawn()) return {};
    auto chain = drawEdges(vertices, [&](int a, int b, CChainBuilder& to) {
        const Edge edge{a, b, pointOf(vertices, a), pointOf(vertices, b)};
        for (const Coords& p : CLineRaster({x[a], y[a]}, {x[b], y[b]})) to.Add(p.x, p.y, edge);
    });
    return CPixelPolygon(std::move(chain), 0, 0.0F).Repair();
}

CPixelPolygon CPixelPolygon::CreateFromPolygon(const double* x, const double* y, unsigned int n, int* start,
                                               int* direction)
{
    if (n < 3) return {};
    const Vertices vertices(x, y, n);
    vertices.WriteTo(start, direction);
    if (!vertices.CanBeDrawn()) return {};
    auto chain = drawEdges(vertices, [&](int i, int j, CChainBuilder& to) {
        const Point a = pointOf(vertices, i);
        const Point b = pointOf(vertices, j);
        // Places count from cell to cell here.
        const Edge edge{i, j, {std::floor(a.x), std::floor(a.y)}, {std::floor(b.x), std::floor(b.y)}};
        drawThroughCells(a, b, edge, to);
    });
    return CPixelPolygon(std::move(chain), 0, 0.0F).Repair();
}

CPixelPolygon CPixelPolygon::CreateFromPolygon(const double* x, const double* y, unsigned int n, int xmin, int ymin,
                                               int xmax, int ymax, int* start, int* direction)
{
    if (n < 3) return {};
    const Vertices vertices(x, y, n);
    vertices.WriteTo(start, direction);
    if (!vertices.CanBeDrawn()) return {};
    auto chain = drawEdges(vertices, [&](int i, int j, CChainBuilder& to) {
        const Point a = pointOf(vertices, i);
        const Point b = pointOf(vertices, j);
        drawWide(a, b, {xmin, ymin, xmax, ymax}, {i, j, a, b}, to);
    });
    return CPixelPolygon(std::move(chain), 0, 0.0F).Repair();
}

CPixelPolygon CPixelPolygon::Rectangle(int x0, int y0, int x1, int y1)
{
    const auto [xmin, xmax] = std::minmax(x0, x1);
    const auto [ymin, ymax] = std::minmax(y0, y1);
    const PixelBox box{xmin, ymin, xmax, ymax};
    if (!box.IsUsable() || 2.0 * static_cast<double>(box.Width() + box.Height()) > dMostChainPixels) return {};

    std::vector<ChainedPixel> chain{{xmin, ymin}};
    for (int y = ymin + 1; y <= ymax; ++y) chain.emplace_back(xmin, y);
    for (int x = xmin + 1; x <= xmax; ++x) chain.emplace_back(x, ymax);
    for (int y = ymax - 1; y >= ymin; --y) chain.emplace_back(xmax, y);
    for (int x = xmax - 1; x > xmin; --x) chain.emplace_back(x, ymin);
    const int width = xmax - xmin;
    const int height = ymax - ymin;
    return {std::move(chain), (height - 1) * (width - 1), static_cast<float>(2 * (width + height))};
}

CPixelPolygon CPixelPolygon::Repair() const
{
    if (Empty()) return {};
    CPixelMask mask(box());
    if (!mask) return {};
    for (const ChainedPixel& p : m_chain) mask.Paint(p.y, p.x, p.x, 1);
    CPixelPolygon repaired(mask.TraceFirst(1));
    repaired.takeLabels(m_chain);
    return repaired;
}

/// Walks the old chain once around, from the first pixel of the new one on, and moves labels where both agree.
void CPixelPolygon::takeLabels(const std::vector<ChainedPixel>& from)
{
    const auto begin = std::find(from.begin(), from.end(), m_chain.front());
    auto next = m_chain.begin();
    const auto walk = [&](auto first, auto last) {
        for (auto old = first; old != last && next != m_chain.end(); ++old)
            if (*old == *next) (next++)->label = old->label;
    };
    walk(begin, from.end());
    walk(from.begin(), begin);
}

CPixelPolygon CPixelPolygon::ConvexHull() const
{
    std::vector<int> x;
    std::vector<int> y;
    for (const ChainedPixel& p : m_chain) {
        x.push_back(p.x);
        y.push_back(p.y);
    }
    const std::size_t n = wrapGifts(x, y);
    return CreateFromPolygon(x.data(), y.data(), static_cast<unsigned int>(n), nullptr, nullptr);
}

} // namespace Zorvan
