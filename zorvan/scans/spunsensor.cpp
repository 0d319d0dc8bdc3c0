// SPDX-License-Identifier: MIT
#include "zorvan/scans/spunsensor.h"

#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiProbes = 400;
constexpr std::size_t uiFewestProbes = 20;
constexpr int iNeighbours = 8;
/// Of the steps to the three nearest neighbours, what lies across the ring. Virtual rings: 0.000 in the median; rasters
/// of depth cameras and parallel rays 0.4 and more.
constexpr double dMostAcross = 0.1;

/// Sine of the angle between a small step and the ring through a point, seen from the origin.
double shareAcross(const Vector3& from, const Vector3& to)
{
    const auto elevation = [](const Vector3& p) {
        return std::atan2(static_cast<double>(p.z), std::hypot(static_cast<double>(p.x), static_cast<double>(p.y)));
    };
    const double up = elevation(to) - elevation(from);
    const auto cross = static_cast<double>(from.x * to.y - from.y * to.x);
    const auto dot = static_cast<double>(from.x * to.x + from.y * to.y);
    const double along = std::atan2(cross, dot) * std::cos(elevation(from));
    const double step = std::hypot(up, along);
    return step > 0.0 ? std::abs(up) / step : 1.0;
}

} // namespace

bool IsSpunAboutOrigin(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree)
{
    constexpr std::size_t uiNearest = 3;
    std::vector<Zorvan::IndexAndDist> found;
    std::vector<double> across;
    for (std::size_t i = 0; i < points.size(); i += std::max<std::size_t>(1, points.size() / uiProbes)) {
        tree.FindKNearest(points[i], found, iNeighbours, std::numeric_limits<float>::max());
        std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.distSq < b.distSq; });
        std::erase_if(found, [i](const auto& hit) { return hit.index == i; });
        for (std::size_t k = 0; k < std::min(uiNearest, found.size()); ++k)
            across.push_back(shareAcross(points[i], points[found[k].index]));
    }
    if (across.size() < uiFewestProbes) return false;
    const auto quarter = across.begin() + static_cast<std::ptrdiff_t>(across.size() * 3 / 4);
    std::nth_element(across.begin(), quarter, across.end());
    return *quarter < dMostAcross;
}

} // namespace Zorvan
