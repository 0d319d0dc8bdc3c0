// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlssolver.h"

#include "tests/support/leastsquaresproblems.h"
#include "tests/support/logcapture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>

namespace {

using Eigen::MatrixXd;
using Eigen::VectorXd;
using support::EDerivatives;
using Zorvan::CNLSSolver;

/// An objective made of a function.
class CFunctionObjective : public Zorvan::CNLSObjectiveFunction
{
public:
    using Function = std::function<VectorXd(const VectorXd&)>;
    CFunctionObjective(int numParams, int numMeasurements, Function error, double deviation = 1.0)
        : CNLSObjectiveFunction(numParams, numMeasurements), m_error(std::move(error)), m_deviation(deviation)
    {
    }
    VectorXd Error(const VectorXd& params) override { return m_error(params); }
    VectorXd StdDev() override { return VectorXd::Constant(GetNumMeasurements(), m_deviation); }

private:
    Function m_error;
    double m_deviation;
};

struct Outcome
{
    CNLSSolver::EResult eResult;
    VectorXd x;
    double rmse;
};

Outcome solve(Zorvan::CNLSObjectiveFunction& objective, VectorXd x, int maxIter = 1000, bool robustness = false)
{
    CNLSSolver solver(objective, robustness, -1);
    double rmse = -1.0;
    const auto result = solver.Run(x, rmse, maxIter, 0.001, 0, CNLSSolver::Gibbs);
    return {result, x, rmse};
}

/// Distance of (x, y) from a place.
CFunctionObjective distanceTo(double x, double y)
{
    return {2, 2, [=](const VectorXd& p) { return VectorXd(Eigen::Vector2d(p(0) - x, p(1) - y)); }};
}

TEST(CNLSSolver, ReachesThePublishedMinima)
{
    int reached = 0;
    for (const auto& problem : support::MoreGarbowHillstromProblems()) {
        support::CProblemObjective objective(problem, EDerivatives::Exact);
        const Outcome outcome = solve(objective, problem.starts.front());
        const double sum = problem.error(outcome.x).squaredNorm();
        EXPECT_NEAR(outcome.rmse * outcome.rmse * problem.numMeasurements, sum, 1e-9 * (1.0 + sum));
        EXPECT_LE(sum, problem.error(problem.starts.front()).squaredNorm());
        if (std::abs(sum - problem.sumOfSquares) < 1e-6 * (problem.sumOfSquares + 1e-3)) ++reached;
    }
    EXPECT_GE(reached, 15);
}

TEST(CNLSSolver, AgreesWithCertifiedRegressions)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) GTEST_SKIP() << "ZORVAN_DATA is not set";
    int certified = 0;
    int deviations = 0;
    for (const auto& problem : support::NistProblems(std::filesystem::path(data) / "nist")) {
        EXPECT_NEAR(problem.error(problem.minimum).squaredNorm(), problem.sumOfSquares,
                    1e-6 * problem.sumOfSquares + 1e-20)
            << problem.name;
        support::CProblemObjective objective(problem, EDerivatives::Exact);
        const Outcome outcome = solve(objective, problem.starts.back());
        const double off = ((outcome.x - problem.minimum).array() / problem.minimum.array()).abs().maxCoeff();
        if (!(off < 1e-5)) continue;
        ++certified;
        const double degrees = static_cast<double>(problem.numMeasurements - outcome.x.size());
        const VectorXd variances = objective.GetCovariance(outcome.x, 1e-14).diagonal();
        const VectorXd found = variances.cwiseSqrt() * std::sqrt(problem.sumOfSquares / degrees);
        if (((found - problem.deviations).array() / problem.deviations.array()).abs().maxCoeff() < 1e-4) ++deviations;
    }
    EXPECT_GE(certified, 20);
    EXPECT_GE(deviations, certified - 2);
}

TEST(CNLSSolver, SaysWhyItEnded)
{
    auto objective = distanceTo(3, 4);
    {
        const support::LogCapture log;
        EXPECT_EQ(solve(objective, Eigen::Vector2d(3, 4)).eResult, CNLSSolver::SmallGradient);
        EXPECT_TRUE(log.Has(L"(NLS) stopped after 1 iterations ('small gradient (++)', residual RMSE=0)"));
        EXPECT_EQ(log.Messages().front().domain, L"Zorvanlib.NLSSolver");
        EXPECT_EQ(log.Messages().front().function, "Zorvan::CNLSSolver::run");
    }
    {
        const support::LogCapture log;
        const Outcome outcome = solve(objective, Eigen::Vector2d(0, 0), 0);
        EXPECT_EQ(outcome.eResult, CNLSSolver::MaxIterExceeded);
        EXPECT_EQ(outcome.x, VectorXd(Eigen::Vector2d::Zero()));
        EXPECT_DOUBLE_EQ(outcome.rmse, std::sqrt(12.5));
        EXPECT_TRUE(log.Has(L"stopped after 0 iterations ('maxiter exceeded (-)'"));
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(solve(objective, Eigen::Vector2d(nan, 0)).eResult, CNLSSolver::MaxIterExceeded);

    CFunctionObjective nothing(2, 0, [](const VectorXd&) { return VectorXd(); });
    ASSERT_TRUE(nothing.AddEquality(0, 7.0));
    const Outcome failed = solve(nothing, Eigen::Vector2d(1, 2));
    EXPECT_EQ(failed.eResult, CNLSSolver::LSSolutionFailed);
    EXPECT_EQ(failed.x, VectorXd(VectorXd::Constant(1, 2.0))) << "the free variables alone";
    EXPECT_EQ(failed.rmse, -1.0) << "untouched";

    // A residual that hardly changes: the step leaves every measure.
    CFunctionObjective flat(1, 1, [](const VectorXd& p) { return VectorXd(VectorXd::Constant(1, 1 + 1e-11 * p(0))); });
    EXPECT_EQ(solve(flat, VectorXd::Zero(1)).eResult, CNLSSolver::AlmostSingularMatrix);
    EXPECT_STREQ(CNLSSolver::GetMessage(CNLSSolver::ConstraintsViolated), L"constraints violated (-)");
}

TEST(CNLSSolver, RepeatsTheFirstStepWhenItIsRejected)
{
    // The slope at the start points over the hill.
    std::vector<double> tried;
    CFunctionObjective objective(1, 1, [&](const VectorXd& p) {
        tried.push_back(p(0));
        return VectorXd(VectorXd::Constant(1, std::atan(p(0))));
    });
    const Outcome outcome = solve(objective, VectorXd::Constant(1, 3.0));
    EXPECT_LE(outcome.eResult, CNLSSolver::SmallStepSize);
    EXPECT_NEAR(outcome.x(0), 0.0, 1e-9);
    ASSERT_GT(tried.size(), 20U); // one call for the residual and four for the derivative each time
    EXPECT_LT(tried[5], -5.0);
    EXPECT_EQ(tried[5], tried[10]);
    EXPECT_GT(tried[15], tried[10]);
}

TEST(CNLSSolver, StopsAtInequalitiesAndGlidesAlongThem)
{
    struct Case
    {
        Eigen::Vector2d start, row;
        double limit;
        Eigen::Vector2d expected; ///< nearest to (3, 4)
    };
    for (const Case& c :
         {Case{{1, 0}, {1, 0}, 2, {2, 4}}, Case{{0, 9}, {-1, 2}, 20, {3, 4}}, Case{{0, -7}, {0, 2}, -4, {3, -2}}}) {
        auto objective = distanceTo(3, 4);
        objective.AddInequality(c.row, c.limit);
        const Outcome outcome = solve(objective, c.start);
        EXPECT_LE(outcome.eResult, CNLSSolver::SmallStepSize);
        EXPECT_LT((outcome.x - c.expected).norm(), 1e-9) << outcome.x.transpose();
    }
}

TEST(CNLSSolver, JudgesFeasibilityAmongNonNegativeValues)
{
    auto positive = distanceTo(3, 4);
    positive.AddUpperBound(0, 2.0);
    auto negative = distanceTo(3, 4);
    negative.AddUpperBound(0, -1.0);
    auto contradiction = distanceTo(3, 4);
    contradiction.AddBounds(0, 2.0, 1.0);
    const VectorXd start = Eigen::Vector2d(5, 5);
    const support::LogCapture log;
    EXPECT_NE(solve(positive, start).eResult, CNLSSolver::ConstraintsViolated);
    EXPECT_TRUE(log.Has(L"(NLS) constructed initial feasible solution"));
    EXPECT_FALSE(log.Has(L"(NLS) infeasible constraints detected"));
    const Outcome outcome = solve(negative, start);
    EXPECT_EQ(outcome.eResult, CNLSSolver::ConstraintsViolated) << "though -1 and below would do";
    EXPECT_EQ(outcome.x, start);
    EXPECT_TRUE(log.Has(L"(NLS) infeasible constraints detected"));
    EXPECT_EQ(solve(contradiction, start).eResult, CNLSSolver::ConstraintsViolated);
    EXPECT_LE(solve(negative, Eigen::Vector2d(-2, 5)).eResult, CNLSSolver::SmallStepSize) << "from inside";
}

/// y = p0 + p1 x at 40 places with noise, every eighth far off.
VectorXd lineWithOutliers(const VectorXd& p)
{
    static const VectorXd y = [] {
        std::mt19937 rng(3);
        std::normal_distribution<double> noise(0.0, 0.01);
        return VectorXd(VectorXd::NullaryExpr(
            40, [&](Eigen::Index i) { return 1.0 + 0.5 * static_cast<double>(i) + (i % 8 == 3 ? 30.0 : noise(rng)); }));
    }();
    return VectorXd::NullaryExpr(40, [&](Eigen::Index i) { return p(0) + p(1) * static_cast<double>(i) - y(i); });
}

TEST(CNLSSolver, RobustWeightsIgnoreOutliers)
{
    // The gain compares plain sums, so the weights pull only from a start that outliers do not rule.
    CFunctionObjective objective(2, 40, lineWithOutliers);
    const VectorXd truth = Eigen::Vector2d(1.0, 0.5);
    const VectorXd plain = solve(objective, truth).x;
    EXPECT_GT((plain - truth).norm(), 1.0);
    EXPECT_LT((solve(objective, Eigen::Vector2d(0.9, 0.5), 1000, true).x - truth).norm(), 0.2);
}

TEST(CNLSSolver, CovarianceForetellsTheSpreadOfRefits)
{
    constexpr double deviation = 0.05;
    constexpr int refits = 2000;
    const VectorXd truth = Eigen::Vector3d(2.0, 0.7, 0.5);
    const auto model = [](const VectorXd& p) {
        return VectorXd(VectorXd::NullaryExpr(
            30, [&](Eigen::Index i) { return p(0) * std::exp(-p(1) * 0.2 * static_cast<double>(i)) + p(2); }));
    };
    std::mt19937 rng(47110815);
    std::normal_distribution<double> noise(0.0, deviation);
    MatrixXd found(refits, 3);
    for (int i = 0; i < refits; ++i) {
        const VectorXd y = model(truth) + VectorXd::NullaryExpr(30, [&] { return noise(rng); });
        CFunctionObjective objective(3, 30, [&](const VectorXd& p) { return VectorXd(model(p) - y); });
        const Outcome outcome = solve(objective, Eigen::Vector3d(1.5, 1.0, 0.3));
        ASSERT_LE(outcome.eResult, CNLSSolver::SmallStepSize);
        found.row(i) = outcome.x.transpose();
    }
    CFunctionObjective objective(3, 30, model, deviation);
    const MatrixXd foretold = objective.GetCovariance(truth, 1e-12);
    const MatrixXd centred = found.rowwise() - found.colwise().mean();
    const MatrixXd measured = centred.transpose() * centred / (refits - 1);
    // A variance of 2,000 draws is known to 3 %; curvature of the model adds some.
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j <= i; ++j)
            EXPECT_NEAR(measured(i, j), foretold(i, j), 0.1 * std::sqrt(foretold(i, i) * foretold(j, j))) << i << j;
    }
}

/// One deep valley at 4.2 among many.
VectorXd valleys(const VectorXd& p) { return Eigen::Vector2d(0.3 * (p(0) - 4.2), 2.0 * std::sin(3.0 * (p(0) - 4.2))); }

TEST(CNLSSolver, MultistartFindsTheDeepestValleyEveryTime)
{
    for (const auto sampler : {CNLSSolver::Gibbs, CNLSSolver::HitAndRun}) {
        CFunctionObjective objective(1, 2, valleys);
        EXPECT_GT(solve(objective, VectorXd::Constant(1, -8.0)).rmse, 1.0);
        objective.AddBounds(0, -10.0, 10.0);
        VectorXd first;
        for (int repetition = 0; repetition < 2; ++repetition) {
            CNLSSolver solver(objective, false, -1);
            VectorXd x = VectorXd::Constant(1, -8.0);
            double rmse = 0.0;
            EXPECT_LE(solver.Run(x, rmse, 1000, 0.001, 60, sampler), CNLSSolver::SmallStepSize);
            EXPECT_NEAR(x(0), 4.2, 1e-6);
            EXPECT_LT(rmse, 1e-6);
            EXPECT_TRUE(repetition == 0 || x == first);
            first = x;
        }
    }
}

TEST(CNLSSolver, MultistartCountsRunsAndGivesUpAfterFiveErrors)
{
    const auto countOf = [](const support::LogCapture& log, std::wstring_view part) {
        return std::count_if(log.Messages().begin(), log.Messages().end(),
                             [&](const auto& m) { return m.text.find(part) != std::wstring::npos; });
    };
    CFunctionObjective objective(1, 2, valleys);
    CNLSSolver solver(objective, false, 1);
    VectorXd x = VectorXd::Constant(1, -8.0);
    double rmse = 0.0;
    {
        const support::LogCapture log;
        solver.Run(x, rmse, 1000, 0.001, 3, CNLSSolver::Gibbs);
        EXPECT_EQ(countOf(log, L"stopped after"), 1);
        EXPECT_TRUE(log.Has(L"skipping multistart (no inequality constraints!)"));
    }
    objective.AddBounds(0, -10.0, -7.0);
    {
        const support::LogCapture log;
        solver.Run(x, rmse, 1000, 0.001, 3, CNLSSolver::Gibbs);
        EXPECT_EQ(countOf(log, L"stopped after"), 4);
        EXPECT_TRUE(log.Has(L"(NLS) SAMPLING FOR MULTISTART RUN 3 OF 3 (try #1)"));
        EXPECT_TRUE(log.Has(L"(NLS) final residual RMSE="));
    }
    // No step is ever sane: each run ends with an almost singular matrix.
    CFunctionObjective flat(2, 1, [](const VectorXd& p) { return VectorXd(VectorXd::Constant(1, 1 + 1e-11 * p(0))); });
    flat.AddLowerBound(1, -1.0);
    flat.AddUpperBound(1, 1.0);
    CNLSSolver hopeless(flat, false, 1);
    VectorXd y = VectorXd::Zero(2);
    const support::LogCapture log;
    EXPECT_EQ(hopeless.Run(y, rmse, 10, 0.001, 3, static_cast<CNLSSolver::ESampler>(7)),
              CNLSSolver::AlmostSingularMatrix);
    EXPECT_EQ(countOf(log, L"failed: close to singular matrix"), 5);
    EXPECT_TRUE(log.Has(L"(NLS) multistart series aborted (too many errors)"));
    EXPECT_EQ(y.size(), 2);
}

TEST(CNLSSolver, RefusesVectorsOfAnotherLength)
{
    auto objective = distanceTo(1, 2);
    EXPECT_THROW(solve(objective, VectorXd::Ones(3)), std::invalid_argument);
    CFunctionObjective liar(1, 3, [](const VectorXd&) { return VectorXd(VectorXd::Ones(2)); });
    EXPECT_THROW(solve(liar, VectorXd::Ones(1)), std::logic_error);
}

} // namespace
