// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlsobjectivefunction.h"

#include "tests/support/leastsquaresproblems.h"

#include <gmock/gmock.h>

#include <Eigen/LU>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

namespace {

using Eigen::MatrixXd;
using Eigen::VectorXd;
using testing::ElementsAre;
using Zorvan::CNLSObjectiveFunction;

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Residuals J p with standard deviations: everything about it is known.
class CLinearProblem : public CNLSObjectiveFunction
{
public:
    explicit CLinearProblem(MatrixXd J)
        : CNLSObjectiveFunction(static_cast<int>(J.cols()), static_cast<int>(J.rows())), m_J(std::move(J))
    {
        m_deviations = VectorXd::LinSpaced(m_J.rows(), 0.5, 2.0);
    }
    VectorXd Error(const VectorXd& params) override { return m_J * params; }
    VectorXd StdDev() override { return m_deviations; }
    using CNLSObjectiveFunction::errorFDDerivatives;

    [[nodiscard]] MatrixXd Information() const
    {
        const MatrixXd scaled = m_deviations.cwiseInverse().asDiagonal() * m_J;
        return scaled.transpose() * scaled;
    }

private:
    MatrixXd m_J;
    VectorXd m_deviations;
};

MatrixXd randomMatrix(Eigen::Index rows, Eigen::Index cols, std::mt19937& rng)
{
    std::normal_distribution<double> draw;
    return MatrixXd::NullaryExpr(rows, cols, [&] { return draw(rng); });
}

TEST(CNLSObjectiveFunction, FixedParametersLeaveTheReduction)
{
    CLinearProblem problem(MatrixXd::Identity(3, 3));
    MatrixXd kernel(3, 4);
    kernel << 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1;
    EXPECT_EQ(problem.GetEqualityConstraintsKernel(), kernel);
    EXPECT_THAT(problem.GetFreeVariablesIndices(), ElementsAre(0, 1, 2));

    ASSERT_TRUE(problem.AddEquality(1, 2.5));
    EXPECT_TRUE(problem.AddEquality(1, 2.5)) << "said twice";
    EXPECT_FALSE(problem.AddEquality(1, 3.0)) << "a contradiction";
    EXPECT_EQ(problem.GetEqualitiesRHS().size(), 1);
    EXPECT_THAT(problem.GetFreeVariablesIndices(), ElementsAre(0, 2));
    EXPECT_THAT(problem.BuildParamsFromFree(Eigen::Vector2d(7, 8)), ElementsAre(7, 2.5, 8));
    EXPECT_TRUE(problem.IsConstant(1) && problem.IsVariable(0) && problem.IsVariable(2));

    // p0 + p1 <= 4 says p0 <= 1.5 now.
    problem.AddInequality(Eigen::Vector3d(1, 1, 0), 4);
    MatrixXd lhs;
    VectorXd rhs;
    problem.GetFreeVariablesInequalities(lhs, rhs);
    EXPECT_EQ(lhs, MatrixXd(Eigen::RowVector2d(1, 0)));
    EXPECT_THAT(rhs, ElementsAre(1.5));

    problem.SetNumParams(2);
    EXPECT_EQ(problem.GetEqualityConstraintsKernel(), kernel.topLeftCorner(2, 3));
    EXPECT_THROW(problem.GetFreeVariablesInequalities(lhs, rhs), std::invalid_argument) << "rows of the old length";
}

// Rows come as new ones, as sums of those before, and as sums with another right-hand side.
TEST(CNLSObjectiveFunction, TakesRedundantEqualitiesAndRefusesContradictions)
{
    std::mt19937 rng(47110815);
    int seen[3] = {};
    for (int run = 0; run < 500; ++run) {
        const int n = 2 + run % 7;
        CLinearProblem problem(MatrixXd::Identity(n, n));
        const VectorXd solution = 3.0 * randomMatrix(n, 1, rng);
        MatrixXd rows(0, n);
        for (int k = 0; k < n; ++k) {
            const int kind = rows.rows() == 0 ? 0 : static_cast<int>(rng() % 3);
            const VectorXd row = kind == 0 ? VectorXd(randomMatrix(n, 1, rng) * std::pow(10.0, k % 3))
                                           : VectorXd(rows.transpose() * randomMatrix(rows.rows(), 1, rng));
            ++seen[kind];
            ASSERT_EQ(problem.AddEquality(row, row.dot(solution) + (kind == 2 ? 0.1 : 0.0)), kind != 2);
            if (kind != 0) continue;
            rows.conservativeResize(rows.rows() + 1, n);
            rows.bottomRows(1) = row.transpose();
        }
        const auto& free = problem.GetFreeVariablesIndices();
        ASSERT_EQ(free.size(), n - rows.rows());
        const VectorXd f = randomMatrix(free.size(), 1, rng);
        const VectorXd p = problem.BuildParamsFromFree(f);
        ASSERT_LT((rows * (p - solution)).norm(), 1e-7 * rows.norm());
        ASSERT_EQ(VectorXd(p(free)), f);
    }
    for (const int count : seen) EXPECT_GT(count, 500);
}

TEST(CNLSObjectiveFunction, BoundsCountFromZero)
{
    CLinearProblem problem(MatrixXd::Identity(4, 4));
    EXPECT_TRUE(problem.IsUnbounded(0)) << "no inequality at all";
    problem.AddBounds(0, -1.0, 2.0);
    problem.AddLowerBound(1, 0.5);
    problem.AddUpperBound(2, 7.0);
    EXPECT_TRUE(problem.IsBounded(0));
    EXPECT_FALSE(problem.IsBounded(1));
    EXPECT_TRUE(problem.IsBounded(2)) << "the linear programme does not go below zero";
    EXPECT_FALSE(problem.IsBounded(3));
    problem.AddInequality(Eigen::Vector4d(0, 1, 0, 1), 3.0);
    EXPECT_TRUE(problem.IsBounded(1) && problem.IsBounded(3));
    problem.AddEquality(3, 1.0);
    problem.SetInequalities({}, {});
    EXPECT_TRUE(problem.IsBounded(3)) << "a constant";
}

TEST(CNLSObjectiveFunction, StencilsAreExactForPolynomialsOfTheirOrder)
{
    class CPowers : public CNLSObjectiveFunction
    {
    public:
        CPowers() : CNLSObjectiveFunction(1, 8) {}
        VectorXd Error(const VectorXd& x) override
        {
            return VectorXd::NullaryExpr(8, [&](Eigen::Index k) { return std::pow(x(0), static_cast<double>(k)); });
        }
        using CNLSObjectiveFunction::errorFDDerivatives;
    } powers;
    VectorXd x = VectorXd::Constant(1, 1.25);
    for (int order = 1; order <= 6; ++order) {
        const VectorXd derivative = powers.errorFDDerivatives(x, 0, 0.5, order);
        EXPECT_EQ(x(0), 1.25);
        for (int k = 0; k < 8; ++k) {
            const double error = std::abs(derivative(k) - k * std::pow(1.25, k - 1));
            EXPECT_EQ(error < 1e-12, k <= order) << "order " << order << ", power " << k;
        }
    }
    EXPECT_THROW(powers.errorFDDerivatives(x, 0, 0.5, 7), std::out_of_range);
}

TEST(CNLSObjectiveFunction, NumericalJacobiansAgreeWithComplexSteps)
{
    for (const auto& problem : support::MoreGarbowHillstromProblems()) {
        support::CProblemObjective objective(problem);
        const VectorXd& start = problem.starts.front();
        const MatrixXd exact = support::ComplexStepJacobian(problem, start);
        const double scale = exact.norm() + problem.error(start).norm();
        // What the fourth order leaves where time runs to 320: (320 * 0.000123)^4 / 30.
        EXPECT_LT((objective.Jacobian(start) - exact).norm(), 1e-7 * scale) << problem.name;
    }
}

// p1 is fixed and p3 = 2 p0 + p2 + 5 tied: neither has a column of its own, and p0 moves without p3.
TEST(CNLSObjectiveFunction, ColumnsBelongToFreeParametersAlone)
{
    std::mt19937 rng(1);
    const MatrixXd J = randomMatrix(9, 4, rng);
    CLinearProblem problem(J);
    ASSERT_TRUE(problem.AddEquality(1, 2.5) && problem.AddEquality(Eigen::Vector4d(2, 0, 1, -1), -5.0));
    const Eigen::VectorXi& free = problem.GetFreeVariablesIndices();
    ASSERT_EQ(free.size(), 2);
    const VectorXd f = Eigen::Vector2d(0.3, -0.4);
    EXPECT_LT((problem.Jacobian(f) - J(Eigen::all, free)).norm(), 1e-9);

    const VectorXd p = problem.BuildParamsFromFree(f);
    const MatrixXd ofFree = problem.Information()(free, free).inverse();
    const MatrixXd K = problem.GetEqualityConstraintsKernel().rightCols(2);
    EXPECT_LT((problem.GetCovariance(p, 1e-12) - K * ofFree * K.transpose()).norm(), 1e-8);
}

TEST(CNLSObjectiveFunction, CovarianceInvertsTheInformation)
{
    std::mt19937 rng(2);
    for (int n = 1; n <= 7; ++n) {
        const MatrixXd J = randomMatrix(n + 3, n, rng);
        CLinearProblem problem(J);
        const VectorXd p = VectorXd::Ones(n);
        const MatrixXd covariance = problem.GetCovariance(p, 1e-12);
        EXPECT_LT((covariance * problem.Information() - MatrixXd::Identity(n, n)).norm(), 1e-7) << n;
        EXPECT_EQ(covariance, covariance.transpose());
        const MatrixXd correlation = problem.GetCorrelation(p, 1e-12);
        EXPECT_DOUBLE_EQ(correlation(n - 1, 0), covariance(n - 1, 0) / (covariance(0, 0) * covariance(n - 1, n - 1)));
        EXPECT_NEAR(problem.GetDCriterionValue(p) / (J.transpose() * J).determinant(), 1.0, 1e-8);
    }
}

TEST(CNLSObjectiveFunction, CovarianceIsInfiniteForWhatNothingDetermines)
{
    MatrixXd J(3, 3);
    J << 1, 0, 0, 0, 0, 2, 3, 0, 0; // nothing measures the second
    CLinearProblem problem(J);
    const MatrixXd covariance = problem.GetCovariance(Eigen::Vector3d::Zero(), 1e-12);
    EXPECT_EQ(VectorXd(covariance.row(1)), VectorXd(Eigen::Vector3d::Constant(infinity)));
    EXPECT_EQ(VectorXd(covariance.col(1)), VectorXd(Eigen::Vector3d::Constant(infinity)));
    EXPECT_TRUE(std::isfinite(covariance(0, 0)) && std::isfinite(covariance(2, 2)));
    EXPECT_NEAR(problem.GetDCriterionValue(Eigen::Vector3d::Zero()), 0.0, 1e-15);

    CLinearProblem fewer(MatrixXd::Ones(1, 3)); // one measurement, three parameters
    EXPECT_EQ((fewer.GetCovariance(Eigen::Vector3d::Zero(), 1e-12).array() == infinity).count(), 8);
    CLinearProblem none(MatrixXd(0, 2));
    EXPECT_EQ(none.GetCovariance(Eigen::Vector2d::Zero(), 1e-12), MatrixXd(MatrixXd::Constant(2, 2, infinity)));
}

TEST(CNLSObjectiveFunction, RefusesWhatIsOutsideItsParameters)
{
    CLinearProblem problem(MatrixXd::Identity(2, 2));
    EXPECT_THROW(problem.AddEquality(2, 1.0), std::out_of_range);
    EXPECT_THROW(problem.AddLowerBound(-1, 1.0), std::out_of_range);
    EXPECT_THROW((void)problem.IsVariable(2), std::out_of_range);
    EXPECT_THROW(problem.AddEquality(VectorXd::Ones(3), 1.0), std::invalid_argument);
    EXPECT_THROW(problem.AddInequality(VectorXd::Ones(3), 1.0), std::invalid_argument);
    EXPECT_THROW(problem.SetEqualities(MatrixXd::Ones(2, 2), VectorXd::Ones(1)), std::invalid_argument);
    EXPECT_THROW((void)problem.BuildParamsFromFree(VectorXd::Ones(3)), std::invalid_argument);
    EXPECT_THROW((void)problem.GetCovariance(VectorXd::Ones(1), 0.0), std::invalid_argument);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(problem.AddEquality(Eigen::Vector2d(nan, 1), 1.0));
}

} // namespace
