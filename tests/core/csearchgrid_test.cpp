// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"
#include "zorvan/core/csearchgrid.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace {

using support::Cloud;
using support::Vector3;
using Zorvan::CSearchGrid;

constexpr float inf = std::numeric_limits<float>::infinity();

// A cell size that suits each cloud; 0 where no grid can hold it.
double cellSizeFor(const Cloud& cloud)
{
    if (cloud.name == "around 1e6") return 90;
    if (cloud.name == "around 1e30") return 1e29;
    return cloud.name == "two clusters" ? 2.0 : 0.7;
}

class GridClouds : public testing::TestWithParam<Cloud>
{
protected:
    const Cloud m_cloud = GetParam();
    const CSearchGrid m_grid{cellSizeFor(m_cloud), m_cloud.points.data(), m_cloud.points.size()};
    const std::vector<Vector3> m_queries = support::QueriesAround(m_cloud, 400);
};

TEST_P(GridClouds, QueriesAgreeWithLookingAtEveryPoint)
{
    if (m_cloud.name == "not all finite") {
        EXPECT_TRUE(m_grid.Empty());
        return;
    }
    ASSERT_EQ(m_grid.Size(), m_cloud.points.size());
    const float supremumSq = m_grid.GetQueryRadiusSupremumSq();
    for (const auto& q : m_queries) {
        for (const float share : {0.01F, 0.5F, 1.0F}) {
            const float radiusSq = share * supremumSq;
            float expected = radiusSq;
            std::vector<unsigned> expectedBall;
            for (unsigned i = 0; i < m_cloud.points.size(); ++i) {
                const float d = kdtree::DistanceSq(m_cloud.points[i], q);
                expected = std::min(expected, d);
                if (d <= radiusSq) expectedBall.push_back(i);
            }
            float distSq = 0;
            const int index = m_grid.Query_NN(q, radiusSq, &distSq);
            ASSERT_EQ(index >= 0, expected < radiusSq);
            ASSERT_EQ(distSq, index >= 0 ? expected : inf);

            std::vector<unsigned> ball;
            m_grid.QueryRange(ball, {q, radiusSq});
            std::sort(ball.begin(), ball.end());
            ASSERT_EQ(ball, expectedBall);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(CSearchGrid, GridClouds, testing::ValuesIn(support::HardClouds()), [](const auto& test) {
    std::string name = test.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

TEST(CSearchGrid, StatisticsAreThoseOfTheOccupiedCells)
{
    // Four points in one cell, two in another.
    const std::vector<float> xyz = {0, 0, 0, .1F, 0, 0, 0, .1F, 0, .1F, .1F, 0, 5.5F, 5.5F, 0, 5.6F, 5.5F, 0};
    const CSearchGrid grid(1.0, xyz.data(), 6);
    const auto statistics = grid.GetStatistics();
    EXPECT_EQ(statistics.points, 6U);
    EXPECT_EQ(statistics.occupiedCells, 2U);
    EXPECT_DOUBLE_EQ(statistics.meanPointsPerCell, 3.0);
    EXPECT_DOUBLE_EQ(statistics.stdDevPointsPerCell, std::sqrt(2.0));
}

TEST(CSearchGrid, CannotHoldTooManyCellsOrUselessSizes)
{
    const std::vector<Vector3> points = {Vector3(0, 0, 0), Vector3(100, 100, 100)};
    for (const double size : {0.1, 0.0, std::numeric_limits<double>::quiet_NaN(), 1e-300}) {
        const CSearchGrid grid(size, points.data(), points.size());
        float distSq = 0;
        EXPECT_TRUE(grid.Empty()) << size;
        EXPECT_EQ(grid.Size(), 0U);
        EXPECT_EQ(grid.Query_NN(points[0], 1.0F, &distSq), -1);
        EXPECT_EQ(distSq, inf);
        EXPECT_EQ(grid.GetQueryRadiusSupremumSq(), 0.0F);
    }
    EXPECT_TRUE(CSearchGrid().Empty());
}

TEST(CSearchGrid, RadiusIsCutToTheSupremumAndStrictForTheNearest)
{
    const std::vector<Vector3> points = {Vector3(0, 0, 0), Vector3(8, 8, 8)};
    const CSearchGrid grid(1.0, points.data(), points.size());
    EXPECT_EQ(grid.GetQueryRadiusSupremumSq(), std::nextafter(1.0F, 2.0F));
    EXPECT_EQ(grid.Query_NN(Vector3(1, 0, 0), 100.0F, nullptr), 0) << "just inside the supremum";
    EXPECT_EQ(grid.Query_NN(Vector3(1.001F, 0, 0), 100.0F, nullptr), -1);
    EXPECT_EQ(grid.Query_NN(Vector3(0.5F, 0, 0), 0.25F, nullptr), -1) << "at the radius";
    std::vector<unsigned> found;
    grid.QueryRange(found, {Vector3(0.5F, 0, 0), 0.25F});
    EXPECT_THAT(found, testing::ElementsAre(0U));
}

TEST(CSearchGrid, IsEmptyAfterItWasMoved)
{
    const auto points = support::HardClouds().front().points;
    CSearchGrid grid(0.7, points.data(), points.size());
    CSearchGrid taken(std::move(grid));
    EXPECT_EQ(taken.Query_NN(points[3], 1.0F, nullptr), 3);
    CSearchGrid assigned(1.0, points.data(), 1);
    assigned = std::move(taken);
    EXPECT_EQ(assigned.Query_NN(points[3], 1.0F, nullptr), 3);
    for (const CSearchGrid* moved : {&grid, &taken}) { // NOLINT(bugprone-use-after-move)
        std::vector<unsigned> found;
        moved->QueryRange(found, {points[3], 0.25F});
        EXPECT_TRUE(found.empty());
        EXPECT_EQ(moved->Query_NN(points[3], 1.0F, nullptr), -1);
        EXPECT_EQ(moved->GetStatistics().occupiedCells, 0U);
    }
}

TEST(CSearchGrid, SurvivesQueriesFromAnywhere)
{
    const auto cloud = support::HardClouds().front();
    const CSearchGrid grid(0.7, cloud.points.data(), cloud.points.size());
    for (const float far : {1e9F, -1e9F, 1e38F, inf, -inf, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_EQ(grid.Query_NN(Vector3(far, far, 0), 1.0F, nullptr), -1) << far;
        std::vector<unsigned> found;
        grid.QueryRange(found, {Vector3(0, far, far), 0.25F});
        EXPECT_TRUE(found.empty()) << far;
    }
}

} // namespace
