// SPDX-License-Identifier: MIT
#include "zorvan/workflow/cloudlattice.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>

namespace prereg {

namespace {

// A surface fills its grid with about as many points as fit once this share of them is there; asking for more would
// cost passes that nobody sees.
constexpr double dWellFilled = 0.93;
constexpr double dAim = 0.97;
constexpr int iMaxPasses = 12;

struct Nearest
{
    std::uint32_t uiIndex = 0;
    double dDistanceSq = 0.0;
};

/// Indices of the points that are nearest to the middle of their cell, the earlier of two equals.
std::vector<std::uint32_t> onePerCell(std::span<const LatticePoint> points, double cell)
{
    std::unordered_map<std::uint64_t, Nearest> cells;
    cells.reserve(points.size());
    for (std::uint32_t i = 0; i < points.size(); ++i) {
        std::uint64_t key = 0;
        double distanceSq = 0.0;
        for (const std::uint16_t coordinate : points[i]) {
            const double place = std::floor(coordinate / cell);
            const double offset = coordinate - (place + 0.5) * cell;
            key = key << 16U | static_cast<std::uint64_t>(place);
            distanceSq += offset * offset;
        }
        const auto [at, isNew] = cells.try_emplace(key, Nearest{i, distanceSq});
        if (!isNew && distanceSq < at->second.dDistanceSq) at->second = {i, distanceSq};
    }
    std::vector<std::uint32_t> kept;
    kept.reserve(cells.size());
    for (const auto& entry : cells) kept.push_back(entry.second.uiIndex);
    std::sort(kept.begin(), kept.end());
    return kept;
}

} // namespace

CloudLattice CloudLattice::Over(const kdtree::Range<3>& box)
{
    double longest = 0.0;
    for (unsigned axis = 0; axis < 3; ++axis)
        longest = std::max(longest, static_cast<double>(box.high[axis]) - static_cast<double>(box.low[axis]));
    return {box.low, longest / dLast};
}

LatticePoint CloudLattice::Nearest(const kdtree::Vector<3>& p) const
{
    LatticePoint place{};
    if (dStep == 0.0) return place;
    for (unsigned axis = 0; axis < 3; ++axis) {
        const double steps = (static_cast<double>(p[axis]) - static_cast<double>(low[axis])) / dStep;
        place[axis] = static_cast<std::uint16_t>(std::lround(std::clamp(steps, 0.0, dLast)));
    }
    return place;
}

std::vector<std::uint32_t> ThinEvenly(std::span<const LatticePoint> points, std::size_t uiMax)
{
    if (points.size() <= uiMax) {
        std::vector<std::uint32_t> all(points.size());
        std::iota(all.begin(), all.end(), 0U);
        return all;
    }
    if (uiMax == 0) return {};

    // The number of cells that a surface meets falls with the square of their size: a few corrections find the size.
    double cell = CloudLattice::dLast / std::sqrt(static_cast<double>(uiMax));
    std::vector<std::uint32_t> best;
    for (int pass = 0; pass < iMaxPasses || best.empty(); ++pass) {
        std::vector<std::uint32_t> kept = onePerCell(points, cell);
        const double filled = static_cast<double>(kept.size()) / static_cast<double>(uiMax);
        if (filled <= 1.0 && kept.size() > best.size()) best = std::move(kept);
        if (filled <= 1.0 && (filled >= dWellFilled || cell == 1.0)) break;
        cell = std::max(1.0, cell * std::sqrt(filled / dAim));
    }
    return best;
}

} // namespace prereg
