// SPDX-License-Identifier: MIT
#include "zorvan/verdict/scansampling.h"

#include "zorvan/numerics/packedldlt.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace prereg {

namespace {

using kdtree::Vector;
using Zorvan::symsolvers::PackedSize;

constexpr int iParameters = 6; // of z = a + b x + c y + d x^2 + e x y + f y^2
using Equations = std::array<double, PackedSize(iParameters)>;
using Row = std::array<double, iParameters>;

std::size_t stepFor(std::size_t size, std::size_t probes) { return std::max<std::size_t>(1, size / probes); }

/// Squared distance to the nearest point that lies elsewhere; 0 where there is none.
float nearestElsewhereSq(const Vector<3>& point, const Zorvan::TKdTree<3, 48>& tree)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    Zorvan::NearestQuery query{point, -1, infinity};
    const float nextSq = tree.FindNearestAndNext(query, infinity); // than the point itself
    if (nextSq > 0.0F) return nextSq < infinity ? nextSq : 0.0F;
    constexpr int iNeighbours = 8; // of a point that is there more than once
    std::vector<Zorvan::IndexAndDist> found;
    tree.FindKNearest(point, found, iNeighbours, std::numeric_limits<float>::max());
    const auto other = std::find_if(found.begin(), found.end(), [](const auto& hit) { return hit.distSq > 0.0F; });
    return other == found.end() ? 0.0F : other->distSq;
}

double medianSpacing(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree)
{
    std::vector<double> distances;
    for (std::size_t i = 0; i < points.size(); i += stepFor(points.size(), verdict::uiSpacingProbes)) {
        if (!points[i].IsFinite()) continue;
        const float distSq = nearestElsewhereSq(points[i], tree);
        if (distSq > 0.0F) distances.push_back(std::sqrt(static_cast<double>(distSq)));
    }
    return distances.empty() ? 0.0 : Zorvan::Median(std::move(distances));
}

/// Rows: two directions in the plane of the points, and its normal.
std::array<std::array<double, 3>, 3> principalFrame(const std::vector<std::array<double, 3>>& offsets)
{
    std::array<double, 3> mean{};
    for (const auto& p : offsets)
        for (std::size_t k = 0; k < 3; ++k) mean[k] += p[k] / static_cast<double>(offsets.size());
    std::array<double, PackedSize(3)> covariance{};
    for (const auto& p : offsets) {
        std::size_t at = 0;
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j <= i; ++j) covariance[at++] += (p[i] - mean[i]) * (p[j] - mean[j]);
    }
    std::array<double, 3> values{};
    std::array<double, 9> vectors{};
    std::array<double, 6> work{};
    Zorvan::symsolvers::JacobiIteration(covariance.data(), values.data(), vectors.data(), 3, 20, work.data());
    Zorvan::symsolvers::SortEigenV(values.data(), vectors.data(), 3, false);
    return {{{vectors[0], vectors[3], vectors[6]},
             {vectors[1], vectors[4], vectors[7]},
             {vectors[2], vectors[5], vectors[8]}}};
}

double along(const std::array<double, 3>& axis, const std::array<double, 3>& p)
{
    return axis[0] * p[0] + axis[1] * p[1] + axis[2] * p[2];
}

/// Residual standard deviation of the points about their quadric.
/// @param offsets  in units of the radius, so that the equations are well scaled
std::optional<double> quadricResidual(const std::vector<std::array<double, 3>>& offsets)
{
    const auto frame = principalFrame(offsets);
    Equations a{};
    Row b{};
    double sum = 0.0;
    for (const auto& p : offsets) {
        const double x = along(frame[0], p);
        const double y = along(frame[1], p);
        const double z = along(frame[2], p);
        const Row row{1.0, x, y, x * x, x * y, y * y};
        Zorvan::symsolvers::AddNormalEquation(a.data(), b.data(), row.data(), z, iParameters);
        sum += z * z;
    }
    Row solution = b;
    Row work{};
    if (!Zorvan::symsolvers::LDLtFactor(a.data(), iParameters, work.data())) return std::nullopt;
    Zorvan::symsolvers::LDLtSolve(a.data(), solution.data(), iParameters);
    for (std::size_t k = 0; k < iParameters; ++k) sum -= solution[k] * b[k];
    return std::sqrt(std::max(0.0, sum) / static_cast<double>(offsets.size() - iParameters));
}

double noiseAtRadius(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, double radius)
{
    std::vector<unsigned> found;
    std::vector<std::array<double, 3>> offsets;
    std::vector<double> residuals;
    const auto radiusSq = static_cast<float>(radius * radius);
    for (std::size_t i = 0; i < points.size(); i += stepFor(points.size(), verdict::uiNoiseProbes)) {
        if (!points[i].IsFinite()) continue;
        found.clear();
        tree.FindInBall(found, {points[i], radiusSq});
        if (found.size() < verdict::uiMinQuadricPoints) continue;
        offsets.clear();
        const std::size_t stride = (found.size() + verdict::uiMaxQuadricPoints - 1) / verdict::uiMaxQuadricPoints;
        for (std::size_t k = 0; k < found.size(); k += stride) {
            const Vector<3> d = points[found[k]] - points[i];
            offsets.push_back({static_cast<double>(d.x) / radius, static_cast<double>(d.y) / radius,
                               static_cast<double>(d.z) / radius});
        }
        if (const auto residual = quadricResidual(offsets)) residuals.push_back(*residual * radius);
    }
    return residuals.empty() ? 0.0 : Zorvan::Median(std::move(residuals));
}

} // namespace

ScanSampling MeasureSampling(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree)
{
    ScanSampling sampling;
    sampling.dSpacing = medianSpacing(points, tree);
    if (sampling.dSpacing <= 0.0) return sampling;
    double radius = verdict::dNoiseRadius * sampling.dSpacing;
    sampling.dNoise = noiseAtRadius(points, tree, radius);
    for (int i = 0; i < verdict::iMaxNoiseDoublings && sampling.dNoise > verdict::dNoisePerRadius * radius; ++i) {
        radius *= 2;
        sampling.dNoise = noiseAtRadius(points, tree, radius);
    }
    return sampling;
}

} // namespace prereg
