// SPDX-License-Identifier: MIT
#include "zorvan/workflow/likelyscans.h"

#include "zorvan/runtime/cjobscheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <set>

namespace {

using namespace prereg;

constexpr std::size_t uiScanFeatures = 30;
constexpr std::size_t uiStep = 12; ///< features from one scan to the next: each shares features with the next two

CPointFeatureHistogram randomFeature(std::mt19937& random)
{
    std::uniform_real_distribution<float> bin(0.0F, 1.0F);
    CPointFeatureHistogram::Bins bins{};
    for (float& value : bins) value = bin(random);
    return CPointFeatureHistogram(bins);
}

/// Scans along a strip of surface with a feature each millimetre; each scan sees them a little otherwise.
class LikelyStrip : public testing::Test
{
protected:
    explicit LikelyStrip(std::size_t count = 60) : m_places(count)
    {
        std::iota(m_places.begin(), m_places.end(), std::size_t{0});
        std::shuffle(m_places.begin(), m_places.end(), m_random);
        std::vector<CPointFeatureHistogram> surface;
        for (std::size_t i = 0; i < count * uiStep + uiScanFeatures; ++i) surface.push_back(randomFeature(m_random));
        for (const std::size_t place : m_places) m_scans.push_back(scan(surface, place));
    }

    [[nodiscard]] LikelyScans Find(unsigned threads) const
    {
        std::vector<const CFPFHPointSet*> sets;
        for (const auto& one : m_scans) sets.push_back(one.get());
        Zorvan::CJobScheduler scheduler(threads);
        return FindLikelyScans(sets, 1.0, scheduler.CreateJobGroup({}, {}));
    }

    [[nodiscard]] bool AreNeighbours(std::size_t a, std::size_t b) const
    {
        return std::max(m_places[a], m_places[b]) - std::min(m_places[a], m_places[b]) <= 2;
    }

    std::mt19937 m_random{17};
    std::vector<std::size_t> m_places;
    std::vector<std::shared_ptr<const CFPFHPointSet>> m_scans;

private:
    std::shared_ptr<const CFPFHPointSet> scan(const std::vector<CPointFeatureHistogram>& surface, std::size_t place)
    {
        std::vector<kdtree::Vector<3>> points;
        std::vector<CPointFeatureHistogram> features;
        for (std::size_t i = 0; i < uiScanFeatures; ++i) {
            points.emplace_back(static_cast<float>(i), 0.0F, 0.0F);
            features.push_back(surface[place * uiStep + i]);
            features.back().Add(randomFeature(m_random), 0.05F);
        }
        const std::vector<kdtree::Vector<3>> normals(points.size(), {0, 0, 1});
        return std::make_shared<const CFPFHPointSet>(points, normals, points, normals, features);
    }
};

TEST_F(LikelyStrip, FindsNeighboursInAnyOrderOfTheList)
{
    const LikelyScans likely = Find(1);
    std::size_t strangers = 0;
    for (std::size_t a = 0; a < likely.size(); ++a) {
        const auto best = std::ranges::max_element(likely[a], {}, [](const auto& other) { return other.second; });
        ASSERT_NE(best, likely[a].end());
        EXPECT_TRUE(AreNeighbours(a, best->first)) << a;
        for (const auto& [b, votes] : likely[a]) {
            EXPECT_EQ(votes, likely[b].at(a));
            strangers += !AreNeighbours(a, b) && std::max(a, b) - std::min(a, b) > 1;
        }
    }
    EXPECT_LE(strangers, likely.size() / 10) << "others are not worth a search";
    for (const unsigned threads : {2U, 8U}) EXPECT_EQ(Find(threads), likely);
}

TEST_F(LikelyStrip, BlocksGrowByLikelyScansAndShareSome)
{
    const LikelyScans likely = Find(1);
    std::set<std::size_t> placed;
    for (const auto& block : GrowBlocks(likely, 16, 4)) {
        EXPECT_LE(block.size(), 16U);
        const auto isPlaced = [&](std::size_t scan) { return placed.contains(scan); };
        const auto numShared = static_cast<std::size_t>(std::ranges::count_if(block, isPlaced));
        EXPECT_LE(numShared, 4U);
        EXPECT_EQ(numShared > 0, !placed.empty());
        for (std::size_t i = 1; i < block.size(); ++i) {
            const auto isLikely = [&](std::size_t before) { return likely[block[i]].contains(before); };
            EXPECT_TRUE(std::any_of(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(i), isLikely));
        }
        placed.insert(block.begin(), block.end());
    }
    EXPECT_EQ(placed.size(), likely.size());
}

/// Features that tell nothing leave the order of the list.
TEST(LikelyScans, WithoutDistinctFeaturesNeighboursInTheListComeFirst)
{
    const CFPFHPointSet set; // a scan without features
    const std::vector<const CFPFHPointSet*> sets(10, &set);
    Zorvan::CJobScheduler scheduler(2);
    const auto blocks = GrowBlocks(FindLikelyScans(sets, 1.0, scheduler.CreateJobGroup({}, {})), 4, 1);
    const std::vector<std::vector<std::size_t>> expected{{0, 1, 2, 3}, {3, 4, 5, 6}, {6, 7, 8, 9}};
    EXPECT_EQ(blocks, expected);
}

} // namespace
