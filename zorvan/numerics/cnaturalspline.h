// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Zorvan {

/// An interpolating spline of degree 1, 2 or 3 through points with ascending inputs, continued as a straight line on
/// both sides.
///
///     const CNaturalSpline spline(x, y, n, 3);
///     spline(0.5, 0);  // the value
///     spline(0.5, 1);  // the first derivative
///
/// The second derivative is 0 at both ends. The pieces of degree 1 and 3 meet at the points, those of degree 2 halfway
/// between them, which keeps a disturbance local: with knots at the points it would swing through the whole curve.
/// Sources: de Boor, A Practical Guide to Splines, chapter 4; Marsden, J. Approx. Theory 10 (1974), for degree 2.
///
/// Points that share an input, or whose slope overflows, are a step: the spline ends at the first and begins anew at
/// the last of them, which also gives the value there. Between steps it is straight where points lie so close that a
/// curvature overflows. A spline without points is 0 everywhere, with one it is constant.
class ZORVAN_API CNaturalSpline
{
public:
    CNaturalSpline() = default;

    /// @param x, y    n values each; x ascends
    /// @param degree  held between 1 and 3
    /// Time and memory grow with n.
    CNaturalSpline(const double* x, const double* y, std::size_t n, int degree);

    /// @param derivative  0 the value, 1 to 3 a derivative, above that 0; below 0 counts as 0
    /// @return            NaN for x = NaN
    [[nodiscard]] double operator()(double x, int derivative) const;
    [[nodiscard]] double eval(double x, int derivative) const { return (*this)(x, derivative); }

private:
    struct Piece
    {
        double dFrom; ///< holds from here on
        double dAt;   ///< the polynomial is one in x - dAt
        double c0, c1, c2, c3;
    };

    void addSection(std::span<const double> x, std::span<const double> y, int degree);
    void addPiecesAroundPoints(std::span<const double> x, std::span<const double> y, std::span<const double> m);
    void addPiecesBetweenPoints(std::span<const double> x, std::span<const double> y, std::span<const double> m);

    std::vector<Piece> m_pieces; ///< by ascending dFrom; the first holds from minus infinity on
};

} // namespace Zorvan
