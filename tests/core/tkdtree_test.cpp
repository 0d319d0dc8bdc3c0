// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/platform/cpufeatures.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

using support::Cloud;
using support::Vector3;
using Tree = Zorvan::TKdTree<3, 48>;
using Zorvan::IndexAndDist;
using Zorvan::NearestQuery;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

NearestQuery nearest(const Tree& tree, const Vector3& q, float radiusSq)
{
    NearestQuery query{q, -1, radiusSq};
    tree.FindNearest(query);
    return query;
}

float nearestByScan(const Cloud& cloud, const Vector3& q, float radiusSq)
{
    for (const auto& p : cloud.points) {
        if (const float d = kdtree::DistanceSq(p, q); d < radiusSq) radiusSq = d;
    }
    return radiusSq;
}

std::vector<unsigned> ballByScan(const Cloud& cloud, const Vector3& q, float radiusSq)
{
    std::vector<unsigned> inside;
    for (unsigned i = 0; i < cloud.points.size(); ++i) {
        if (cloud.points[i].IsFinite() && kdtree::DistanceSq(cloud.points[i], q) <= radiusSq) inside.push_back(i);
    }
    return inside;
}

// The searches on every width of vector unit against looking at every point.
class TreeClouds : public testing::TestWithParam<std::tuple<Cloud, Zorvan::ESimd>>
{
protected:
    ~TreeClouds() override { Zorvan::LimitSimd(m_before); }

    const Zorvan::ESimd m_before = Zorvan::LimitSimd(std::get<1>(GetParam()));
    const Cloud m_cloud = std::get<0>(GetParam());
    const Tree m_tree{m_cloud.points.data(), m_cloud.points.size()};
    const std::vector<Vector3> m_queries = support::QueriesAround(m_cloud, 400);
};

TEST_P(TreeClouds, NearestAgreesWithLookingAtEveryPoint)
{
    int found = 0;
    for (const auto& q : m_queries) {
        for (const float radiusSq : {0.04F, 4.0F, std::numeric_limits<float>::infinity()}) {
            const NearestQuery query = nearest(m_tree, q, radiusSq);
            const float expected = nearestByScan(m_cloud, q, radiusSq);
            ASSERT_EQ(query.distSq, expected);
            ASSERT_EQ(query.index >= 0, expected < radiusSq);
            if (query.index < 0) continue;
            ASSERT_EQ(kdtree::DistanceSq(m_cloud.points[static_cast<std::size_t>(query.index)], q), expected);
            ++found;
        }
    }
    EXPECT_GT(found, 100);
}

TEST_P(TreeClouds, NextPointAgreesWithLookingAtEveryPoint)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    int found = 0;
    for (const auto& q : m_queries) {
        if (!q.IsFinite()) continue;
        std::vector<float> all;
        for (const auto& p : m_cloud.points)
            if (p.IsFinite()) all.push_back(kdtree::DistanceSq(p, q));
        std::sort(all.begin(), all.end());
        for (const float radius : {0.2F, 2.0F, infinity}) {
            for (const float slack : {0.0F, 0.1F, infinity}) {
                NearestQuery query{q, -1, radius * radius};
                const float next = m_tree.FindNearestAndNext(query, slack);
                ASSERT_EQ(query.index, nearest(m_tree, q, radius * radius).index);
                const bool isFound = query.index >= 0;
                const float farthest = (isFound ? std::sqrt(query.distSq) : radius) + slack;
                const std::size_t other = isFound ? 1 : 0;
                const float expected = std::min(all.size() > other ? all[other] : infinity, farthest * farthest);
                ASSERT_EQ(next, expected) << radius << " and " << slack;
                found += static_cast<int>(isFound);
            }
        }
    }
    EXPECT_GT(found, 300);
}

TEST_P(TreeClouds, BallAgreesWithLookingAtEveryPoint)
{
    std::vector<unsigned> found = {77};
    for (const auto& q : m_queries) {
        for (const float radiusSq : {0.0F, 0.25F, 25.0F, 1e12F}) {
            found.resize(1);
            m_tree.FindInBall(found, {q, radiusSq});
            ASSERT_EQ(found.front(), 77U) << "what the caller had stays";
            std::sort(found.begin() + 1, found.end());
            ASSERT_EQ(std::vector<unsigned>(found.begin() + 1, found.end()), ballByScan(m_cloud, q, radiusSq));
        }
    }
}

TEST_P(TreeClouds, NearestToALineIsTheFirstBestOfTheBall)
{
    std::mt19937 rng(3);
    int found = 0;
    for (const auto& q : m_queries) {
        const Vector3 direction = support::RandomDirection(rng) * 1.5F;
        for (const float radiusSq : {0.25F, 25.0F, 1e12F}) {
            std::vector<unsigned> ball;
            m_tree.FindInBall(ball, {q, radiusSq});
            int expected = -1;
            float smallest = std::numeric_limits<float>::infinity();
            for (const unsigned i : ball) {
                const float d = kdtree::Cross(m_cloud.points[i] - q, direction).LengthSq();
                if (!(d < smallest)) continue;
                smallest = d;
                expected = static_cast<int>(i);
            }
            ASSERT_EQ(m_tree.FindNearestToLine({q, radiusSq}, direction), expected);
            found += expected >= 0;
        }
    }
    EXPECT_GT(found, 100);
}

TEST_P(TreeClouds, KNearestAreSortedTrueDistancesWithinTheRadius)
{
    std::vector<IndexAndDist> found;
    for (const auto& q : m_queries) {
        for (const int k : {0, 1, 5, 60}) {
            m_tree.FindKNearest(q, found, k, 4.0F);
            ASSERT_LE(found.size(), static_cast<std::size_t>(k));
            float last = 0.0F;
            for (const auto& [index, distSq] : found) {
                ASSERT_EQ(distSq, kdtree::DistanceSq(m_cloud.points[index], q));
                ASSERT_LE(last, distSq);
                ASSERT_LE(distSq, 4.0F);
                last = distSq;
            }
            // The first is the nearest of all: only the later ones may be missed.
            const float expected = nearestByScan(m_cloud, q, 4.0F);
            if (k == 0 || expected >= 4.0F) continue;
            ASSERT_EQ(found.front().distSq, expected);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(TKdTree, TreeClouds,
                         testing::Combine(testing::ValuesIn(support::HardClouds()),
                                          testing::Values(Zorvan::ESimd::Baseline, Zorvan::ESimd::Avx)),
                         [](const auto& test) {
                             std::string name = std::get<0>(test.param).name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name + "_" + Zorvan::NameOf(std::get<1>(test.param));
                         });

TEST(TKdTree, LeavesOutPointsThatAreNotFinite)
{
    auto cloud = support::HardClouds().front();
    cloud.points.resize(100);
    for (const std::size_t i : {0U, 50U, 99U}) cloud.points[i].y = nan;
    const Tree tree(cloud.points.data(), 100);
    EXPECT_EQ(tree.Size(), 97U);
    auto permutation = tree.GetPermutation();
    std::sort(permutation.begin(), permutation.end());
    EXPECT_FALSE(std::binary_search(permutation.begin(), permutation.end(), 50U));

    const std::vector<Vector3> none(60, Vector3(nan, 0, 0));
    EXPECT_TRUE(Tree(none.data(), none.size()).Empty());
    EXPECT_TRUE(Tree(nullptr, 5).Empty());
    EXPECT_EQ(nearest(Tree(), Vector3(), 1.0F).index, -1);
}

TEST(TKdTree, HoldsMassesOfEqualPoints)
{
    const std::vector<Vector3> same(1000, Vector3(1, 2, 3));
    const Tree tree(same.data(), same.size());
    EXPECT_EQ(tree.GetMemUsage(), 1000 * 20 + 32 + 80U) << "one leaf";
    EXPECT_GE(nearest(tree, Vector3(1, 2, 4), 1.001F).index, 0);
}

TEST(TKdTree, RadiusIsStrictForTheNearestAndNotForTheBall)
{
    const Vector3 point(3, 0, 0);
    const Tree tree(&point, 1);
    EXPECT_EQ(nearest(tree, Vector3(), 9.0F).index, -1);
    EXPECT_EQ(nearest(tree, Vector3(), std::nextafter(9.0F, 10.0F)).index, 0);
    EXPECT_EQ(nearest(tree, point, 0.0F).index, -1);
    std::vector<unsigned> found;
    tree.FindInBall(found, {Vector3(), 9.0F});
    EXPECT_THAT(found, testing::ElementsAre(0U));
}

TEST(TKdTree, BallGivesTreeOrder)
{
    const auto cloud = support::HardClouds().front();
    const Tree tree(cloud.points.data(), cloud.points.size());
    std::vector<unsigned> found;
    tree.FindInBall(found, {Vector3(1, 1, 1), 36.0F});
    std::vector<std::size_t> positions;
    const auto& order = tree.GetPermutation();
    for (const unsigned i : found)
        positions.push_back(static_cast<std::size_t>(std::find(order.begin(), order.end(), i) - order.begin()));
    EXPECT_GT(found.size(), 300U);
    EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end()));
}

TEST(TKdTree, KNearestInHistogramSpaceFindsTheNearest)
{
    using Row = kdtree::Vector<33>;
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> draw(0.0F, 100.0F);
    std::vector<Row> rows(9000);
    for (auto& row : rows) std::generate(row.data.begin(), row.data.end(), [&] { return draw(rng); });
    rows[4].data[7] = nan;
    const Zorvan::TKdTree<33, 4096> tree(rows.data(), rows.size());
    EXPECT_EQ(tree.Size(), 8999U);

    const auto distanceSq = [](const Row& a, const Row& b) {
        float sum = 0;
        for (unsigned d = 0; d < 33; ++d) sum += (a[d] - b[d]) * (a[d] - b[d]);
        return sum;
    };
    std::vector<IndexAndDist> found;
    for (std::size_t i = 100; i < 120; ++i) {
        Row q = rows[i];
        q[3] += 5.0F;
        tree.FindKNearest(q, found, 3, 1e9F);
        ASSERT_EQ(found.size(), 3U);
        EXPECT_EQ(found.front().index, i);
        for (const auto& hit : found) EXPECT_FLOAT_EQ(hit.distSq, distanceSq(q, rows[hit.index]));
    }
}

} // namespace
