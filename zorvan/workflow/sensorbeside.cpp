// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sensorbeside.h"

#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace prereg {

std::optional<kdtree::Vector<3>> SensorBeside(const Zorvan::SurfelScan& scan)
{
    constexpr double dMinCosine = 0.8; // 37 degrees, of the half cone of view in the mean
    if (!scan.sensor) return std::nullopt;
    const Zorvan::Position& at = scan.sensor->position;
    const Zorvan::Vector3 sensor(Zorvan::ToFloat(at[0]), Zorvan::ToFloat(at[1]), Zorvan::ToFloat(at[2]));
    std::array<double, 3> sum{};
    for (const Zorvan::Vector3& p : scan.points) {
        const Zorvan::Vector3 toSensor = Zorvan::Normalized(sensor - p);
        for (unsigned k = 0; k < 3; ++k) sum[k] += static_cast<double>(toSensor[k]);
    }
    const double mean =
        std::hypot(sum[0], sum[1], sum[2]) / static_cast<double>(std::max<std::size_t>(1, scan.points.size()));
    return mean > dMinCosine ? std::optional(sensor) : std::nullopt;
}

} // namespace prereg
