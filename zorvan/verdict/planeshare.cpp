// SPDX-License-Identifier: MIT
#include "zorvan/verdict/planeshare.h"

#include <algorithm>
#include <cstddef>

namespace prereg {

double PlaneShare(const Vectors& normals)
{
    constexpr std::size_t uiProbes = 500;
    constexpr float fCosine = 0.985F; // of 10 degrees
    Vectors probes;
    const std::size_t step = std::max<std::size_t>(1, normals.size() / uiProbes);
    for (std::size_t i = 0; i < normals.size(); i += step)
        if (normals[i].IsFinite()) probes.push_back(normals[i]);
    std::ptrdiff_t most = 0;
    for (const auto& direction : probes)
        most = std::max(most, std::count_if(probes.begin(), probes.end(),
                                            [&](const auto& normal) { return Dot(normal, direction) > fCosine; }));
    return probes.empty() ? 0.0 : static_cast<double>(most) / static_cast<double>(probes.size());
}

std::vector<std::size_t> ThinDirections(std::span<const kdtree::Vector<3>> normals, double dMostShare)
{
    constexpr float cosSameDirection = 0.951F; // 18 degrees
    constexpr std::size_t uiProbes = 500;
    Vectors probes;
    for (std::size_t i = 0; i < normals.size(); i += std::max<std::size_t>(1, normals.size() / uiProbes))
        probes.push_back(normals[i]);
    const double most = dMostShare * static_cast<double>(probes.size());
    std::vector<std::size_t> kept;
    double due = 0.0; // of the normals looked at in crowds, those to keep that have not been kept
    for (std::size_t i = 0; i < normals.size(); ++i) {
        const auto crowd = std::count_if(probes.begin(), probes.end(), [&](const kdtree::Vector<3>& normal) {
            return kdtree::Dot(normal, normals[i]) > cosSameDirection;
        });
        const double share = most / std::max(1.0, static_cast<double>(crowd));
        if (share < 1.0 && (due += share) < 1.0) continue;
        if (share < 1.0) due -= 1.0;
        kept.push_back(i);
    }
    return kept;
}

} // namespace prereg
