// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cdoptimaldesign.h"

#include "zorvan/numerics/cnlsobjectivefunction.h"

#include <gtest/gtest.h>

#include <Eigen/LU>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace Zorvan {
namespace {

/// A linear function of its parameters, with a derivative by each of them in the columns.
class CLinear : public CNLSObjectiveFunction
{
public:
    explicit CLinear(const Eigen::MatrixXd& rows)
        : CNLSObjectiveFunction(int(rows.cols()), int(rows.rows())),
          m_rows(rows),
          m_stdDev(Eigen::VectorXd::Ones(rows.rows()))
    {
    }
    Eigen::VectorXd Error(const Eigen::VectorXd& params) override { return m_rows * params; }
    Eigen::VectorXd StdDev() override { return m_stdDev; }

    Eigen::MatrixXd m_rows;
    Eigen::VectorXd m_stdDev;
};

CDOptimalDesign::Design compute(CLinear function, int n, const CDOptimalDesign::Settings& settings = {})
{
    return CDOptimalDesign(function, Eigen::VectorXd::Zero(function.GetNumParams())).Compute(n, settings);
}

/// Powers 0 to n - 1 at the points.
Eigen::MatrixXd powers(const std::vector<double>& points, int n)
{
    return Eigen::MatrixXd::NullaryExpr(Eigen::Index(points.size()), n, [&](Eigen::Index i, Eigen::Index j) {
        return std::pow(points[std::size_t(i)], double(j));
    });
}

// Zeros of (1 - x^2) P'_n(x) for n = 1 to 6.
const std::vector<double> lobatto[] = {
    {-1, 1},
    {-1, 0, 1},
    {-1, -std::sqrt(1 / 5.0), std::sqrt(1 / 5.0), 1},
    {-1, -std::sqrt(3 / 7.0), 0, std::sqrt(3 / 7.0), 1},
    {-1, -0.76505532392946469, -0.28523151648064510, 0.28523151648064510, 0.76505532392946469, 1},
    {-1, -0.83022389627856693, -0.46884879347071421, 0, 0.46884879347071421, 0.83022389627856693, 1}};

// Equal numbers at the zeros of (1 - x^2) P'_n are the only best design for a polynomial of degree n. Source: Hoel,
// Annals of Mathematical Statistics 29 (1958).
TEST(CDOptimalDesign, FindsTheKnownDesignsForPolynomials)
{
    for (int degree = 1; degree <= 6; ++degree) {
        const std::vector<double>& best = lobatto[degree - 1];
        std::vector<double> points = best;
        for (int i = 0; i <= 200; ++i) points.push_back(-1.0 + i / 100.0);
        std::sort(points.begin(), points.end());
        points.erase(std::unique(points.begin(), points.end()), points.end());
        CLinear function(powers(points, degree + 1));
        function.m_rows.col(0) *= 1e9; // another unit changes nothing
        const auto design = compute(function, 3 * (degree + 1));
        ASSERT_EQ(design.eStatus, CDOptimalDesign::EStatus::Success);
        for (std::size_t k = 0; k < design.measurements.size(); ++k)
            EXPECT_NEAR(points[std::size_t(design.measurements[k])], best[k / 3], 1e-12) << "degree " << degree;
        EXPECT_NEAR(design.dEfficiency, 1.0, 1e-6);
    }
}

TEST(CDOptimalDesign, FindsTheBestOfAllSubsetsAndItsDeterminant)
{
    std::mt19937 engine(47110815);
    std::normal_distribution<double> draw;
    int numBest = 0;
    for (int round = 0; round < 50; ++round) {
        const int m = 10, d = 3, n = 3 + round % 3;
        CLinear function(Eigen::MatrixXd::NullaryExpr(m, d, [&] { return draw(engine); }));
        function.m_stdDev = Eigen::VectorXd::NullaryExpr(m, [&] { return std::exp(draw(engine)); });
        double best = -std::numeric_limits<double>::infinity();
        for (unsigned subset = 0; subset < 1U << m; ++subset) {
            if (__builtin_popcount(subset) != n) continue;
            Eigen::MatrixXd information = Eigen::MatrixXd::Zero(d, d);
            for (int i = 0; i < m; ++i)
                if ((subset >> i & 1U) != 0)
                    information +=
                        function.m_rows.row(i).transpose() * function.m_rows.row(i) / std::pow(function.m_stdDev(i), 2);
            best = std::max(best, std::log(information.determinant()));
        }
        const auto design = compute(function, n, {.isRepeating = false, .iNumStarts = 10});
        EXPECT_EQ(std::adjacent_find(design.measurements.begin(), design.measurements.end()),
                  design.measurements.end());
        EXPECT_LE(design.dLogDeterminant, best + 1e-6);
        numBest += design.dLogDeterminant > best - 1e-6;
        const auto repeating = compute(function, n);
        EXPECT_GE(repeating.dLogDeterminant, design.dLogDeterminant - 1e-6);
        EXPECT_LE(std::log(repeating.dEfficiency) * d, repeating.dLogDeterminant - best + 1e-6) << "a bound from below";
    }
    EXPECT_EQ(numBest, 50);
}

TEST(CDOptimalDesign, SaysWhatItCannotDo)
{
    Eigen::MatrixXd rows = powers({-1.0, 0.0, 0.5, 1.0}, 3);
    CLinear function(rows);
    CDOptimalDesign design(function, Eigen::VectorXd::Zero(3));
    const auto aborted = design.Compute(4, {}, [] { return true; });
    EXPECT_EQ(aborted.eStatus, CDOptimalDesign::EStatus::Aborted);
    EXPECT_EQ(aborted.measurements.size(), 4U);
    EXPECT_THROW((void)design.Compute(2), std::invalid_argument);
    EXPECT_THROW((void)design.Compute(5, {.isRepeating = false, .iNumStarts = 1}), std::invalid_argument);
    rows.col(2) = rows.col(0) - rows.col(1);
    EXPECT_FALSE(compute(CLinear(rows), 3));
    rows(2, 2) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(compute(CLinear(rows), 3));
    EXPECT_FALSE(compute(CLinear(Eigen::MatrixXd::Ones(2, 3)), 3));
}

} // namespace
} // namespace Zorvan
