// SPDX-License-Identifier: MIT
#include "zorvan/verdict/planeshare.h"

#include "zorvan/verdict/normalprobes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace prereg {

double PlaneShare(const Vectors& normals)
{
    constexpr float fCosine = 0.985F; // of 10 degrees
    CNormalProbes probes;
    for (std::size_t i = 0; i < normals.size(); i += CNormalProbes::StepFor(normals.size()))
        if (normals[i].IsFinite()) probes.Add(normals[i]);
    std::uint32_t most = 0;
    for (std::size_t i = 0; i < probes.Size(); ++i) most = std::max(most, probes.CountAlong(probes[i], fCosine));
    return probes.Size() == 0 ? 0.0 : static_cast<double>(most) / static_cast<double>(probes.Size());
}

std::vector<std::size_t> ThinDirections(std::span<const kdtree::Vector<3>> normals, double dMostShare)
{
    constexpr float cosSameDirection = 0.951F; // 18 degrees
    const CNormalProbes probes(normals);
    const double most = dMostShare * static_cast<double>(probes.Size());
    std::vector<std::size_t> kept;
    double due = 0.0; // of the normals looked at in crowds, those to keep that have not been kept
    for (std::size_t i = 0; i < normals.size(); ++i) {
        const double crowd = probes.CountAlong(normals[i], cosSameDirection);
        const double share = most / std::max(1.0, crowd);
        if (share < 1.0 && (due += share) < 1.0) continue;
        if (share < 1.0) due -= 1.0;
        kept.push_back(i);
    }
    return kept;
}

} // namespace prereg
