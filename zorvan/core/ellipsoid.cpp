// SPDX-License-Identifier: MIT
#include "zorvan/core/ellipsoid.h"

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/textfile.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

// 95 % quantile of the chi-square distribution with three degrees of freedom.
constexpr double chiSquare95 = 7.8147;

std::array<Vector3, 3> tipsOf(const Vector3& center, std::array<double, 6> covariance, double maxHalfAxis)
{
    double values[3];
    double vectors[9];
    double work[6];
    Zorvan::symsolvers::JacobiIteration(covariance.data(), values, vectors, 3, 20, work);
    Zorvan::symsolvers::SortEigenV(values, vectors, 3, true);

    std::array<Vector3, 3> tips;
    for (std::size_t k = 0; k < 3; ++k) {
        // Below 0 only by rounding: the cloud has no extent that way.
        const double variance = values[k] < 0 ? 0.0 : values[k];
        const auto halfAxis = static_cast<float>(std::min(maxHalfAxis, std::sqrt(variance * chiSquare95)));
        const Vector3 direction(static_cast<float>(vectors[k]), static_cast<float>(vectors[3 + k]),
                                static_cast<float>(vectors[6 + k]));
        tips[k] = center + direction * halfAxis;
    }
    return tips;
}

// Sums about a point of the cloud: single precision then loses digits with the size of the cloud, and not with its
// distance from the origin.
Vector3 meanOf(const Vector3* points, std::size_t n)
{
    const auto finite = std::find_if(points, points + n, [](const Vector3& p) { return p.IsFinite(); });
    const Vector3 inside = finite == points + n ? points[0] : *finite;
    const float share = 1.0F / static_cast<float>(n);
    Vector3 mean;
    for (std::size_t i = 0; i < n; ++i) mean = mean + (points[i] - inside) * share;
    return {inside.x + mean.x, inside.y + mean.y, inside.z + mean.z};
}

// About a point near the mean; what lies between the two is put right in the end. Source: Chan, Golub, LeVeque,
// The American Statistician 37 (1983).
std::array<double, 6> covarianceOf(const Vector3* points, std::size_t n, const Vector3& nearMean)
{
    const float divisor = static_cast<float>(n) - 1.0F;
    const float correction = static_cast<float>(n) / divisor;
    const float share = 1.0F / static_cast<float>(n);
    Vector3 mean;
    std::array<float, 6> sums{};
    for (std::size_t k = 0; k < n; ++k) {
        const Vector3 p = points[k] - nearMean;
        mean = mean + p * share;
        const std::array<float, 6> products = {p.x * p.x, p.y * p.x, p.y * p.y, p.z * p.x, p.z * p.y, p.z * p.z};
        for (std::size_t i = 0; i < 6; ++i) sums[i] += products[i] / divisor;
    }
    const std::array<float, 6> means = {mean.x * mean.x, mean.y * mean.x, mean.y * mean.y,
                                        mean.z * mean.x, mean.z * mean.y, mean.z * mean.z};
    std::array<double, 6> covariance{};
    for (std::size_t i = 0; i < 6; ++i) covariance[i] = sums[i] - means[i] * correction;
    return covariance;
}

void writeDottedLine(TextFile& file, const Vector3& from, const Vector3& to, unsigned color)
{
    const Vector3 line = to - from;
    const float scale = Zorvan::simd::ApproximateReciprocalSqrt(line.LengthSq());
    const Vector3 direction = kdtree::IsFinite(scale) ? line * scale : line;
    const float dots = line.Length() * 10 + 0.5F;
    // A line that is not finite has no dots, and one too long for a picture is cut.
    const auto m = dots < 1e6F ? static_cast<unsigned>(dots) : 0U;
    for (unsigned i = 0; i < m; ++i) {
        const float share = m == 1 ? 1.0F : static_cast<float>(i) / static_cast<float>(m - 1);
        file.WriteSurfel(from + line * share, direction, color);
    }
}

} // namespace

Ellipsoid::Ellipsoid(const Vector3* points, std::size_t n)
{
    if (points == nullptr || n == 0) return;
    center = meanOf(points, n);
    tips = tipsOf(center, covarianceOf(points, n, center), std::numeric_limits<double>::infinity());
}

Ellipsoid::Ellipsoid(const Vector3& center_, const std::array<double, 6>& covariance, double maxHalfAxis)
    : center(center_), tips(tipsOf(center_, covariance, maxHalfAxis))
{
}

Vector3 Ellipsoid::operator[](int i) const
{
    if (i < 0) return center;
    const Vector3& tip = tips.at(static_cast<std::size_t>(i) / 2);
    return i % 2 == 0 ? tip : center * 2.0F - tip;
}

Ellipsoid Ellipsoid::Scale(double f) const
{
    Ellipsoid result = *this;
    for (auto& tip : result.tips) tip = center + (tip - center) * static_cast<float>(f);
    return result;
}

float Ellipsoid::DistanceSq(const Ellipsoid& o) const
{
    float largest = 0.0F;
    for (int i = 0; i < 6; ++i) largest = std::max(largest, kdtree::DistanceSq((*this)[i], o[i]));
    return largest;
}

Ellipsoid Ellipsoid::Transform(const CTrafo& trafo) const
{
    Ellipsoid result;
    result.center = trafo * center;
    std::transform(tips.begin(), tips.end(), result.tips.begin(), [&](const Vector3& tip) { return trafo * tip; });
    return result;
}

void Ellipsoid::SaveXYZNC(const std::string& file) const
{
    constexpr std::array<unsigned, 6> colors = {0xFF0000, 0xFFFFFF, 0x00FF00, 0xFFFFFF, 0x0000FF, 0xFFFFFF};
    TextFile out(file);
    for (int i = 0; i < 6; ++i) writeDottedLine(out, center, (*this)[i], colors[static_cast<std::size_t>(i)]);
    out.Close();
}

} // namespace prereg
