// SPDX-License-Identifier: MIT
#include "zorvan/verdict/disputedspots.h"

#include "tests/verdict/sphereobject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <list>
#include <vector>

namespace {

using namespace prereg;
using support::Vector3;

/// Views of a ball of 12 mm from directions about z, each of which may lose points.
class CBall
{
public:
    using IsLost = std::function<bool(const Vector3& point)>; ///< in the frame of the ball

    /// @param axis  in the equator, to turn the ball about
    void See(float degrees, const IsLost& isLost, const Vector3& axis = {0, 1, 0})
    {
        const CTrafo toScan(axis, degrees * 0.01745329F, Vector3());
        const CTrafo pose = toScan.GetInverse(true);
        const support::Surface all =
            support::ScanSpheres({{{0, 0, 0}, 12}}, toScan, 0.3F, 0.01F, static_cast<std::uint32_t>(m_views.size()));
        support::Surface scan;
        for (std::size_t i = 0; i < all.points.size(); ++i) {
            if (isLost(pose * all.points[i])) continue;
            scan.points.push_back(all.points[i]);
            scan.normals.push_back(all.normals[i]);
        }
        add(scan, pose);
    }

    /// The inside of it, a ball of 9 mm, with or without a piece of the outside above its top.
    void SeeInside(float degrees, bool hasLug)
    {
        const CTrafo pose = CTrafo({0, 1, 0}, degrees * 0.01745329F, Vector3()).GetInverse(true);
        const auto height = [&](float x, float y) {
            const float flat = x * x + y * y;
            const Vector3 outside(x, y, std::sqrt(std::max(0.0F, 144.0F - flat)));
            if (hasLug && (pose * outside - Vector3(0, 0, 12)).Length() < 3.0F) return outside.z;
            return flat < 78.0F ? std::sqrt(81.0F - flat) : NAN;
        };
        const auto seed = static_cast<std::uint32_t>(m_views.size());
        add(support::RasterScan(height, 25.0F, 0.3F, 0.01F, seed), pose);
    }

    [[nodiscard]] std::vector<DisputedSpot> Find() const
    {
        constexpr std::size_t uiMatched = 1000; // of some 800 samples of each view
        std::vector<ViewPair> pairs;
        for (std::size_t b = 0; b < m_placed.size(); ++b)
            for (std::size_t a = 0; a < b; ++a) pairs.push_back({a, b, uiMatched});
        return FindDisputedSpots(m_placed, pairs);
    }

private:
    void add(const support::Surface& scan, const CTrafo& pose)
    {
        m_views.emplace_back(support::PointSet(scan), SensorKnowledge{false, {}, Vector3(0, 0, 1)});
        m_placed.push_back({&m_views.back(), pose});
    }

    std::list<CScanView> m_views;
    std::vector<PlacedView> m_placed;
};

CBall::IsLost within(const Vector3& middle, float radius)
{
    return [middle, radius](const Vector3& p) { return (p - middle).Length() < radius; };
}

const Vector3 top(0, 0, 12);

TEST(DisputedSpots, FindsTheHoleOfATwin)
{
    CBall ball;
    for (int k = 0; k < 8; ++k) ball.See(-35.0F + 10.0F * static_cast<float>(k), within(top, k % 2 == 1 ? 3.0F : 0.0F));
    const auto spots = ball.Find();
    ASSERT_EQ(spots.size(), 1U);
    EXPECT_EQ(spots[0].showing, (std::vector<std::size_t>{0, 2, 4, 6}));
    EXPECT_EQ(spots[0].lacking, (std::vector<std::size_t>{1, 3, 5, 7}));
    EXPECT_LT((spots[0].middle - top).Length(), 1.0F);
    EXPECT_NEAR(spots[0].dWidth, 6.0, 1.5);
}

// Where the others look through it they need not show what is about it.
TEST(DisputedSpots, FindsTheLugOfATwin)
{
    CBall ball;
    for (int k = 0; k < 8; ++k) ball.SeeInside(-14.0F + 4.0F * static_cast<float>(k), k % 2 == 0);
    const auto spots = ball.Find();
    ASSERT_EQ(spots.size(), 1U);
    EXPECT_EQ(spots[0].showing, (std::vector<std::size_t>{0, 2, 4, 6}));
    EXPECT_EQ(spots[0].lacking, (std::vector<std::size_t>{1, 3, 5, 7}));
    EXPECT_EQ(spots[0].sights[1].uiThrough, spots[0].uiSamples);
}

TEST(DisputedSpots, AreNoneWhereOneSideIsASingleView)
{
    for (const bool isHoleCommon : {false, true}) {
        CBall ball;
        for (int k = 0; k < 8; ++k)
            ball.See(-35.0F + 10.0F * static_cast<float>(k), within(top, (k == 3) != isHoleCommon ? 3.0F : 0.0F));
        EXPECT_TRUE(ball.Find().empty()) << isHoleCommon;
    }
}

TEST(DisputedSpots, AreNoneWhereItIsAMatterOfWhereTheyStand)
{
    CBall bySteepness;
    CBall bySide;
    for (int k = 0; k < 8; ++k) {
        const Vector3 axis(std::cos(1.57F * static_cast<float>(k / 2)), std::sin(1.57F * static_cast<float>(k / 2)), 0);
        bySteepness.See(k % 2 == 0 ? 15.0F : 40.0F, within(top, k % 2 == 0 ? 0.0F : 3.0F), axis);
        const float degrees = -35.0F + 10.0F * static_cast<float>(k);
        bySide.See(degrees, within(top, degrees > 0.0F ? 3.0F : 0.0F));
    }
    EXPECT_TRUE(bySteepness.Find().empty());
    EXPECT_TRUE(bySide.Find().empty());
}

TEST(DisputedSpots, AreNoneWhereLossesOverlap)
{
    CBall ball;
    for (int k = 0; k < 8; ++k) {
        const bool isLacking = k % 2 == 1 && k < 7;
        const float side = 2.1F * static_cast<float>(k / 2);
        const Vector3 beside(2.5F * std::cos(side), 2.5F * std::sin(side), 11.7F);
        ball.See(-35.0F + 10.0F * static_cast<float>(k), within(beside, isLacking ? 5.0F : 0.0F));
    }
    EXPECT_TRUE(ball.Find().empty());
}

TEST(DisputedSpots, AreNoneWhereSurfaceEnds)
{
    CBall ball; // every second view is of its lower half
    for (int k = 0; k < 8; ++k) {
        const auto isBeyond = [k](const Vector3& p) { return k % 2 == 1 && p.y > 0.1F * p.x * p.x - 2.0F; };
        ball.See(-35.0F + 10.0F * static_cast<float>(k), isBeyond);
    }
    EXPECT_TRUE(ball.Find().empty());
}

TEST(DisputedSpots, AreNoneWhereViewsLoseAsMuchElsewhere)
{
    CBall ball; // two lack the top, and each view four more spots of its own
    for (int k = 0; k < 8; ++k) {
        const bool isLacking = k == 2 || k == 5;
        ball.See(-35.0F + 10.0F * static_cast<float>(k), [=](const Vector3& p) {
            for (int i = 0; i < 4; ++i) {
                const auto x = static_cast<float>((8 * i + k) % 16) - 8.0F;
                const float y = i % 2 == 0 ? 6.0F : -6.0F;
                if (std::hypot(p.x - x, p.y - y) < 2.0F) return true;
            }
            return isLacking && (p - top).Length() < 3.0F;
        });
    }
    EXPECT_TRUE(ball.Find().empty());
}

// The rule of the steepness counts views: one of the other kind on either side is not enough.
TEST(DisputedSpots, AreNoneWhereASingleViewLooksAsSquarelyAsTheOtherSide)
{
    for (const bool isOddLacking : {false, true}) {
        CBall ball;
        for (int k = 0; k < 8; ++k) {
            const float side = 1.57F * static_cast<float>(k / 2);
            const bool isLacking = k % 2 == 1;
            const bool isOdd = k == (isOddLacking ? 3 : 2);
            const bool isSteep = isLacking == isOdd;
            ball.See(isSteep ? 15.0F : 40.0F, within(top, isLacking ? 3.0F : 0.0F),
                     Vector3(std::cos(side), std::sin(side), 0));
        }
        EXPECT_TRUE(ball.Find().empty()) << isOddLacking;
    }
}

TEST(DisputedSpots, AreNoneNarrowerThanWhatEdgesErrBy)
{
    CBall ball;
    for (int k = 0; k < 8; ++k) ball.See(-35.0F + 10.0F * static_cast<float>(k), within(top, k % 2 == 1 ? 1.5F : 0.0F));
    EXPECT_TRUE(ball.Find().empty());
}

// What is about it nobody shows: some views have lost more than others, who knows how much.
TEST(DisputedSpots, AreNoneOnAnIslandOfSurface)
{
    CBall ball;
    for (int k = 0; k < 8; ++k) {
        ball.See(-7.0F + 2.0F * static_cast<float>(k), [k](const Vector3& p) {
            const float away = (p - top).Length();
            return away < 8.0F && (away > 3.0F || k % 2 == 1);
        });
    }
    EXPECT_TRUE(ball.Find().empty());
}

// Of a gap that goes on to where nothing was seen nobody knows how wide it is.
TEST(DisputedSpots, HaveViewsWithAnOpenGapOnNeitherSide)
{
    CBall ball; // 1, 5 and 9 have a hole, 3, 7 and 11 a larger one with a way out
    for (int k = 0; k < 12; ++k) {
        ball.See(-22.0F + 4.0F * static_cast<float>(k), [k](const Vector3& p) {
            const bool isOnWay = p.z > 0 && p.x > 0.0F && std::abs(p.y) < 0.9F;
            if (k % 4 == 3) return (p - top).Length() < 4.0F || isOnWay;
            return k % 4 == 1 && (p - top).Length() < 3.0F;
        });
    }
    const auto spots = ball.Find();
    ASSERT_EQ(spots.size(), 1U);
    EXPECT_EQ(spots[0].showing, (std::vector<std::size_t>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(spots[0].lacking, (std::vector<std::size_t>{1, 5, 9}));
    EXPECT_EQ(spots[0].unclear, (std::vector<std::size_t>{3, 7, 11}));
    EXPECT_NEAR(spots[0].dWidth, 6.0, 1.5);
}

TEST(DisputedSpots, HaveViewsThatShowAPartOfItOnNeitherSide)
{
    CBall ball; // 1, 5 and 9 have a hole, 3, 7 and 11 one in the middle of it; 12 and 13 see it from the side
    for (int k = 0; k < 12; ++k) {
        const float radius = k % 2 == 0 ? 0.0F : k % 4 == 1 ? 4.0F : 2.0F;
        ball.See(-22.0F + 4.0F * static_cast<float>(k), within(top, radius));
    }
    for (const float degrees : {-80.0F, 80.0F}) ball.See(degrees, within(top, 0.0F));
    const auto spots = ball.Find();
    ASSERT_EQ(spots.size(), 1U);
    EXPECT_EQ(spots[0].showing, (std::vector<std::size_t>{0, 2, 4, 6, 8, 10}));
    EXPECT_EQ(spots[0].lacking, (std::vector<std::size_t>{1, 5, 9}));
    EXPECT_EQ(spots[0].unclear, (std::vector<std::size_t>{3, 7, 11, 12, 13}));
    ASSERT_EQ(spots[0].sights.size(), 14U);
    EXPECT_EQ(spots[0].sights[0].uiSurface, spots[0].uiSamples);
    EXPECT_GE(spots[0].sights[1].uiOpen, 0.95 * static_cast<double>(spots[0].uiSamples));
    EXPECT_GT(spots[0].sights[3].uiSurface, 0.5 * static_cast<double>(spots[0].uiSamples));
    EXPECT_GT(spots[0].sights[3].uiLost, 0U);
}

} // namespace
