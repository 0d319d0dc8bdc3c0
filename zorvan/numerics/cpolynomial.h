// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <initializer_list>
#include <span>
#include <vector>

namespace Zorvan {

/// A polynomial in one variable with real coefficients. A value: cheap to move, compared by its coefficients.
///
///     const CPolynomial p{1.0, 0.0, 2.0}; // 1 + 2 x^2
///     p(3.0);                             // 19
///     p.Derivative()(3.0);                // 12
///
/// Coefficients of the highest powers that are exactly 0 are dropped, so that the degree is the true one. Those that
/// are merely small stay: only the caller knows what is small.
class ZORVAN_API CPolynomial
{
public:
    struct Division;

    /// Zero everywhere.
    CPolynomial() = default;
    /// @param coefficients  from the constant on upwards
    CPolynomial(std::initializer_list<double> coefficients) : CPolynomial(std::vector<double>(coefficients)) {}
    explicit CPolynomial(std::vector<double> coefficients);
    /// The product of x - root over all roots.
    [[nodiscard]] static CPolynomial FromRoots(std::span<const double> roots);

    /// -1 for zero.
    [[nodiscard]] int GetDegree() const { return static_cast<int>(m_coefficients.size()) - 1; }
    /// From the constant on upwards; none for zero.
    [[nodiscard]] const std::vector<double>& GetCoefficients() const { return m_coefficients; }
    /// Of x^power; 0 beyond the degree.
    [[nodiscard]] double operator[](std::size_t power) const
    {
        return power < m_coefficients.size() ? m_coefficients[power] : 0.0;
    }
    /// By Horner's rule.
    [[nodiscard]] double operator()(double x) const;
    [[nodiscard]] bool operator==(const CPolynomial&) const = default;

    [[nodiscard]] CPolynomial Derivative() const;
    /// @param constant  the value at 0
    [[nodiscard]] CPolynomial Integral(double constant = 0.0) const;
    /// This = quotient * divisor + remainder, whose degree is below that of the divisor.
    /// @throws std::domain_error when the divisor is zero
    [[nodiscard]] Division DivideBy(const CPolynomial& divisor) const;

    CPolynomial& operator+=(const CPolynomial& other);
    CPolynomial& operator-=(const CPolynomial& other);
    CPolynomial& operator*=(const CPolynomial& other) { return *this = *this * other; }
    CPolynomial& operator*=(double factor);
    [[nodiscard]] CPolynomial operator-() const { return CPolynomial(*this) *= -1.0; }

    friend CPolynomial operator+(CPolynomial a, const CPolynomial& b) { return a += b; }
    friend CPolynomial operator-(CPolynomial a, const CPolynomial& b) { return a -= b; }
    friend CPolynomial operator*(CPolynomial a, double factor) { return a *= factor; }
    friend CPolynomial operator*(double factor, CPolynomial a) { return a *= factor; }
    friend ZORVAN_API CPolynomial operator*(const CPolynomial& a, const CPolynomial& b);

private:
    void dropZeros();

    std::vector<double> m_coefficients; ///< the last is not 0
};

struct CPolynomial::Division
{
    CPolynomial quotient;
    CPolynomial remainder;
};

/// Real roots in closed form or by bisection, ascending. Coefficients come from the highest power on downwards, as one
/// writes them; those in front may be 0, and a polynomial of lower degree is solved then.
///
///     Polynomial::Roots2(1.0, -3.0, 2.0);       // {1, 2}
///     Polynomial::Roots3(1.0, -3.0, 3.0, -1.0); // {1, 1, 1}
///
/// A root is given as often as its multiplicity. Coefficients count as known up to their rounding: where the polynomial
/// misses zero by no more than a few roundings of its terms, it touches zero there, and what are two roots that no
/// coefficient could tell apart, or none, is one double root, the same number twice (three times, four times). A simple
/// root is as exact as the evaluation of the polynomial beside it.
///
/// Any scale will do, also roots of very different size; a root that no double can hold is left out. So are all of them
/// when a coefficient is not finite, and when all are 0, where every x is one.
namespace Polynomial {

/// Of a x^2 + b x + c.
[[nodiscard]] ZORVAN_API std::vector<double> Roots2(double a, double b, double c);
/// Of a x^3 + b x^2 + c x + d.
[[nodiscard]] ZORVAN_API std::vector<double> Roots3(double a, double b, double c, double d);
/// Of a x^4 + b x^3 + c x^2 + d x + e.
[[nodiscard]] ZORVAN_API std::vector<double> Roots4(double a, double b, double c, double d, double e);

} // namespace Polynomial

} // namespace Zorvan
