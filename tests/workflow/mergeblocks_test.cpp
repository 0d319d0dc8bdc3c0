// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergeblocks.h"

#include "zorvan/runtime/cjobscheduler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace {

using namespace prereg;
using Trafos = CClusterRegistration::Trafos;

constexpr double dPlay = 0.5;

CTrafo at(float x)
{
    const double half = 0.15 * static_cast<double>(x);
    return {Quaternion(std::cos(half), 0, 0, std::sin(half)), {x, 2 * x, 0}};
}

UniversalUniqueID idOf(std::size_t k)
{
    char text[40];
    std::snprintf(text, sizeof text, "%04zx0000-0000-8000-8000-000000000000", k + 1);
    return UniversalUniqueID(text);
}

std::shared_ptr<const CFPFHPointSet> corner()
{
    const std::vector<kdtree::Vector<3>> points{{0, 0, 0}, {4, 0, 0}, {0, 3, 0}, {0, 0, 2}, {1, 1, 1}};
    const std::vector<kdtree::Vector<3>> normals(points.size(), {0, 0, 1});
    return std::make_shared<const CFPFHPointSet>(points, normals, points, normals,
                                                 std::vector<CPointFeatureHistogram>(points.size()));
}

/// Scans that follow each other in the list are likely to overlap, whatever their features.
void ExpectNeighboursLikely(std::span<const LooseScan> block, const LikelyScans& likely)
{
    std::vector<UniversalUniqueID> ids;
    for (std::size_t k = 0; k <= 3 * uiBlockScans; ++k) ids.push_back(idOf(k));
    ASSERT_EQ(likely.size(), block.size());
    for (std::size_t a = 0; a < block.size(); ++a) {
        for (const auto& [other, votes] : likely[a]) EXPECT_LT(other, block.size());
        for (std::size_t b = 0; b < block.size(); ++b) {
            const auto apart = std::ranges::find(ids, block[a].id) - std::ranges::find(ids, block[b].id);
            EXPECT_TRUE(likely[a].contains(b) || std::abs(apart) != 1) << a << " and " << b;
        }
    }
}

/// Scans on a way, each with its true pose.
class MergeBlocks : public testing::Test
{
protected:
    std::vector<LooseScan> Scans(std::size_t count)
    {
        std::vector<LooseScan> scans;
        for (std::size_t k = 0; k < count; ++k) scans.push_back({idOf(k), CTrafo::Invalid(), m_set});
        for (std::size_t k = 0; k < count; ++k) m_truth[idOf(k)] = at(static_cast<float>(k) / 10);
        return scans;
    }

    /// In the frame of the first of them.
    [[nodiscard]] Trafos Cluster(std::size_t first, std::size_t last) const
    {
        Trafos cluster;
        for (std::size_t k = first; k < last; ++k)
            cluster[idOf(k)] = m_truth.at(idOf(first)).GetInverse(true) * m_truth.at(idOf(k));
        return cluster;
    }

    void ExpectRight(const Trafos& cluster) const
    {
        const auto& [anchor, pose] = *cluster.begin();
        const CTrafo toTruth = m_truth.at(anchor) * pose.GetInverse(true);
        for (const auto& [id, placed] : cluster) {
            const CTrafo here = toTruth * placed;
            EXPECT_LT((here.GetTranslation() - m_truth.at(id).GetTranslation()).Length(), 1e-3F);
            EXPECT_LT(here.GetRotationDistance(m_truth.at(id)), 1e-3F);
        }
    }

    std::shared_ptr<const CFPFHPointSet> m_set = corner();
    std::map<UniversalUniqueID, CTrafo> m_truth;
};

TEST_F(MergeBlocks, JoinsWhatAgreesOnSharedScans)
{
    const auto scans = Scans(12);
    const std::vector<Trafos> clusters{Cluster(0, 5), Cluster(7, 12), Cluster(3, 8)};
    const auto joined = JoinSharing(clusters, scans, dPlay);
    ASSERT_EQ(joined.size(), 1U);
    EXPECT_EQ(joined.front().size(), 12U);
    ExpectRight(joined.front());
}

TEST_F(MergeBlocks, LeavesApartWhatContradictsItself)
{
    const auto scans = Scans(10);
    Trafos wrong = Cluster(3, 10);
    for (const std::size_t k : {std::size_t{4}, std::size_t{5}}) // each shared scan says something else
        wrong[idOf(k)] = wrong[idOf(k)].Translate({0, 0, static_cast<float>(k)});
    const auto joined = JoinSharing(std::vector<Trafos>{Cluster(0, 6), wrong}, scans, dPlay);
    ASSERT_EQ(joined.size(), 2U);
    EXPECT_EQ(joined[0].size(), 6U);
    EXPECT_EQ(joined[1].size(), 4U) << "the shared scans stay where they were first";
    for (const Trafos& cluster : joined) ExpectRight(cluster);
}

TEST_F(MergeBlocks, TakesEachScanAndChainsTheBlocks)
{
    const std::size_t count = 3 * uiBlockScans + 1;
    const auto scans = Scans(count);
    for (const unsigned threads : {1U, 2U, 8U}) {
        Zorvan::CJobScheduler scheduler(threads);
        std::mutex mutex;
        std::map<UniversalUniqueID, int> times;
        const auto merge = [&](std::span<const LooseScan> block, const LikelyScans& likely, const Zorvan::Hooks&) {
            const std::lock_guard lock(mutex);
            EXPECT_LE(block.size(), uiBlockScans);
            ExpectNeighboursLikely(block, likely);
            Trafos cluster;
            for (const LooseScan& scan : block) {
                ++times[scan.id];
                cluster[scan.id] = m_truth.at(block.front().id).GetInverse(true) * m_truth.at(scan.id);
            }
            return std::vector<Trafos>{cluster};
        };
        const auto nothing = [](const auto&, const auto&, const auto&) { return CTrafo::Invalid(); };
        ConfigurationFPFH config;
        config.icpConfig.dMinQueryRadius = dPlay;
        const auto merged =
            MergeInBlocks(scans, merge, nothing, config, scheduler.CreateJobGroup({}, {}), Zorvan::Hooks::None());
        EXPECT_EQ(times.size(), count);
        ASSERT_EQ(merged.size(), 1U);
        EXPECT_EQ(merged.front().size(), count);
        ExpectRight(merged.front());
    }
}

/// Each scan with the next `reach` ones, more votes for nearer ones.
LikelyScans chain(std::size_t count, std::size_t reach)
{
    LikelyScans likely(count);
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t k = 1; k <= reach && i + k < count; ++k)
            likely[i][i + k] = likely[i + k][i] = 100.0 / static_cast<double>(k);
    return likely;
}

TEST_F(MergeBlocks, LinksClustersByTwoOfTheirScans)
{
    const auto scans = Scans(20);
    std::vector<Trafos> clusters{Cluster(0, 6), Cluster(8, 14), Cluster(14, 19)};
    for (auto& [id, pose] : clusters[1]) pose = at(7) * pose; // a frame that is none of its scans'
    for (const unsigned threads : {1U, 8U}) {
        Zorvan::CJobScheduler scheduler(threads);
        // Neighbours 5 and 6 share nothing; 19 has no place.
        const auto search = [&](const LooseScan& fix, const LooseScan& flt, const Zorvan::Hooks&) {
            const bool isApart = (fix.id == idOf(5) && flt.id == idOf(6)) || flt.id == idOf(19);
            return isApart ? CTrafo::Invalid() : m_truth.at(fix.id).GetInverse(true) * m_truth.at(flt.id);
        };
        const auto linked =
            LinkLikely(clusters, scans, chain(20, 2), search, scheduler.CreateJobGroup({}, {}), Zorvan::Hooks::None());
        ASSERT_EQ(linked.size(), 1U);
        EXPECT_EQ(linked.front().size(), 19U);
        ExpectRight(linked.front());
    }
}

TEST_F(MergeBlocks, GivesUpOnClustersThatHaveNothingInCommon)
{
    const std::size_t count = 40;
    const auto scans = Scans(count);
    LikelyScans likely(count);
    for (std::size_t a = 0; a < count / 2; ++a)
        for (std::size_t b = count / 2; b < count; ++b) likely[a][b] = likely[b][a] = 10.0;
    Zorvan::CJobScheduler scheduler(2);
    std::atomic<unsigned> searches = 0;
    const auto nothing = [&](const auto&, const auto&, const auto&) {
        ++searches;
        return CTrafo::Invalid();
    };
    const std::vector<Trafos> clusters{Cluster(0, count / 2), Cluster(count / 2, count)};
    const auto group = scheduler.CreateJobGroup({}, {});
    EXPECT_EQ(LinkLikely(clusters, scans, likely, nothing, group, Zorvan::Hooks::None()).size(), 2U);
    EXPECT_GT(searches, 0U);
    EXPECT_LT(searches, count) << "and not each of 400 pairs";
}

} // namespace
