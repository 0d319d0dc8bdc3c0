// SPDX-License-Identifier: MIT
#include "zorvan/scans/spacing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiMaxProbes = 4000; // the median of so many is good to some percent
constexpr int iNeighbours = 8;            // the search is approximate: with two it would hardly leave the point's leaf

// Squared distance to the nearest other point, or a negative number when the search met none.
float nearestOtherSq(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree, std::size_t i,
                     std::vector<Zorvan::IndexAndDist>& found)
{
    tree.FindKNearest(points[i], found, iNeighbours, std::numeric_limits<float>::max());
    const auto other = std::find_if(found.begin(), found.end(), [i](const auto& hit) { return hit.index != i; });
    return other == found.end() ? -1.0F : other->distSq;
}

} // namespace

double MedianSpacing(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree)
{
    const std::size_t step = std::max<std::size_t>(1, points.size() / uiMaxProbes);
    std::vector<Zorvan::IndexAndDist> found;
    std::vector<float> distances;
    for (std::size_t i = 0; i < points.size(); i += step) {
        const float distSq = nearestOtherSq(points, tree, i, found);
        if (distSq >= 0.0F) distances.push_back(distSq);
    }
    if (distances.empty()) return 0.0;
    const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
    std::nth_element(distances.begin(), middle, distances.end());
    return std::sqrt(static_cast<double>(*middle));
}

} // namespace Zorvan
