// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnaturalspline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zorvan {

namespace {

double slope(std::span<const double> x, std::span<const double> y, std::size_t i)
{
    return (y[i + 1] - y[i]) / (x[i + 1] - x[i]);
}

/// Second derivatives at the points, 0 at both ends, from
///     h[i-1] m[i-1] + dDiagonal (h[i-1] + h[i]) m[i] + h[i] m[i+1] = dRight (slope[i] - slope[i-1]).
/// The matrix dominates by its diagonal, so elimination needs no pivots.
std::vector<double> secondDerivatives(std::span<const double> x, std::span<const double> y, double dDiagonal,
                                      double dRight)
{
    const std::size_t n = x.size();
    std::vector<double> m(n, 0.0);
    std::vector<double> upper(n, 0.0);
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const double before = x[i] - x[i - 1];
        const double after = x[i + 1] - x[i];
        const double pivot = dDiagonal * (before + after) - before * upper[i - 1];
        upper[i] = after / pivot;
        m[i] = (dRight * (slope(x, y, i) - slope(x, y, i - 1)) - before * m[i - 1]) / pivot;
    }
    for (std::size_t i = n; i-- > 1;) m[i - 1] -= upper[i - 1] * m[i];
    return m;
}

} // namespace

CNaturalSpline::CNaturalSpline(const double* x, const double* y, std::size_t n, int degree)
{
    const std::span xs(x, n);
    const std::span ys(y, n);
    m_pieces.reserve(n + 1);
    for (std::size_t begin = 0, end = 1; begin < n; begin = end++) {
        while (end < n && std::isfinite(slope(xs, ys, end - 1))) ++end;
        addSection(xs.subspan(begin, end - begin), ys.subspan(begin, end - begin), degree);
    }
}

double CNaturalSpline::operator()(double x, int derivative) const
{
    if (m_pieces.empty()) return 0.0;
    const auto next =
        std::upper_bound(m_pieces.begin() + 1, m_pieces.end(), x, [](double v, const Piece& p) { return v < p.dFrom; });
    const Piece& p = *(next - 1);
    const double t = x - p.dAt;
    if (derivative <= 0) return p.c0 + t * (p.c1 + t * (p.c2 + t * p.c3));
    if (derivative == 1) return p.c1 + t * (2.0 * p.c2 + t * 3.0 * p.c3);
    if (derivative == 2) return 2.0 * p.c2 + t * 6.0 * p.c3;
    return derivative == 3 ? 6.0 * p.c3 + t * 0.0 : 0.0;
}

void CNaturalSpline::addSection(std::span<const double> x, std::span<const double> y, int degree)
{
    const std::size_t begin = m_pieces.size();
    const std::vector<double> straight(x.size(), 0.0);
    if (degree == 2) {
        addPiecesAroundPoints(x, y, secondDerivatives(x, y, 3.0, 8.0));
    } else {
        addPiecesBetweenPoints(x, y, degree < 2 ? straight : secondDerivatives(x, y, 2.0, 6.0));
    }
    const auto isFinite = [](const Piece& p) {
        return std::isfinite(p.c0) && std::isfinite(p.c1) && std::isfinite(p.c2) && std::isfinite(p.c3);
    };
    if (!std::all_of(m_pieces.begin() + static_cast<std::ptrdiff_t>(begin), m_pieces.end(), isFinite)) {
        m_pieces.resize(begin);
        addPiecesBetweenPoints(x, y, straight);
    }
    if (begin > 0) return;
    // The straight line before the first point.
    Piece lead = m_pieces.front();
    lead.dFrom = -std::numeric_limits<double>::infinity();
    lead.c2 = lead.c3 = 0.0;
    m_pieces.insert(m_pieces.begin(), lead);
}

/// Parabolas that touch their points and meet halfway between them.
void CNaturalSpline::addPiecesAroundPoints(std::span<const double> x, std::span<const double> y,
                                           std::span<const double> m)
{
    double from = x[0];
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double h = x[i + 1] - x[i];
        m_pieces.push_back({from, x[i], y[i], slope(x, y, i) - h * (3.0 * m[i] + m[i + 1]) / 8.0, m[i] / 2.0, 0.0});
        from = x[i] + h / 2.0;
    }
    const std::size_t last = x.size() - 1;
    const double end =
        last == 0 ? 0.0 : slope(x, y, last - 1) + (x[last] - x[last - 1]) * (m[last - 1] + 3.0 * m[last]) / 8.0;
    m_pieces.push_back({from, x[last], y[last], end, 0.0, 0.0});
}

/// Cubics from point to point, and the straight line behind the last one.
void CNaturalSpline::addPiecesBetweenPoints(std::span<const double> x, std::span<const double> y,
                                            std::span<const double> m)
{
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double h = x[i + 1] - x[i];
        m_pieces.push_back({x[i], x[i], y[i], slope(x, y, i) - h * (2.0 * m[i] + m[i + 1]) / 6.0, m[i] / 2.0,
                            (m[i + 1] - m[i]) / (6.0 * h)});
    }
    const std::size_t last = x.size() - 1;
    const double end =
        last == 0 ? 0.0 : slope(x, y, last - 1) + (x[last] - x[last - 1]) * (m[last - 1] + 2.0 * m[last]) / 6.0;
    m_pieces.push_back({x[last], x[last], y[last], end, 0.0, 0.0});
}

} // namespace Zorvan
