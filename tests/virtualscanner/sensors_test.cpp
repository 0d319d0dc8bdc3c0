// SPDX-License-Identifier: MIT
#include "tools/virtualscanner/overlaptable.h"
#include "tools/virtualscanner/virtualobjects.h"
#include "tools/virtualscanner/virtualscanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using tools::CVirtualScanner;
using tools::VirtualScan;
using Zorvan::Vector3;

constexpr double dSpacing = 0.8;      // mm; enough for laws, and quick
constexpr double dRingSpacing = 0.25; // along rings that are ten times as far apart

CVirtualScanner scannerOf(const std::string& object, const std::string& sensor, double noise, unsigned seed = 3,
                          unsigned threads = 1)
{
    const auto thing = tools::MakeObject(object, seed);
    const double spacing = sensor.starts_with("lidar") ? dRingSpacing : dSpacing;
    return {thing,
            tools::SensorFor(sensor, thing->GetTraits()),
            {.uiSeed = seed, .uiNumViews = 6, .dNoise = noise, .dPixelSpacing = spacing, .uiNumThreads = threads}};
}

/// How far the points lie off the surface, at most, once the share `left` of them that lie furthest is left out.
double furthestOff(const CVirtualScanner& scanner, const VirtualScan& scan, double left = 0.0)
{
    std::vector<double> off;
    for (const Vector3& p : scan.scan.points) off.push_back(std::abs(scanner.GetObject().Distance(scan.pose * p)));
    if (off.empty()) return 0.0;
    std::sort(off.begin(), off.end());
    return off[static_cast<std::size_t>((1.0 - left) * static_cast<double>(off.size() - 1))];
}

TEST(Sensors, PutPointsOnEveryObjectWithinTheirNoise)
{
    constexpr double dNoise = 0.02;
    const std::map<std::string, double> own{{"depth", 0.0},
                                            {"oblique", 0.0},
                                            {"lidar", 0.0},
                                            {"triangulation", 0.0},
                                            {"quantised", dSpacing / 4},
                                            {"warped", dSpacing / 2},
                                            {"patches", 0.0},
                                            {"oblique+quantised", dSpacing / 4}};
    for (const std::string& object : tools::ObjectNames()) {
        for (const auto& [sensor, error] : own) {
            const CVirtualScanner scanner = scannerOf(object, sensor, dNoise);
            const VirtualScan scan = scanner.Render(4);
            ASSERT_GT(scan.scan.points.size(), 150U) << object << ' ' << sensor;
            const double limit = scanner.GetObject().GetTraits().steepest * (error + 6 * dNoise) + 0.002;
            EXPECT_LT(furthestOff(scanner, scan), limit) << object << ' ' << sensor;
        }
    }
}

TEST(Sensors, StrayPointsAreAsManyAsTheyShouldBe)
{
    for (const char* const sensor : {"outliers", "lidar+outliers"}) {
        const CVirtualScanner scanner = scannerOf("bracket", sensor, 0.0);
        for (unsigned view = 0; view < 6; ++view) {
            const VirtualScan scan = scanner.Render(view);
            EXPECT_LT(furthestOff(scanner, scan, 0.025), 0.01) << sensor;
            EXPECT_GT(furthestOff(scanner, scan), 3.0) << sensor;
        }
    }
}

TEST(Sensors, TriangulationLeavesShadowsEmpty)
{
    const CVirtualScanner both = scannerOf("housing", "triangulation", 0.0);
    const CVirtualScanner one = scannerOf("housing", "depth", 0.0);
    std::size_t lost = 0;
    for (unsigned view = 0; view < 6; ++view) {
        const VirtualScan scan = both.Render(view);
        const Vector3 back = scan.pose.Rotate(tools::Triangulation{}.TowardCamera());
        for (const Vector3& p : scan.scan.points) {
            const Vector3 start = scan.pose * p + both.GetObject().Normal(scan.pose * p) * 0.05F;
            ASSERT_TRUE(std::isnan(tools::TraceRay(both.GetObject(), start, back, 200.0F))) << "view " << view;
        }
        lost += one.Render(view).scan.points.size() - scan.scan.points.size();
    }
    EXPECT_GT(lost, one.Render(0).scan.points.size() / 20) << "no view has a shadow";
}

TEST(Sensors, ObliqueRaysLieOffZAndKeepTheirRaster)
{
    for (const unsigned seed : {1U, 2U, 3U}) {
        const CVirtualScanner scanner = scannerOf("figure", "oblique", 0.0, seed);
        const prereg::CTrafo turn = tools::ObliqueRays{}.PickTurn(seed);
        const double degrees = std::acos(turn.Rotate({0, 0, 1}).z) * 180 / 3.14159265;
        EXPECT_GT(degrees, 14.9);
        EXPECT_LT(degrees, 30.1);
        std::set<int> columns;
        for (const Vector3& p : scanner.Render(2).scan.points) {
            const double column = (turn.GetInverse(true) * p).x / dSpacing;
            ASSERT_LT(std::abs(2 * column - std::round(2 * column)), 0.001);
            columns.insert(static_cast<int>(std::round(2 * column)));
        }
        EXPECT_GT(columns.size(), 10U);
    }
}

TEST(Sensors, QuantisedDepthComesInSteps)
{
    const double step = tools::Quantisation{}.dStep * dSpacing;
    for (const Vector3& p : scannerOf("shell", "quantised", 0.1).Render(0).scan.points)
        ASSERT_NEAR(p.z / step, std::round(p.z / step), 1e-4);
}

TEST(Sensors, LidarMeasuresAlongRingsTenTimesAsFarApart)
{
    const CVirtualScanner scanner = scannerOf("flange", "lidar", 0.05);
    const double distance = scanner.GetObject().GetTraits().radius * tools::Rings{}.dDistance;
    const double ringStep = tools::Rings{}.dRatio * dRingSpacing / distance;
    std::map<int, std::vector<double>> rings;
    for (const Vector3& p : scanner.Render(1).scan.points) {
        const double ring = std::atan2(p.z, std::hypot(p.x, p.y)) / ringStep;
        ASSERT_NEAR(ring, std::round(ring), 0.01);
        rings[static_cast<int>(std::round(ring))].push_back(std::atan2(p.y, p.x));
    }
    EXPECT_GE(rings.size(), 5U);
    std::vector<double> steps;
    for (const auto& [ring, turns] : rings)
        for (std::size_t i = 1; i < turns.size(); ++i) steps.push_back(turns[i] - turns[i - 1]);
    std::nth_element(steps.begin(), steps.begin() + steps.size() / 2, steps.end());
    EXPECT_NEAR(steps[steps.size() / 2] * distance, dRingSpacing, 0.02 * dRingSpacing);
}

TEST(Sensors, DroppedPatchesAreWholePatches)
{
    const auto pixels = [](const std::string& sensor) {
        std::set<std::pair<int, int>> set;
        for (const Vector3& p : scannerOf("bracket", sensor, 0.0).Render(2).scan.points)
            set.emplace(static_cast<int>(std::lround(2 * p.x / dSpacing)),
                        static_cast<int>(std::lround(2 * p.y / dSpacing)));
        return set;
    };
    const auto all = pixels("depth");
    const auto left = pixels("patches");
    EXPECT_LT(left.size(), all.size() * 97 / 100);
    std::size_t alone = 0;
    for (const auto& [x, y] : all) {
        if (left.contains({x, y})) continue;
        int lost = 0;
        for (int dx = -4; dx <= 4; dx += 2)
            for (int dy = -4; dy <= 4; dy += 2)
                if (!left.contains({x + dx, y + dy})) ++lost;
        if (lost < 10) ++alone;
    }
    EXPECT_LE(alone, all.size() / 50) << "what is missing point by point";
}

TEST(Sensors, SeedDecidesAndThreadsDoNot)
{
    for (const char* const sensor : {"triangulation+warped+outliers+patches", "lidar+outliers", "oblique+quantised"}) {
        const auto points = [&](unsigned seed, unsigned threads) {
            return scannerOf("gear", sensor, 0.03, seed, threads).Render(3).scan.points;
        };
        const auto one = points(5, 1);
        EXPECT_EQ(points(5, 2), one) << sensor;
        EXPECT_EQ(points(5, 7), one) << sensor;
        EXPECT_NE(points(6, 1), one) << sensor;
    }
}

TEST(Sensors, ViewsComeFromAllAroundButNotFromBelowATable)
{
    const auto lowest = [](const CVirtualScanner& scanner) {
        double z = 1.0;
        for (unsigned view = 0; view < 6; ++view) z = std::min<double>(z, scanner.GetPose(view).Rotate({0, 0, 1}).z);
        return z;
    };
    EXPECT_LT(lowest(scannerOf("steps", "depth", 0)), -0.5);
    EXPECT_GT(lowest(scannerOf("part-on-table", "depth", 0)), 0.42);
}

TEST(Sensors, ThatNobodyKnowsOrThatDoNotGoTogetherAreRefused)
{
    for (const char* const names : {"sonar", "", "depth+", "lidar+warped", "oblique+lidar"})
        EXPECT_THROW((void)tools::SensorFor(names, {}), std::invalid_argument) << names;
}

TEST(OverlapTable, SharesArePerRowAndFallWhenAPoseIsOff)
{
    const CVirtualScanner scanner = scannerOf("housing", "oblique", 0.02);
    std::vector<prereg::Vectors> scans;
    std::vector<prereg::CTrafo> poses;
    for (unsigned view = 0; view < 6; ++view) {
        scans.push_back(scanner.Render(view).scan.points);
        poses.push_back(scanner.GetPose(view));
    }
    scans[1].resize(scans[1].size() / 3);
    const auto truth = tools::OverlapTable(scans, poses, 3 * dSpacing, 1);
    EXPECT_EQ(tools::OverlapTable(scans, poses, 3 * dSpacing, 4), truth);
    const auto best = *std::max_element(truth[0].begin() + 1, truth[0].end());
    EXPECT_GT(best, 0.5);
    EXPECT_EQ(truth[2][2], 1.0);
    EXPECT_GT(truth[1][0], truth[0][1]) << "a third of a scan lies in the other more than the other in it";

    std::vector<prereg::CTrafo> off = poses;
    off[0] = off[0].Translate({12, 12, 12});
    const auto wrong = tools::OverlapTable(scans, off, 3 * dSpacing, 1);
    EXPECT_LT(*std::max_element(wrong[0].begin() + 1, wrong[0].end()), 0.5 * best);
}

} // namespace
