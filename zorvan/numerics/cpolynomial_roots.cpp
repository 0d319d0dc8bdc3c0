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

/// A polynomial with its coefficients from the constant on upwards, of which the last is not 0. Extended precision has
/// exponents for any product of doubles that occurs, so that nothing overflows or vanishes, whatever the scales.
class CExtended
{
public:
    explicit CExtended(std::span<const double> coefficients) : m_size(coefficients.size())
    {
        std::ranges::copy(coefficients, m_coefficients.begin());
    }

    [[nodiscard]] std::size_t Degree() const { return m_size - 1; }
    [[nodiscard]] long double operator[](std::size_t i) const { return m_coefficients[i]; }
    [[nodiscard]] CExtended Derivative() const
    {
        CExtended result = *this;
        result.m_size = m_size - 1;
        for (std::size_t i = 0; i < result.m_size; ++i)
            result.m_coefficients[i] = static_cast<long double>(i + 1) * m_coefficients[i + 1];
        return result;
    }
    [[nodiscard]] long double operator()(double x) const
    {
        long double value = 0.0L;
        for (std::size_t i = m_size; i-- > 0;) value = value * x + m_coefficients[i];
        return value;
    }
    /// -1, 0 or 1; 0 also where rounding the coefficients to doubles may have made the value.
    [[nodiscard]] int SignAt(double x) const
    {
        long double terms = 0.0L;
        for (std::size_t i = m_size; i-- > 0;) terms = terms * std::abs(x) + std::abs(m_coefficients[i]);
        const long double value = (*this)(x);
        if (std::abs(value) <= 2.0L * epsilon * static_cast<long double>(Degree()) * terms) return 0;
        return value < 0.0L ? -1 : 1;
    }

private:
    std::array<long double, mostCoefficients> m_coefficients{};
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
double bisect(const CExtended& p, double low, double high)
{
    const bool isLowNegative = p(low) < 0.0;
    std::int64_t from = toOrdinal(low);
    std::int64_t to = toOrdinal(high);
    while (from + 1 < to) {
        const std::int64_t middle = (from >> 1) + (to >> 1) + (from & to & 1);
        const long double value = p(fromOrdinal(middle));
        if (value == 0.0) return fromOrdinal(middle);
        ((value < 0.0) == isLowNegative ? from : to) = middle;
    }
    const double a = fromOrdinal(from);
    const double b = fromOrdinal(to);
    return std::abs(p(a)) < std::abs(p(b)) ? a : b;
}

/// Infinite where no double is as large.
double toDouble(long double x)
{
    return std::abs(x) > std::numeric_limits<double>::max() ? (x < 0.0L ? -infinity : infinity)
                                                            : static_cast<double>(x);
}

/// The closed form that cancels no digits: the discriminant is exact up to its rounding, by fused multiply-add, and the
/// root of smaller size comes from the product of both. Source: Kahan, On the Cost of Floating-Point Computation
/// Without Extra-Precise Arithmetic (2004).
std::vector<double> quadraticRoots(long double a, long double b, long double c)
{
    const long double half = b / 2.0L;
    const long double product = a * c;
    const long double discriminant = std::fma(half, half, -product) - std::fma(a, c, -product);
    const long double rounding = 4.0L * epsilon * (half * half + std::abs(product));
    if (std::abs(discriminant) <= rounding) return std::vector<double>(2, toDouble(-half / a));
    if (discriminant < 0.0L) return {};
    const long double q = -(half + std::copysign(std::sqrt(discriminant), half));
    std::vector<double> roots{toDouble(q / a), toDouble(c / q)};
    std::ranges::sort(roots);
    return roots;
}

/// Critical points that belong together: at one place, or so near each other that the polynomial stays at zero between.
struct Cluster
{
    double x; ///< the mean of its points
    double first, last;
    std::size_t count;
    int sign; ///< of the polynomial there: -1, 0, 1
};

std::vector<Cluster> clusterCriticalPoints(const CExtended& p, const std::vector<double>& points)
{
    std::vector<Cluster> clusters;
    for (const double x : points) {
        if (std::abs(x) == infinity) continue; // nothing beyond counts
        const int sign = p.SignAt(x);
        if (!clusters.empty() && (x == clusters.back().last || (sign == 0 && clusters.back().sign == 0))) {
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
std::vector<double> rootsOf(const CExtended& p)
{
    if (p.Degree() == 0) return {};
    if (p.Degree() == 1) return {toDouble(-p[0] / p[1])};
    if (p.Degree() == 2) return quadraticRoots(p[2], p[1], p[0]);

    std::vector<double> roots;
    double from = std::numeric_limits<double>::lowest();
    int fromSign = p.SignAt(from);
    const auto goTo = [&](double x, int sign) {
        if (fromSign * sign < 0) roots.push_back(bisect(p, from, x));
    };
    for (const Cluster& cluster : clusterCriticalPoints(p, rootsOf(p.Derivative()))) {
        goTo(cluster.first, cluster.sign);
        if (cluster.sign == 0) roots.insert(roots.end(), cluster.count + 1, cluster.x);
        from = cluster.last;
        fromSign = cluster.sign;
    }
    goTo(std::numeric_limits<double>::max(), p.SignAt(std::numeric_limits<double>::max()));
    return roots;
}

/// @param coefficients  from the constant on upwards
std::vector<double> realRoots(std::array<double, mostCoefficients> coefficients)
{
    const auto isZero = [](double c) { return c == 0.0; };
    if (!std::ranges::all_of(coefficients, [](double c) { return std::isfinite(c); })) return {};
    const auto first = std::ranges::find_if_not(coefficients, isZero);
    if (first == coefficients.end()) return {};
    const auto last = std::find_if_not(coefficients.rbegin(), coefficients.rend(), isZero).base();
    std::vector<double> roots = rootsOf(CExtended(std::span(first, last)));
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
