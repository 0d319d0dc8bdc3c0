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

} // namespace prereg
