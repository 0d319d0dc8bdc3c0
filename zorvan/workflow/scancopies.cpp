// SPDX-License-Identifier: MIT
#include "zorvan/workflow/scancopies.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace prereg {

namespace {

bool areSame(const ScanToCompare& a, const ScanToCompare& b)
{
    return a.shift == b.shift && std::ranges::equal(a.points, b.points) && std::ranges::equal(a.normals, b.normals);
}

} // namespace

std::vector<std::optional<std::size_t>> FindCopies(std::span<const ScanToCompare> scans)
{
    std::vector<std::optional<std::size_t>> originals(scans.size());
    std::map<std::tuple<std::size_t, float, float, float>, std::vector<std::size_t>> alike;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        if (scans[i].points.empty()) continue;
        const kdtree::Vector<3>& first = scans[i].points.front();
        if (!first.IsFinite()) continue;
        auto& candidates = alike[{scans[i].points.size(), first.x, first.y, first.z}];
        const auto found =
            std::ranges::find_if(candidates, [&](std::size_t other) { return areSame(scans[other], scans[i]); });
        if (found != candidates.end())
            originals[i] = *found;
        else
            candidates.push_back(i);
    }
    return originals;
}

} // namespace prereg
