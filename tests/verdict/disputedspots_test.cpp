// SPDX-License-Identifier: MIT
#include "zorvan/verdict/disputedspots.h"

#include "tests/verdict/sphereobject.h"

#include <gtest/gtest.h>

#include <cmath>
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
        m_views.emplace_back(support::PointSet(scan), SensorKnowledge{false, {}, Vector3(0, 0, 1)});
        m_placed.push_back({&m_views.back(), pose});
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

} // namespace
