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

} // namespace

double MedianSpacing(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree)
{
    const std::size_t step = std::max<std::size_t>(1, points.size() / uiMaxProbes);
    constexpr float infinity = std::numeric_limits<float>::infinity();
    std::vector<float> distances;
    for (std::size_t i = 0; i < points.size(); i += step) {
        NearestQuery query{points[i], -1, infinity}; // finds the point itself, so that the next one is another
        const float distSq = tree.FindNearestAndNext(query, infinity);
        if (distSq < infinity) distances.push_back(distSq);
    }
    if (distances.empty()) return 0.0;
    const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
    std::nth_element(distances.begin(), middle, distances.end());
    return std::sqrt(static_cast<double>(*middle));
}

} // namespace Zorvan
