// SPDX-License-Identifier: MIT
#pragma once

#include "tests/verdict/rasterscans.h"

#include <vector>

namespace support {

struct Sphere
{
    Vector3 middle;
    float radius;
};

/// An object without any symmetry, some 20 mm across.
inline std::vector<Sphere> Cluster()
{
    return {{{0, 0, 0}, 6}, {{6, 1, 2}, 4}, {{-5, 4, -1}, 4.5F}, {{1, -7, 3}, 3}, {{-2, 2, 7}, 3.5F}, {{3, 3, -7}, 4}};
}

/// What a scanner with parallel rays sees of the spheres, in its own frame: it looks along -z.
/// @param pose  object to scan coordinates
inline Surface ScanSpheres(const std::vector<Sphere>& spheres, const prereg::CTrafo& pose, float spacing, float noise,
                           std::uint32_t seed)
{
    const auto height = [&](float x, float y) {
        float highest = NAN;
        for (const Sphere& sphere : spheres) {
            const Vector3 m = pose * sphere.middle;
            const float rest = sphere.radius * sphere.radius - (x - m.x) * (x - m.x) - (y - m.y) * (y - m.y);
            // A scanner loses what it sees at a grazing angle.
            if (rest < 0.04F * sphere.radius * sphere.radius) continue;
            const float z = m.z + std::sqrt(rest);
            if (!(highest > z)) highest = z;
        }
        return highest;
    };
    return RasterScan(height, 25.0F, spacing, noise, seed);
}

} // namespace support
