// SPDX-License-Identifier: MIT
#include "tools/virtualscanner/scene.h"
#include "tools/virtualscanner/virtualscanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using tools::CVirtualScanner;
using tools::VirtualScan;
using Zorvan::Vector3;

constexpr double dCoarse = 0.4; // pixels in mm; enough for laws, and quick

TEST(VirtualScanner, PutsPointsOnTheSurfaceWithinTheNoise)
{
    for (const double noise : {0.0, 0.02}) {
        const CVirtualScanner scanner({.uiSeed = 3, .uiNumViews = 4, .dNoise = noise, .dPixelSpacing = dCoarse});
        for (unsigned view = 0; view < 4; ++view) {
            const VirtualScan scan = scanner.Render(view);
            ASSERT_GT(scan.scan.points.size(), 1500U);
            for (const Vector3& p : scan.scan.points) {
                // Six standard deviations, and what a ray may end before the surface.
                const double limit = scanner.GetObject().GetTraits().steepest * 6 * noise + 0.001;
                ASSERT_LE(std::abs(scanner.GetObject().Distance(scan.pose * p)), limit) << "view " << view;
            }
        }
    }
}

TEST(VirtualScanner, NormalsAndFacesLookAtTheSensor)
{
    const CVirtualScanner scanner({.uiSeed = 3, .uiNumViews = 2, .dNoise = 0, .dPixelSpacing = 0.2});
    const VirtualScan scan = scanner.Render(1);
    int off = 0;
    for (std::size_t i = 0; i < scan.scan.points.size(); ++i) {
        const Vector3 truth = scanner.GetObject().Normal(scan.pose * scan.scan.points[i]);
        if (kdtree::Dot(scan.pose.Rotate(scan.scan.normals[i]), truth) < 0.97F) ++off;
    }
    EXPECT_LT(off, static_cast<int>(scan.scan.points.size() / 10)) << "of " << scan.scan.points.size();
}

TEST(VirtualScanner, SeedDecidesAndThreadsDoNot)
{
    const auto render = [](unsigned seed, unsigned threads) {
        return CVirtualScanner({.uiSeed = seed, .uiNumViews = 3, .dPixelSpacing = dCoarse, .uiNumThreads = threads})
            .Render(1);
    };
    const VirtualScan one = render(5, 1);
    for (const unsigned threads : {1U, 2U, 7U}) {
        EXPECT_EQ(render(5, threads).scan.points, one.scan.points) << threads;
        EXPECT_EQ(render(5, threads).scan.faces, one.scan.faces) << threads;
    }
    EXPECT_NE(render(6, 1).scan.points, one.scan.points);
}

/// Share of the points of `a` with a point of `b` within 1 mm, under the true poses.
double overlap(const VirtualScan& a, const VirtualScan& b)
{
    const Zorvan::TKdTree<3, 48> tree(b.scan.points.data(), b.scan.points.size());
    const prereg::CTrafo toB = b.pose.GetInverse(true) * a.pose;
    const auto isNear = [&](const Vector3& p) {
        Zorvan::NearestQuery query{toB * p, -1, 1.0F};
        tree.FindNearest(query);
        return query.index >= 0;
    };
    const auto near = std::count_if(a.scan.points.begin(), a.scan.points.end(), isNear);
    return static_cast<double>(near) / static_cast<double>(a.scan.points.size());
}

TEST(VirtualScanner, NeighboursOverlapWell)
{
    for (const unsigned views : {2U, 6U, 9U}) {
        const CVirtualScanner scanner({.uiSeed = 2, .uiNumViews = views, .dPixelSpacing = dCoarse});
        for (unsigned view = 1; view < views; ++view)
            EXPECT_GT(overlap(scanner.Render(view - 1), scanner.Render(view)), 0.4) << view << " of " << views;
    }
}

CVirtualScanner overWall(unsigned views)
{
    tools::Scene scene;
    scene.object = "wall";
    scene.spacing = 0.8;
    scene.noise = 0.0;
    scene.scanner.uiSeed = 3;
    scene.scanner.uiNumViews = views;
    return tools::MakeScanner(scene);
}

// What costs of many scans grow with is the number of those that each overlaps: it must not grow with the wall.
TEST(VirtualWall, GrowsWithTheViewsSoThatEachOverlapsAsManyOthers)
{
    const auto partnersOf = [](const CVirtualScanner& scanner, unsigned view, unsigned count) {
        const VirtualScan own = scanner.Render(view);
        int partners = 0;
        for (unsigned other = 0; other < count; ++other) {
            const float apart = (scanner.GetPose(other).GetTranslation() - own.pose.GetTranslation()).Length();
            if (other != view && apart < 24.0F) partners += overlap(own, scanner.Render(other)) > 0.1;
        }
        return partners;
    };
    const CVirtualScanner small = overWall(60);
    const CVirtualScanner large = overWall(1000);
    for (unsigned view = 1; view < 60; ++view)
        EXPECT_GT(overlap(small.Render(view - 1), small.Render(view)), 0.35) << view;
    const int inSmall = partnersOf(small, 31, 60); // in the middle
    const int inLarge = partnersOf(large, 500, 1000);
    EXPECT_GE(inSmall, 8);
    EXPECT_LE(inLarge, 16);
    EXPECT_LE(std::abs(inSmall - inLarge), 3) << inSmall << " and " << inLarge;
}

TEST(VirtualWall, IsTheSameInItsMiddleHoweverLargeAndLooksLikeItselfNowhereElse)
{
    const CVirtualScanner small = overWall(25);
    const CVirtualScanner large = overWall(400);
    const VirtualScan scan = large.Render(218); // in the middle
    double elsewhere = 1e9;
    for (const Vector3& p : scan.scan.points) {
        const Vector3 q = scan.pose * p;
        EXPECT_LE(std::abs(small.GetObject().Distance(q)), 0.001F);
        EXPECT_LE(std::abs(large.GetObject().Distance(q)), 0.001F);
    }
    for (const Vector3& away : {Vector3(4, 0, 0), Vector3(0, -8, 0), Vector3(36, 40, 0), Vector3(-48, 4, 0)}) {
        double sum = 0.0;
        for (const Vector3& p : scan.scan.points)
            sum += std::abs(double{large.GetObject().Distance(scan.pose * p + away)});
        elsewhere = std::min(elsewhere, sum / static_cast<double>(scan.scan.points.size()));
    }
    EXPECT_GT(elsewhere, 0.3); // mm in the mean; the noise of a view is 0.01
}

TEST(VirtualScanner, FramesOfAVideoFollowEachOtherClosely)
{
    const CVirtualScanner scanner({.uiSeed = 2, .uiNumViews = 360, .isVideo = true});
    const auto placeOf = [&](unsigned frame) { return scanner.GetPose(frame).GetTranslation(); };
    for (unsigned frame = 1; frame < 360; ++frame) {
        const float step = (placeOf(frame) - placeOf(frame - 1)).Length();
        EXPECT_TRUE(step > 0.2F && step < 0.8F) << frame << ": " << step;
        EXPECT_LT(scanner.GetPose(frame).GetRotationDistance(scanner.GetPose(frame - 1)), 0.07F)
            << frame; // four degrees
    }
    EXPECT_LT((placeOf(349) - placeOf(1)).Length(), 0.01F); // back after 175 frames each way
}

TEST(VirtualScanner, FindsTheSpacingForANumberOfPoints)
{
    tools::VirtualScannerSettings settings{.uiSeed = 2, .uiNumViews = 2};
    settings.dPixelSpacing = CVirtualScanner(settings).FindSpacing(20000);
    const std::size_t points = CVirtualScanner(settings).Render(0).scan.points.size();
    EXPECT_GT(points, 14000U);
    EXPECT_LT(points, 26000U);
}

TEST(DisturbPoses, MovesByExactlyWhatIsAskedFor)
{
    const Vector3 middle(3, -20, 5);
    const std::vector<prereg::CTrafo> poses{
        {}, {Vector3(0.5F, 1, 2), Vector3(9, 8, 7)}, {Vector3(0, 0, 1), Vector3(1, 2, 3)}};
    const auto disturbed = tools::DisturbPoses(poses, middle, 5, 1, 42);
    EXPECT_EQ(disturbed[0], poses[0]);
    for (std::size_t i = 1; i < poses.size(); ++i) {
        const prereg::CTrafo motion = disturbed[i] * poses[i].GetInverse(true);
        EXPECT_NEAR(motion.GetRotationDistance({}), 5 * 3.14159265 / 180, 1e-5);
        EXPECT_NEAR((motion * middle - middle).Length(), 1.0F, 1e-5F);
    }
}

} // namespace
