// SPDX-License-Identifier: MIT
#include "zorvan/numerics/packedldlt.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace Zorvan::symsolvers;

double element(const std::vector<double>& packed, int i, int j)
{
    return packed[PackedSize(static_cast<std::size_t>(std::max(i, j))) + static_cast<std::size_t>(std::min(i, j))];
}

// Positive definite: sums of weighted outer products.
std::vector<double> randomNormalMatrix(int n, std::mt19937& rng)
{
    std::normal_distribution<double> draw;
    std::vector<double> a(PackedSize(static_cast<std::size_t>(n)));
    std::vector<double> b(static_cast<std::size_t>(n));
    std::vector<double> row(static_cast<std::size_t>(n));
    for (int k = 0; k < 3 * n; ++k) {
        for (double& value : row) value = draw(rng);
        AddNormalEquation(a.data(), b.data(), row.data(), draw(rng), 0.5 + std::abs(draw(rng)), n);
    }
    return a;
}

TEST(PackedLDLt, SolvesAndInvertsWhatItFactored)
{
    std::mt19937 rng(1);
    std::normal_distribution<double> draw;
    for (int n = 1; n <= 12; ++n) {
        const auto size = static_cast<std::size_t>(n);
        const auto a = randomNormalMatrix(n, rng);
        auto factor = a;
        std::vector<double> work(size);
        ASSERT_TRUE(LDLtFactor(factor.data(), n, work.data()));

        std::vector<double> x(size);
        for (double& value : x) value = draw(rng);
        std::vector<double> b(size);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j)
                b[static_cast<std::size_t>(i)] += element(a, i, j) * x[static_cast<std::size_t>(j)];
        }
        LDLtSolve(factor.data(), b.data(), n);
        for (std::size_t i = 0; i < size; ++i) EXPECT_NEAR(b[i], x[i], 1e-9) << n;

        std::vector<double> inverse(a.size());
        LDLtInverse(factor.data(), inverse.data(), n, work.data());
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                double product = 0;
                for (int k = 0; k < n; ++k) product += element(a, i, k) * element(inverse, k, j);
                EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-9) << n;
            }
        }
    }
}

TEST(PackedLDLt, FailsOnPivotsThatAreNotPositive)
{
    double work[2];
    double zero[] = {1, 1, 1}; // second pivot 1 - 1 * 1 = 0
    EXPECT_FALSE(LDLtFactor(zero, 2, work));
    double negative[] = {1, 2, 1};
    EXPECT_FALSE(LDLtFactor(negative, 2, work));
    double notANumber[] = {1, NAN, 1};
    EXPECT_FALSE(LDLtFactor(notANumber, 2, work));
    EXPECT_TRUE(LDLtFactor(nullptr, 0, nullptr));
}

TEST(PackedLDLt, LineThroughPointsWithItsCovariance)
{
    // y = 2 x + 1 with residuals (+0.1, -0.1, -0.1, +0.1), orthogonal to the line: residual sum of squares 0.04.
    const double design[] = {0, 1, 1, 1, 2, 1, 3, 1};
    const double rhs[] = {1.1, 2.9, 4.9, 7.1};
    double solution[2];
    double covariance[3];
    double work[5];
    ASSERT_TRUE(LinearRegression(design, rhs, 4, 2, solution, covariance, work));
    EXPECT_NEAR(solution[0], 2, 1e-12);
    EXPECT_NEAR(solution[1], 1, 1e-12);
    // sigma^2 = 0.02 times the inverse of [[14, 6], [6, 4]], which is [[4, -6], [-6, 14]] / 20.
    EXPECT_NEAR(covariance[0], 0.02 * 4 / 20, 1e-12);
    EXPECT_NEAR(covariance[1], 0.02 * -6 / 20, 1e-12);
    EXPECT_NEAR(covariance[2], 0.02 * 14 / 20, 1e-12);
}

} // namespace
