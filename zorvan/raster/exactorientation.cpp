// SPDX-License-Identifier: MIT
#include "zorvan/raster/exactorientation.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace Zorvan::detail {

namespace {

int signOf(double value) { return (value > 0.0) - (value < 0.0); }

/// A sum of up to twelve numbers without rounding: none of its parts overlaps another, and they ascend in size.
class CExactSum
{
public:
    void Add(double value)
    {
        for (std::size_t i = 0; i < m_count; ++i) {
            const double sum = m_parts[i] + value;
            const double added = sum - m_parts[i];
            m_parts[i] = (m_parts[i] - (sum - added)) + (value - added);
            value = sum;
        }
        m_parts[m_count++] = value;
    }

    void AddProduct(double a, double b)
    {
        const double product = a * b;
        Add(std::fma(a, b, -product));
        Add(product);
    }

    /// That of the largest part that is not 0.
    [[nodiscard]] int Sign() const
    {
        for (std::size_t i = m_count; i-- > 0;)
            if (m_parts[i] != 0.0) return signOf(m_parts[i]);
        return 0;
    }

private:
    std::array<double, 12> m_parts{};
    std::size_t m_count = 0;
};

} // namespace

int SideOf(const PlanePoint& a, const PlanePoint& b, const PlanePoint& p)
{
    constexpr double dUnit = std::numeric_limits<double>::epsilon() / 2.0;
    constexpr double dBound = (3.0 + 16.0 * dUnit) * dUnit;
    const double left = (a.x - p.x) * (b.y - p.y);
    const double right = (a.y - p.y) * (b.x - p.x);
    const double side = left - right;
    if (std::fabs(side) > dBound * (std::fabs(left) + std::fabs(right))) return signOf(side);

    CExactSum sum;
    for (const auto& [from, to] : {std::pair(a, b), std::pair(b, p), std::pair(p, a)}) {
        sum.AddProduct(from.x, to.y);
        sum.AddProduct(-from.y, to.x);
    }
    return sum.Sign();
}

} // namespace Zorvan::detail
