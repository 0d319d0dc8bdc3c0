// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cpolynomial.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

namespace Zorvan {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::size_t mostCoefficients = 5;

/// Coefficients from the constant on upwards; the last is not 0, the largest has size 1 or so.
class CScaled
{
public:
    explicit CScaled(std::span<const double> coefficients) : m_size(coefficients.size())
    {
        std::ranges::copy(coefficients, m_coefficients.begin());
        while (m_size > 1 && m_coefficients[m_size - 1] == 0.0) --m_size; // below all numbers beside the largest
    }

    [[nodiscard]] std::size_t Degree() const { return m_size - 1; }
    [[nodiscard]] double operator[](std::size_t i) const { return m_coefficients[i]; }
    [[nodiscard]] CScaled Derivative() const
    {
        CScaled result = *this;
        result.m_size = m_size - 1;
        for (std::size_t i = 0; i < result.m_size; ++i)
            result.m_coefficients[i] = static_cast<double>(i + 1) * m_coefficients[i + 1];
        return result;
    }
    /// A number with the sign of the value at x: far out it is the value of the reversed polynomial at 1 / x, which
    /// does not overflow.
    [[nodiscard]] double SignedValue(double x) const
    {
        return horner(x, [](double c) { return c; });
    }
    /// What rounding its coefficients and evaluating it may add to `SignedValue`.
    [[nodiscard]] double Rounding(double x) const
    {
        const double terms = std::abs(horner(std::abs(x), [](double c) { return std::abs(c); }));
        return 2.0 * epsilon * static_cast<double>(Degree()) * terms;
    }

private:
    template <typename Of>
    [[nodiscard]] double horner(double x, const Of& of) const
    {
        double value = 0.0;
        if (std::abs(x) < 0x1p200) {
            for (std::size_t i = m_size; i-- > 0;) value = value * x + of(m_coefficients[i]);
            return value;
        }
        for (std::size_t i = 0; i < m_size; ++i) value = value / x + of(m_coefficients[i]);
        return x < 0.0 && Degree() % 2 == 1 ? -value : value;
    }

    std::array<double, mostCoefficients> m_coefficients{};
    std::size_t m_size;
};

/// Doubles in their order as integers: neighbours differ by 1, so that bisection takes 64 steps over all scales.
std::int64_t toOrdinal(double x)
{
    const auto bits = std::bit_cast<std::int64_t>(x);
    return bits < 0 ? std::numeric_limits<std::int64_t>::min() - bits : bits;
}

double fromOrdinal(std::int64_t ordinal)
{
    return std::bit_cast<double>(ordinal < 0 ? std::numeric_limits<std::int64_t>::min() - ordinal : ordinal);
}

/// Where the sign changes between two numbers at which it differs.
double bisect(const CScaled& p, double low, double high)
{
    const bool isLowNegative = p.SignedValue(low) < 0.0;
    std::int64_t from = toOrdinal(low);
    std::int64_t to = toOrdinal(high);
    while (from + 1 < to) {
        const std::int64_t middle = (from >> 1) + (to >> 1) + (from & to & 1);
        const double value = p.SignedValue(fromOrdinal(middle));
        if (value == 0.0) return fromOrdinal(middle);
        ((value < 0.0) == isLowNegative ? from : to) = middle;
    }
    const double a = fromOrdinal(from);
    const double b = fromOrdinal(to);
    return std::abs(p.SignedValue(a)) < std::abs(p.SignedValue(b)) ? a : b;
}

/// The closed form that cancels no digits: the discriminant is exact up to its rounding, by fused multiply-add, and the
/// root of smaller size comes from the product of both. Source: Kahan, On the Cost of Floating-Point Computation
/// Without Extra-Precise Arithmetic (2004).
std::vector<double> quadraticRoots(double a, double b, double c)
{
    const double half = b / 2.0;
    const double product = a * c;
    const double discriminant = std::fma(half, half, -product) - std::fma(a, c, -product);
    const double rounding = 4.0 * epsilon * (half * half + std::abs(product));
    if (std::abs(discriminant) <= rounding) return {-half / a, -half / a};
    if (discriminant < 0.0) return {};
    const double q = -(half + std::copysign(std::sqrt(discriminant), half));
    std::vector<double> roots{q / a, c / q};
    std::ranges::sort(roots);
    return roots;
}

/// Critical points that belong together: at one place, or so near each other that the polynomial stays at zero between.
struct Cluster
{
    double x; ///< the mean of its points
    double first, last;
    std::size_t count;
    double sign; ///< of the polynomial there: -1, 0, 1
};

double signAt(const CScaled& p, double x)
{
    const double value = p.SignedValue(x);
    return std::abs(value) <= p.Rounding(x) ? 0.0 : std::copysign(1.0, value);
}

std::vector<Cluster> clusterCriticalPoints(const CScaled& p, const std::vector<double>& points)
{
    std::vector<Cluster> clusters;
    for (const double x : points) {
        const double sign = signAt(p, x);
        if (!clusters.empty() && (x == clusters.back().last || (sign == 0.0 && clusters.back().sign == 0.0))) {
            Cluster& c = clusters.back();
            c.last = x;
            c.x += (x - c.x) / static_cast<double>(++c.count);
        } else {
            clusters.push_back({x, x, x, 1, sign});
        }
    }
    return clusters;
}

/// Between critical points a polynomial is monotone: there is one simple root where its sign changes. A critical point
/// at zero is a root once more often than a root of the derivative.
std::vector<double> rootsOf(const CScaled& p)
{
    if (p.Degree() == 0) return {};
    if (p.Degree() == 1) return {-p[0] / p[1]};
    if (p.Degree() == 2) return quadraticRoots(p[2], p[1], p[0]);

    std::vector<double> roots;
    double from = std::numeric_limits<double>::lowest();
    double fromSign = signAt(p, from);
    const auto goTo = [&](double x, double sign) {
        if (fromSign * sign < 0.0) roots.push_back(bisect(p, from, x));
    };
    for (const Cluster& cluster : clusterCriticalPoints(p, rootsOf(p.Derivative()))) {
        goTo(cluster.first, cluster.sign);
        if (cluster.sign == 0.0) roots.insert(roots.end(), cluster.count + 1, cluster.x);
        from = cluster.last;
        fromSign = cluster.sign;
    }
    goTo(std::numeric_limits<double>::max(), signAt(p, std::numeric_limits<double>::max()));
    return roots;
}

/// Brings first and last coefficient to about the same size by a change of the unit of x, and all below 1: powers of
/// two, which round nothing.
/// @return exponent of the unit
int balance(std::span<double> coefficients)
{
    const int degree = static_cast<int>(coefficients.size()) - 1;
    if (degree == 0) return 0;
    const int unit = (std::ilogb(coefficients.front()) - std::ilogb(coefficients.back())) / degree;
    int largest = std::numeric_limits<int>::min();
    for (int i = 0; i <= degree; ++i) {
        const double coefficient = coefficients[static_cast<std::size_t>(i)];
        if (coefficient != 0.0) largest = std::max(largest, std::ilogb(coefficient) + i * unit);
    }
    for (int i = 0; i <= degree; ++i) {
        double& coefficient = coefficients[static_cast<std::size_t>(i)];
        coefficient = std::ldexp(coefficient, i * unit - largest);
    }
    return unit;
}

/// @param coefficients  from the constant on upwards
std::vector<double> realRoots(std::array<double, mostCoefficients> coefficients)
{
    const auto isZero = [](double c) { return c == 0.0; };
    if (!std::ranges::all_of(coefficients, [](double c) { return std::isfinite(c); })) return {};
    const auto first = std::ranges::find_if_not(coefficients, isZero);
    if (first == coefficients.end()) return {};
    const auto last = std::find_if_not(coefficients.rbegin(), coefficients.rend(), isZero).base();
    const std::span<double> rest(first, last);
    const int unit = balance(rest);

    std::vector<double> roots = rootsOf(CScaled(rest));
    for (double& root : roots) root = std::ldexp(root, unit);
    roots.insert(roots.end(), static_cast<std::size_t>(first - coefficients.begin()), 0.0);
    std::erase_if(roots, [](double root) { return std::abs(root) == infinity; });
    std::ranges::sort(roots);
    return roots;
}

} // namespace

std::vector<double> Polynomial::Roots2(double a, double b, double c) { return realRoots({c, b, a, 0.0, 0.0}); }

std::vector<double> Polynomial::Roots3(double a, double b, double c, double d) { return realRoots({d, c, b, a, 0.0}); }

std::vector<double> Polynomial::Roots4(double a, double b, double c, double d, double e)
{
    return realRoots({e, d, c, b, a});
}

} // namespace Zorvan
