// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/clouds.h"
#include "zorvan/core/cpointset.h"

#include <cmath>
#include <functional>
#include <random>

namespace support {

/// What a scanner with parallel rays along -z sees of an object: the height of its surface, NaN where there is none.
using HeightField = std::function<float(float x, float y)>;

/// Points in a raster over [-size, size] squared, with normals from differences and noise along the ray.
inline Surface RasterScan(const HeightField& height, float size, float spacing, float noise = 0.0F,
                          std::uint32_t seed = 1)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> disturb;
    Surface scan;
    const int half = static_cast<int>(size / spacing);
    for (int j = -half; j <= half; ++j) {
        for (int i = -half; i <= half; ++i) {
            const float x = static_cast<float>(i) * spacing;
            const float y = static_cast<float>(j) * spacing;
            const float z = height(x, y);
            const float step = 0.01F * spacing;
            const Vector3 normal((z - height(x + step, y)) / step, (z - height(x, y + step)) / step, 1.0F);
            if (!std::isfinite(z) || !normal.IsFinite()) continue;
            scan.points.emplace_back(x, y, z + noise * disturb(rng));
            scan.normals.push_back(normal * (1.0F / normal.Length()));
        }
    }
    return scan;
}

inline Surface Moved(const Surface& scan, const prereg::CTrafo& pose)
{
    Surface moved;
    for (const Vector3& p : scan.points) moved.points.push_back(pose * p);
    for (const Vector3& n : scan.normals) moved.normals.push_back(pose.Rotate(n));
    return moved;
}

inline prereg::CPointSet PointSet(const Surface& scan)
{
    return {scan.points.data(), scan.normals.data(), scan.points.size()};
}

/// Waves without symmetry inside a disc of 15 mm.
inline float Waves(float x, float y)
{
    if (std::hypot(x, y) > 15.0F) return NAN;
    return 2.0F * std::sin(0.4F * x + 0.1F * y) + 1.5F * std::cos(0.3F * y - 0.15F * x) +
           0.06F * x * std::sin(0.2F * y);
}

} // namespace support
