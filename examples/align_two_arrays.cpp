// SPDX-License-Identifier: MIT
// The smallest host: two arrays of points with normals in, the pose of the second in the first out.

#include "zorvan/core/cpointset.h"

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using Points = std::vector<kdtree::Vector<3>>;

// Stands for your scanner: samples of one bumpy surface (mm), another set for each seed.
void scan(unsigned seed, Points& points, Points& normals)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> draw(-10.0F, 10.0F);
    for (int i = 0; i < 40000; ++i) {
        const float x = draw(rng);
        const float y = draw(rng);
        const kdtree::Vector<3> normal(-std::cos(x), std::sin(y), 1.0F);
        points.emplace_back(x, y, std::sin(x) + std::cos(y));
        normals.push_back(normal * (1.0F / normal.Length()));
    }
}

} // namespace

int main()
{
    Points fixPoints, fixNormals, fltPoints, fltNormals;
    scan(1, fixPoints, fixNormals);
    scan(2, fltPoints, fltNormals);

    const prereg::CPointSet fix(fixPoints.data(), fixNormals.data(), fixPoints.size());
    const prereg::CPointSet flt(fltPoints.data(), fltNormals.data(), fltPoints.size());
    const kdtree::Vector<3> angles(0.02F, -0.01F, 0.03F); // about x, y, z, in radians
    const kdtree::Vector<3> shift(0.2F, 0.1F, -0.1F);     // mm
    const prereg::CTrafo start(angles, shift);
    std::mt19937 rng(47110815);
    const auto result = fix.ComputeICPRegistration({}, rng, flt, start, nullptr, false);
    std::puts(result.ToString(true).c_str());
    if (result) result.GetTrafo().Dump();
    return result ? 0 : 1;
}
