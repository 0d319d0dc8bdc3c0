// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cnearesttracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using prereg::CNearestTracker;
using prereg::CTrafo;
using prereg::Vectors;
using Vector3 = kdtree::Vector<3>;

/// A raster over 20 x 20 mm on waves, anyhow by up to `noise` mm; without noise many points are equally near.
Vectors sheet(float spacing, float noise, std::mt19937& rng)
{
    std::uniform_real_distribution<float> disturb(-noise, noise);
    Vectors points;
    const int half = static_cast<int>(10.0F / spacing);
    for (int i = -half; i <= half; ++i) {
        for (int k = -half; k <= half; ++k) {
            const float x = static_cast<float>(i) * spacing;
            const float y = static_cast<float>(k) * spacing;
            points.emplace_back(x + disturb(rng), y + disturb(rng), std::round(std::sin(0.5F * x)) + disturb(rng));
        }
    }
    return points;
}

struct Counts
{
    int inReach = 0;
    int outOfReach = 0;
};

/// Each look-up against that of the tree, while a pose comes to rest, as that of least squares does, and leaves again.
Counts compare(const Vectors& fix, const Vectors& flt, float reach)
{
    constexpr float fSpacing = 0.5F;
    const Zorvan::TKdTree<3, 48> tree(fix.data(), fix.size());
    CNearestTracker tracker(fix, tree, flt.size(), reach * reach, 0.2F * fSpacing);
    Counts counts;
    const float steps[] = {0.5F, 0.2F, 0.06F, 0.05F, 0.02F, 0.0F, 0.0F, -0.03F, 0.07F, 0.11F, 0.12F, 1.5F, 1.5F, 1.49F};
    for (const float step : steps) {
        const CTrafo pose(Vector3(0.01F * step, 0.02F * step, -0.03F * step), Vector3(step, 0.5F * step, 0.3F * step));
        for (std::size_t i = 0; i < flt.size(); ++i) {
            Zorvan::NearestQuery query{pose * flt[i], -1, reach * reach};
            tree.FindNearest(query);
            EXPECT_EQ(tracker.Nearest(i, pose * flt[i]), query.index) << "at " << step;
            ++(query.index < 0 ? counts.outOfReach : counts.inReach);
        }
    }
    return counts;
}

TEST(CNearestTracker, FindsWhatTheTreeFindsWhilePointsMove)
{
    std::mt19937 rng(47110815);
    const Vectors scan = sheet(0.5F, 0.2F, rng);
    const Vectors lattice = sheet(0.5F, 0.0F, rng);
    Vectors twice = scan; // equally near: the tree's order decides
    twice.insert(twice.end(), scan.begin(), scan.end());
    for (const auto& fix : {scan, lattice, twice}) {
        for (const auto& flt : {scan, lattice}) {
            for (const float reach : {0.5F, 1.2F, 0.05F}) {
                const Counts counts = compare(fix, flt, reach);
                EXPECT_GT(counts.inReach, 100);
                EXPECT_GT(counts.outOfReach, 100);
            }
        }
    }
}

TEST(CNearestTracker, FindsNothingFromWhatIsNoPoint)
{
    const Vectors fix{{0, 0, 0}, {NAN, 0, 0}};
    const Zorvan::TKdTree<3, 48> tree(fix.data(), fix.size());
    CNearestTracker tracker(fix, tree, 1, 1.0F, 0.1F);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tracker.Nearest(0, {NAN, 0, 0}), -1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tracker.Nearest(0, {0.5F, 0, 0}), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tracker.Nearest(0, {1.0F, 0, 0}), -1) << "strictly nearer than the reach";
}

} // namespace
