// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cscanview.h"

#include "tests/verdict/rasterscans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace {

using namespace prereg;
using support::Vector3;

double degreesBetween(const Vector3& a, const Vector3& b)
{
    return std::acos(std::min(1.0, static_cast<double>(Dot(a, b)))) * 57.29577951308232;
}

TEST(MeasureSampling, FindsNoiseFromFarBelowToTenTimesTheSpacing)
{
    for (const float noise : {0.0F, 0.005F, 0.05F, 0.5F, 3.0F}) {
        const auto set = support::PointSet(
            support::RasterScan([](float x, float y) { return 0.1F * x + 0.002F * y * y; }, 30.0F, 0.3F, noise));
        const ScanSampling sampling = MeasureSampling(set.GetPoints(), set.GetKdTree());
        EXPECT_NEAR(sampling.dNoise, static_cast<double>(noise), 0.15 * static_cast<double>(noise) + 1e-4) << noise;
        EXPECT_NEAR(sampling.dSpacing, 0.3, noise < 0.1F ? 0.02 : 0.6) << noise;
    }
}

TEST(FindViewingRay, FindsTheRayOfARasterHoweverItIsTurned)
{
    const auto scan = support::RasterScan(support::Waves, 20.0F, 0.25F, 0.02F);
    std::mt19937 rng(47110815);
    for (int i = 0; i < 10; ++i) {
        const CTrafo pose = support::RandomPose(rng, 100.0F);
        const CScanView view(support::PointSet(support::Moved(scan, pose)));
        ASSERT_EQ(view.GetRay().eKind, ERay::Found);
        EXPECT_LT(degreesBetween(view.GetRay().direction, pose.Rotate({0, 0, 1})), 5.0);
        EXPECT_GT(view.GetRay().dRegularity, 0.9);
    }
}

TEST(FindViewingRay, GuessesWithoutARasterAndGivesUpOnAClosedSurface)
{
    const CScanView patch(support::PointSet(support::BumpySurface(20000, 1)));
    EXPECT_EQ(patch.GetRay().eKind, ERay::Guessed);
    EXPECT_LT(degreesBetween(patch.GetRay().direction, {0, 0, 1}), 20.0);
    EXPECT_EQ(patch.GetImages().size(), 5U);

    const CScanView ball(support::PointSet(support::BumpyBall({0, 0, 1}, 4.0F, 20000, 1)));
    EXPECT_EQ(ball.GetRay().eKind, ERay::None);
    EXPECT_FALSE(ball.HasImage());
    EXPECT_THROW((void)ball.GetImage(), std::logic_error);
    EXPECT_EQ(ball.GetTree().Size(), 20000U);
}

TEST(CScanView, TakesWhatIsKnownOfTheSensor)
{
    const auto set = support::PointSet(support::RasterScan(support::Waves, 20.0F, 0.25F));
    const CScanView fromPosition(set, {.position = Vector3(300, 0, 300)});
    EXPECT_EQ(fromPosition.GetRay().eKind, ERay::Given);
    EXPECT_NEAR(degreesBetween(fromPosition.GetRay().direction, {0, 0, 1}), 45.0, 1.0);
    EXPECT_FALSE(CScanView(set, {.isSurface = true}).HasImage());
}

TEST(CScanView, OfNothingHasNoImage)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const support::Surface hostile{{{0, 0, 0}, {nan, 0, 0}, {1, 1, 1}}, {{0, 0, 1}, {0, 0, 1}, {nan, nan, nan}}};
    EXPECT_EQ(CScanView(support::PointSet({})).GetNumPoints(), 0U);
    EXPECT_EQ(CScanView(support::PointSet(hostile)).GetNumPoints(), 2U);
    EXPECT_FALSE(CScanView(support::PointSet({{{5, 5, 5}}, {{0, 0, 1}}})).HasImage());
}

} // namespace
