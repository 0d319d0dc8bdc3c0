// SPDX-License-Identifier: MIT
#include "zorvan/numerics/ctspsolver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zorvan {
namespace {

using ETour = CTSPSolver::ETour;

struct Points
{
    std::vector<double> x, y;

    [[nodiscard]] double operator()(int i, int j) const
    {
        EXPECT_LT(i, j);
        return std::hypot(x[std::size_t(i)] - x[std::size_t(j)], y[std::size_t(i)] - y[std::size_t(j)]);
    }
};

/// @param lattice  above 0: many equal distances, and points at one place
Points randomPoints(std::mt19937& engine, int n, int lattice = 0)
{
    Points points;
    std::uniform_real_distribution<double> draw(0.0, lattice > 0 ? lattice : 1.0);
    for (int i = 0; i < n; ++i)
        for (auto* values : {&points.x, &points.y})
            values->push_back(lattice > 0 ? std::floor(draw(engine)) : draw(engine));
    return points;
}

double spanningTree(const Points& points, int n)
{
    std::vector<double> distance(std::size_t(n), std::numeric_limits<double>::infinity());
    std::vector<bool> isIn(std::size_t(n), false);
    double length = 0.0;
    for (int at = 0, i = 1; i < n; ++i) {
        isIn[std::size_t(at)] = true;
        int next = -1;
        for (int j = 0; j < n; ++j) {
            if (isIn[std::size_t(j)]) continue;
            distance[std::size_t(j)] = std::min(distance[std::size_t(j)], points(std::min(at, j), std::max(at, j)));
            if (next < 0 || distance[std::size_t(j)] < distance[std::size_t(next)]) next = j;
        }
        length += distance[std::size_t(next)];
        at = next;
    }
    return length;
}

TEST(CTSPSolver, FindsTheShortestOfAllToursOfFewPoints)
{
    std::mt19937 engine(47110815);
    for (int round = 0; round < 60; ++round) {
        const int n = round % 9 + 1;
        const Points points = randomPoints(engine, n, round % 2 * 3);
        const CTSPSolver solver(n, points);
        for (const ETour eTour : {ETour::Closed, ETour::Open}) {
            TPermutation<int> order(static_cast<std::size_t>(n));
            double shortest = std::numeric_limits<double>::infinity();
            do shortest = std::min(shortest, solver.GetLength(order, eTour));
            while (std::next_permutation(order.begin() + (eTour == ETour::Closed ? 1 : 0), order.end()));
            const CTSPSolver::Tour tour = solver.Solve(eTour);
            EXPECT_TRUE(tour.isShortest);
            EXPECT_NEAR(tour.dLength, shortest, 1e-12) << n;
            EXPECT_EQ(tour.dLength, solver.GetLength(tour.order, eTour));
            EXPECT_LE(tour.order[0], tour.order[std::size_t(n) - 1]);
        }
    }
}

// A tour without one edge is a spanning tree; of points spread evenly the shortest tour is about 1.13 trees long.
TEST(CTSPSolver, StaysNearTheShortestSpanningTreeOfManyPoints)
{
    std::mt19937 engine(47110815);
    for (const int n : {13, 50, 400, 1500}) {
        const Points points = randomPoints(engine, n);
        const double tree = spanningTree(points, n);
        for (const ETour eTour : {ETour::Closed, ETour::Open}) {
            const CTSPSolver::Tour tour = CTSPSolver(n, points).Solve(eTour);
            EXPECT_TRUE(tour.order.IsValid() && !tour.isAborted && !tour.isShortest);
            EXPECT_GE(tour.dLength, tree * (1.0 - 1e-12));
            EXPECT_LE(tour.dLength, (n < 400 ? 2.0 : 1.25) * tree) << n;
            RecordProperty("TreesOf" + std::to_string(n), std::to_string(tour.dLength / tree));
            EXPECT_EQ(tour.order, CTSPSolver(n, points).Solve(eTour).order);
        }
    }
}

// With ten neighbours each, 13 points leave hardly a move out.
TEST(CTSPSolver, LeavesNoTurnAndNoMoveThatShortens)
{
    std::mt19937 engine(47110815);
    for (int round = 0; round < 40; ++round) {
        const CTSPSolver solver(13, randomPoints(engine, 13));
        const auto eTour = round % 2 == 0 ? ETour::Closed : ETour::Open;
        const CTSPSolver::Tour tour = solver.Solve(eTour);
        for (int from = 0; from < 13; ++from)
            for (int to = from + 1; to <= 13; ++to) {
                TPermutation<int> turned = tour.order;
                std::reverse(turned.begin() + from, turned.begin() + to);
                EXPECT_GE(solver.GetLength(turned, eTour), tour.dLength - 1e-9);
                for (int end = to + 1; end <= 13 && to - from <= 3; ++end)
                    for (const TPermutation<int>& start : {tour.order, turned}) {
                        TPermutation<int> moved = start;
                        std::rotate(moved.begin() + from, moved.begin() + to, moved.begin() + end);
                        EXPECT_GE(solver.GetLength(moved, eTour), tour.dLength - 1e-9);
                    }
            }
    }
}

TEST(CTSPSolver, EndsWhenAskedAndRefusesNonsense)
{
    std::mt19937 engine(47110815);
    Points points = randomPoints(engine, 200);
    const CTSPSolver solver(200, points);
    const CTSPSolver::Tour closed = solver.Solve(ETour::Closed);
    EXPECT_TRUE(closed.order[0] == 0 && closed.order[1] < closed.order[199]);
    int numQuestions = 0;
    const CTSPSolver::Tour aborted = solver.Solve(ETour::Closed, [&] { return ++numQuestions == 5; });
    EXPECT_TRUE(aborted.isAborted && aborted.order.IsValid() && numQuestions == 5);
    EXPECT_GT(aborted.dLength, closed.dLength);
    EXPECT_EQ(CTSPSolver(0, points).Solve(ETour::Open).order.Size(), 0U);
    EXPECT_THROW(CTSPSolver(-1, points), std::invalid_argument);
    EXPECT_THROW(CTSPSolver(3, {}), std::invalid_argument);
    points.x[7] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW((void)CTSPSolver(200, points).Solve(ETour::Open), std::invalid_argument);
    EXPECT_THROW((void)solver.GetLength({0, 1, 1}, ETour::Open), std::invalid_argument);
}

} // namespace
} // namespace Zorvan
