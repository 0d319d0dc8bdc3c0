// SPDX-License-Identifier: MIT
// What is made of the scans of a spinning lidar: normals, and the pose of a pair.
#include "tools/virtualscanner/virtualobjects.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/scans/normals.h"
#include "zorvan/workflow/align.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace {

using tools::CVirtualScanner;
using Zorvan::Vector3;

CVirtualScanner lidarOf(const std::string& object, unsigned seed, double noise, const tools::Rings& rings = {},
                        unsigned views = 11)
{
    const auto thing = tools::MakeObject(object, seed);
    tools::SensorEffects effects;
    effects.rings = rings;
    return {thing, effects, {.uiSeed = seed, .uiNumViews = views, .dNoise = noise, .dPixelSpacing = 0.3}};
}

Zorvan::SurfelScan toSurfels(const CVirtualScanner& scanner, unsigned view)
{
    return Zorvan::ToSurfels(scanner.Render(view).scan, "view" + std::to_string(view), {});
}

constexpr double dDegrees = 180 / 3.14159265358979;

void expectRight(const CVirtualScanner& scanner, unsigned fix, unsigned flt, const prereg::AlignResult& result)
{
    const prereg::CTrafo truth = scanner.GetPose(fix).GetInverse(true) * scanner.GetPose(flt);
    const prereg::CTrafo found = result.candidates.front().refined.GetTrafo();
    EXPECT_LT(found.GetRotationDistance(truth) * dDegrees, 5.0);
    const Vector3 middle = scanner.GetPose(flt).GetInverse(true) * scanner.GetObject().GetTraits().middle;
    EXPECT_LT((found * middle - truth * middle).Length(), 0.02 * scanner.GetObject().GetTraits().dSize);
}

TEST(SpinningLidar, NormalsFollowTheSurface)
{
    struct Case
    {
        const char* object;
        double noise;
        tools::Rings rings;
        double typical; ///< degrees off, median
        double most;    ///< of nine in ten
    };
    for (const Case& c :
         {Case{"figure", 0.02, {10, 3}, 5, 30}, Case{"figure", 0.1, {10, 3}, 6, 30}, Case{"gear", 0.1, {10, 3}, 9, 50},
          Case{"jaw", 0.1, {6, 5}, 10, 30}, Case{"housing", 0.02, {20, 2}, 2, 28}}) {
        const CVirtualScanner scanner = lidarOf(c.object, 4, c.noise, c.rings);
        std::vector<double> off;
        std::size_t all = 0;
        for (const unsigned view : {0U, 2U}) {
            tools::VirtualScan scan = scanner.Render(view);
            Zorvan::ComputeNormals(scan.scan, std::nullopt);
            EXPECT_TRUE(scan.scan.sensor) << c.object;
            all += scan.scan.points.size();
            for (std::size_t i = 0; i < scan.scan.points.size(); ++i) {
                if (!(scan.scan.normals[i].LengthSq() > 0.0F)) continue;
                const Vector3 exact = scanner.GetObject().Normal(scan.pose * scan.scan.points[i]);
                const float cosine = kdtree::Dot(scan.pose.Rotate(scan.scan.normals[i]), exact);
                off.push_back(std::acos(std::clamp(static_cast<double>(cosine), -1.0, 1.0)) * dDegrees);
            }
        }
        EXPECT_GT(off.size(), all * 7 / 10) << c.object;
        std::sort(off.begin(), off.end());
        EXPECT_LT(off[off.size() / 2], c.typical) << c.object;
        EXPECT_LT(off[off.size() * 9 / 10], c.most) << c.object;
    }
}

TEST(SpinningLidar, APairIsFound)
{
    const CVirtualScanner scanner = lidarOf("figure", 8319, 0.1);
    const prereg::AlignResult result =
        prereg::Align(toSurfels(scanner, 2), toSurfels(scanner, 3), {}, Zorvan::Hooks::None());
    ASSERT_TRUE(result.verdict) << result.verdict.ToString();
    expectRight(scanner, 2, 3, result);
}

// Both scans have rings at the same elevations and see a disc of table of the same width, so that with both sensors in
// one place these lie on one another, whatever stands on the table.
TEST(SpinningLidar, RingsThatCoincideAreNoEvidence)
{
    const CVirtualScanner scanner = lidarOf("part-on-table", 9746, 0.1, {}, 7);
    const Zorvan::SurfelScan fix = toSurfels(scanner, 4);
    const Zorvan::SurfelScan flt = toSurfels(scanner, 5);
    EXPECT_FALSE(prereg::WeighPoses(fix, flt, {prereg::CTrafo()}, {}).verdict);
    const prereg::AlignResult result = prereg::Align(fix, flt, {}, Zorvan::Hooks::None());
    if (result.verdict) expectRight(scanner, 4, 5, result);
}

} // namespace
