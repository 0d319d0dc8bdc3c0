// SPDX-License-Identifier: MIT
#include "zorvan/numerics/clpsolver.h"

#include <gtest/gtest.h>

#include <Eigen/LU>

#include <cmath>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>

namespace {

using namespace Zorvan;

constexpr double tolerance = 1e-9;
constexpr double infinity = std::numeric_limits<double>::infinity();

struct Programme
{
    Eigen::MatrixXd A;
    Eigen::VectorXd b;
    Eigen::VectorXd c;
};

/// The best vertex of A x <= b, x >= 0, by looking at every basis; -infinity when there is no vertex.
double bestVertex(const Programme& lp)
{
    const auto m = lp.A.rows();
    const auto n = lp.A.cols();
    double best = -infinity;
    for (unsigned subset = 0; subset < 1U << (n + m); ++subset) {
        if (__builtin_popcount(subset) != m) continue;
        Eigen::MatrixXd basis(m, m);
        Eigen::VectorXd cost(m);
        for (Eigen::Index j = 0, k = 0; j < n + m; ++j) {
            if ((subset >> j & 1U) == 0) continue;
            basis.col(k) = j < n ? Eigen::VectorXd(lp.A.col(j)) : Eigen::VectorXd::Unit(m, j - n);
            cost(k++) = j < n ? lp.c(j) : 0.0;
        }
        const Eigen::FullPivLU<Eigen::MatrixXd> lu(basis);
        if (!lu.isInvertible()) continue;
        const Eigen::VectorXd x = lu.solve(lp.b);
        if (x.minCoeff() > -tolerance) best = std::max(best, cost.dot(x));
    }
    return best;
}

/// A direction along which the programme can grow for ever: c d > 0 with A d <= 0, d >= 0 and sum d <= 1.
bool canGrow(const Programme& lp)
{
    Programme rays = lp;
    rays.A.conservativeResize(lp.A.rows() + 1, Eigen::NoChange);
    rays.A.row(lp.A.rows()).setOnes();
    rays.b = Eigen::VectorXd::Unit(lp.A.rows() + 1, lp.A.rows());
    return bestVertex(rays) > tolerance;
}

void expectRightAnswer(const Programme& lp, int (&seen)[3])
{
    CLPSolver solver(lp.A, lp.b, lp.c);
    const bool ok = solver.Run();
    const double best = bestVertex(lp);
    std::ostringstream text;
    text << "A\n" << lp.A << "\nb " << lp.b.transpose() << "\nc " << lp.c.transpose();
    SCOPED_TRACE(text.str());
    if (best == -infinity) {
        ++seen[0];
        EXPECT_EQ(solver.GetStatus(), LPInfeasible);
        EXPECT_FALSE(ok);
        EXPECT_EQ(solver.GetSolution(nullptr).size() + solver.GetSlack().size(), 0);
    } else if (canGrow(lp)) {
        ++seen[1];
        EXPECT_TRUE(ok);
        EXPECT_EQ(solver.GetStatus(), LPUnbounded);
        EXPECT_EQ(solver.GetSolution(nullptr), Eigen::VectorXd::Constant(lp.c.size(), infinity));
    } else {
        ++seen[2];
        EXPECT_TRUE(ok);
        ASSERT_EQ(solver.GetStatus(), LPOptimal);
        const Eigen::VectorXd x = solver.GetSolution(nullptr);
        EXPECT_NEAR(lp.c.dot(x), best, tolerance);
        EXPECT_GE(x.minCoeff(), -tolerance);
        EXPECT_LT((lp.b - lp.A * x - solver.GetSlack()).norm(), tolerance);
        EXPECT_GE(solver.GetSlack().minCoeff(), -tolerance);
    }
}

// Small whole numbers make ties, empty rows and right-hand sides of zero common.
TEST(CLPSolver, AgreesWithLookingAtEveryVertex)
{
    std::mt19937 rng(47110815);
    int seen[3] = {};
    for (int run = 0; run < 4000; ++run) {
        const int m = 1 + run % 5;
        const int n = 1 + run / 5 % 4;
        std::uniform_int_distribution<int> coefficient(-3, 3);
        std::uniform_int_distribution<int> right(run % 3 == 0 ? 0 : -4, run % 3 == 1 ? 0 : 4);
        const auto draw = [&](auto& from) { return [&](double) { return static_cast<double>(from(rng)); }; };
        Programme lp{Eigen::MatrixXd::Zero(m, n), Eigen::VectorXd::Zero(m), Eigen::VectorXd::Zero(n)};
        lp.A = lp.A.unaryExpr(draw(coefficient)).eval();
        lp.b = lp.b.unaryExpr(draw(right)).eval();
        lp.c = lp.c.unaryExpr(draw(coefficient)).eval();
        expectRightAnswer(lp, seen);
        if (HasFailure()) break;
    }
    for (const int count : seen) EXPECT_GT(count, 300);
}

// Found by trying: after some pivots these come back to a basis that they had before, for ever.
TEST(CLPSolver, EndsWhereTheFirstPositiveCostWouldCycle)
{
    Programme bounded{Eigen::MatrixXd(4, 4), Eigen::Vector4d(0, 0, 0, 1), Eigen::Vector4d(2, -1, -9, -9)};
    bounded.A << -0.5, -2.5, 4, -4, -3.5, -3.5, -2.5, 0.5, 3, -4, -1.5, -1.5, 1, 1, 1, 1;
    Programme unbounded{Eigen::MatrixXd(3, 5), Eigen::Vector3d::Zero(), Eigen::VectorXd(5)};
    unbounded.A << -2.5, -2, 4, 3.5, -3, -3, -4.5, -0.5, -0.5, 4.5, 1, -4, 0, -1, -1;
    unbounded.c << -4, 0, -8, -3, 4;
    int seen[3] = {};
    expectRightAnswer(bounded, seen);
    expectRightAnswer(unbounded, seen);
    EXPECT_EQ(seen[2], 1);
    EXPECT_EQ(seen[1], 1);
}

TEST(CLPSolver, SaysWhetherAnotherSolutionIsAsGood)
{
    // x + y <= 1: at its best for every mixture, or for x alone.
    const Eigen::MatrixXd A = Eigen::RowVector2d(1, 1);
    const Eigen::VectorXd b = Eigen::VectorXd::Ones(1);
    for (const double cost : {1.0, 0.5}) {
        CLPSolver solver(A, b, Eigen::Vector2d(1, cost));
        bool unique = false;
        EXPECT_TRUE(solver.Run() && solver.Run());
        EXPECT_EQ(solver.GetSolution(&unique), Eigen::VectorXd(Eigen::Vector2d(1, 0)));
        EXPECT_EQ(unique, cost != 1.0);
    }
}

TEST(CLPSolver, EndsOnWhatIsNoProgramme)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double a : {1.0, nan, infinity}) {
        for (const double b : {-1.0, nan, -infinity}) {
            for (const double c : {1.0, nan, infinity}) {
                CLPSolver solver(Eigen::MatrixXd::Constant(2, 2, a), Eigen::Vector2d(b, 1), Eigen::Vector2d(c, 1));
                solver.Run();
                EXPECT_NE(solver.GetStatus(), LPNotYetRun);
            }
        }
    }
    CLPSolver withoutRows(Eigen::MatrixXd(), Eigen::VectorXd(), Eigen::Vector2d(-1, 0));
    EXPECT_TRUE(withoutRows.Run());
    EXPECT_EQ(withoutRows.GetSolution(nullptr), Eigen::VectorXd(Eigen::Vector2d::Zero()));
    EXPECT_THROW(CLPSolver(Eigen::MatrixXd::Zero(2, 2), Eigen::VectorXd::Zero(3), Eigen::VectorXd::Zero(2)),
                 std::invalid_argument);
}

} // namespace
