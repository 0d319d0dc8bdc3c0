// SPDX-License-Identifier: MIT
#include "zorvan/verdict/settleamong.h"

#include "tests/verdict/rasterscans.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

namespace {

using namespace prereg;
using support::HeightField;
using support::RasterScan;
using support::Vector3;

constexpr float fSpacing = 0.3F;
constexpr float fAway = 6 * fSpacing;

/// The same surface, seen by four scanners; the last scan is to be settled among the others.
class CScans
{
public:
    explicit CScans(const HeightField& height)
    {
        for (std::uint32_t seed = 1; seed <= 4; ++seed) {
            const support::Surface scan = RasterScan(height, 16.0F, fSpacing, 0.02F, seed);
            m_sets.emplace_back(scan.points.data(), scan.normals.data(), scan.points.size());
            m_views.push_back(std::make_unique<CScanView>(m_sets.back(), SensorKnowledge{false, {}, Vector3(0, 0, 1)}));
        }
        for (std::size_t k = 0; k < 3; ++k) {
            const bool isFixed = k != 1; // either way round
            m_judges.push_back(std::make_unique<CPoseJudge>(*m_views[isFixed ? k : 3], *m_views[isFixed ? 3 : k]));
            m_others.push_back({m_judges.back().get(), Frame(), isFixed});
        }
    }
    /// Of the three others.
    [[nodiscard]] static CTrafo Frame() { return {Vector3(0.6F, 0, 0.8F), 0.7F, Vector3(3, -2, 5)}; }
    [[nodiscard]] PoseAmong Settle(const CTrafo& start) const
    {
        const std::vector<PoseAmong> settled = SettleAll({start});
        return settled.empty() ? PoseAmong() : settled.front();
    }
    [[nodiscard]] std::vector<PoseAmong> SettleAll(std::vector<CTrafo> starts, unsigned uiNumTasks = 1) const
    {
        for (CTrafo& start : starts) start = Frame() * start;
        return SettleAmong(m_others, starts, fAway, uiNumTasks);
    }
    [[nodiscard]] double Error(const CTrafo& pose) const
    {
        return DistanceOfPoses(*m_views[3], Frame().GetInverse(true) * pose, CTrafo());
    }

private:
    std::list<CPointSet> m_sets;
    std::vector<std::unique_ptr<CScanView>> m_views;
    std::vector<std::unique_ptr<CPoseJudge>> m_judges;
    std::vector<ScanBeside> m_others;
};

/// Slides along its ridge; ends in slanted lines, as straight ones along the raster might be where a sensor's view
/// ends.
float roof(float x, float y)
{
    const bool isInside = std::abs(x + 0.3F * y) < 9 && std::abs(y - 0.4F * x) < 10 && !(x > 1 && y > 2 + 0.2F * x);
    return isInside ? -0.4F * std::abs(x) : NAN;
}

/// Turns about its tip.
float cone(float x, float y) { return std::hypot(x, y) < 11 ? -0.4F * std::hypot(x, y) : NAN; }

TEST(SettleAmong, FindsWhereASlidingFaceEnds)
{
    const CScans scans(roof);
    for (const float shift : {1.5F, -1.5F, 0.5F}) {
        const PoseAmong settled = scans.Settle(CTrafo().Translate(Vector3(0, shift, 0)));
        EXPECT_LT(scans.Error(settled.pose), fSpacing) << shift;
        EXPECT_LT(settled.counts.Contradictions(), 10U) << shift;
        EXPECT_GT(settled.beside.Contradictions(), 40U) << shift;
    }
}

TEST(SettleAmong, SaysThatAPlaceBesideExplainsAsMuch)
{
    const PoseAmong turned = CScans(cone).Settle(CTrafo(Vector3(0, 0, 1), 0.1F, Vector3()));
    EXPECT_LT(turned.counts.Contradictions(), 5U);
    EXPECT_LT(turned.beside.Contradictions(), 5U);
}

TEST(SettleAmong, GivesEachPlaceThatMayBeOnceForAnyNumberOfTasks)
{
    const CScans scans(roof);
    const CTrafo turned(Vector3(0, 0, 1), 3.14159265F, Vector3());
    const std::vector<CTrafo> starts{CTrafo().Translate(Vector3(0, 1.2F, 0)), CTrafo::Invalid(), turned,
                                     CTrafo().Translate(Vector3(0, -0.9F, 0))};
    const std::vector<PoseAmong> settled = scans.SettleAll(starts);
    ASSERT_EQ(settled.size(), 1U) << "turned by half, hardly anything fits";
    EXPECT_LT(scans.Error(settled[0].pose), 2 * fSpacing);
    const std::vector<PoseAmong> sideBySide = scans.SettleAll(starts, 3);
    ASSERT_EQ(sideBySide.size(), 1U);
    EXPECT_EQ(sideBySide[0].counts, settled[0].counts);
    const std::vector<CTrafo> turns{CTrafo(Vector3(0, 0, 1), 0.1F, Vector3()),
                                    CTrafo(Vector3(0, 0, 1), 0.6F, Vector3())};
    EXPECT_EQ(CScans(cone).SettleAll(turns).size(), 2U);
    EXPECT_TRUE(SettleAmong({}, starts, fAway, 1).empty());
}

} // namespace
