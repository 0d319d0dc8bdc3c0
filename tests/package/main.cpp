// SPDX-License-Identifier: MIT
// A host outside our tree, compiled for a processor with fused multiply-add: it must get the library's own bits from
// the inline arithmetic of the headers, and find everything that the program stands on.
#include <zorvan/core/cpointset.h>
#include <zorvan/workflow/align.h>

#include <cmath>
#include <cstdio>
#include <random>

namespace {

using Vector3 = kdtree::Vector<3>;

Zorvan::SurfelScan makeScan(unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> draw(-10.0F, 10.0F);
    Zorvan::SurfelScan scan;
    for (int i = 0; i < 20000; ++i) {
        const float x = draw(rng);
        const float y = draw(rng);
        const Vector3 normal(-std::cos(x), std::sin(y), 1.0F);
        scan.points.emplace_back(x, y, std::sin(x) + std::cos(y));
        scan.normals.push_back(normal * (1.0F / normal.Length()));
    }
    return scan;
}

/// Points whose distance to their nearest neighbour in the tree is not what the headers compute here.
int countOtherBits(const Zorvan::SurfelScan& queries, const prereg::CPointSet& set)
{
    int others = 0;
    for (const Vector3& q : queries.points) {
        Zorvan::NearestQuery query{q, -1, 1e6F};
        set.GetKdTree().FindNearest(query);
        if (query.distSq != kdtree::DistanceSq(q, set.GetPoint(static_cast<std::size_t>(query.index)))) ++others;
    }
    return others;
}

} // namespace

int main()
{
    const Zorvan::SurfelScan fix = makeScan(1);
    const Zorvan::SurfelScan flt = makeScan(2);
    const prereg::CPointSet set(fix.points.data(), fix.normals.data(), fix.points.size());
    const int others = countOtherBits(flt, set);
    std::printf("distances with other bits: %d\n", others);

    prereg::AlignOptions options;
    options.start = prereg::CTrafo().Translate({0.1F, -0.1F, 0.05F});
    const prereg::AlignResult result = prereg::Align(fix, flt, options);
    std::puts(result.Best().ToString(true).c_str());
    // A surface that repeats itself may not be called aligned, but the pose is that of the start.
    return others == 0 && result.Pose().GetTranslation().Length() < 0.01F ? 0 : 1;
}
