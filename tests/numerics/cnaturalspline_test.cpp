// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnaturalspline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace Zorvan {
namespace {

constexpr unsigned uiSeed = 47110815;

struct Points
{
    std::vector<double> x;
    std::vector<double> y;

    [[nodiscard]] CNaturalSpline Spline(int degree) const { return {x.data(), y.data(), x.size(), degree}; }
};

/// Gaps between 0.1 and 3, so that a wrong weight of uneven gaps shows.
Points randomPoints(std::mt19937& engine, std::size_t n)
{
    Points points{std::vector<double>(n), std::vector<double>(n)};
    double x = -3.0;
    for (std::size_t i = 0; i < n; ++i) {
        x += std::uniform_real_distribution<double>(0.1, 3.0)(engine);
        points.x[i] = x;
        points.y[i] = std::uniform_real_distribution<double>(-2.0, 2.0)(engine);
    }
    return points;
}

// The laws have one solution only: interpolation, smoothness up to degree - 1, and no curvature at the ends.
TEST(CNaturalSpline, InterpolatesSmoothlyAndEndsStraight)
{
    std::mt19937 engine(uiSeed);
    for (int n = 2; n < 20; ++n)
        for (int degree = 1; degree <= 3; ++degree) {
            const Points points = randomPoints(engine, static_cast<std::size_t>(n));
            const CNaturalSpline spline = points.Spline(degree);
            for (std::size_t i = 0; i < points.x.size(); ++i) {
                EXPECT_EQ(spline.eval(points.x[i], 0), points.y[i]);
                const double next = i + 1 < points.x.size() ? points.x[i + 1] : points.x[i];
                for (const double knot : {points.x[i], (points.x[i] + next) / 2.0})
                    for (int d = 0; d < degree; ++d)
                        EXPECT_NEAR(spline(knot - 1e-11, d), spline(knot + 1e-11, d), 1e-7) << degree << ", d " << d;
            }
            for (const double outside : {points.x.front() - 0.5, points.x.back() + 0.5})
                EXPECT_EQ(spline(outside, 2), 0.0) << "degree " << degree;
            EXPECT_NEAR(spline(points.x.front() + 1e-11, 2), 0.0, degree == 1 ? 0.0 : 1e-7);
        }
}

TEST(CNaturalSpline, GivesTheDerivativesOfItsValues)
{
    std::mt19937 engine(uiSeed);
    const Points points = randomPoints(engine, 12);
    constexpr double dStep = 1e-3;
    for (int degree = 1; degree <= 3; ++degree) {
        const CNaturalSpline spline = points.Spline(degree);
        for (std::size_t i = 0; i < points.x.size(); ++i) { // a quarter of the gap away from every knot, and outside
            const double next = i + 1 < points.x.size() ? points.x[i + 1] : points.x[i] + 4.0;
            const double x = points.x[i] + (next - points.x[i]) / 4.0;
            for (int d = 1; d <= 5; ++d)
                EXPECT_NEAR(spline(x, d), (spline(x + dStep, d - 1) - spline(x - dStep, d - 1)) / (2.0 * dStep), 1e-3)
                    << "degree " << degree << ", derivative " << d;
        }
    }
}

TEST(CNaturalSpline, ReproducesCurvesOfItsOwnKind)
{
    const Points line{{0.0, 1.0, 5.0, 6.5}, {1.0, 3.0, 11.0, 14.0}};
    for (int degree = -1; degree < 9; ++degree) EXPECT_NEAR(line.Spline(degree)(2.7, 0), 6.4, 1e-14);
    const Points hat{{-1.0, 0.0, 1.0}, {0.0, 1.0, 0.0}};
    EXPECT_EQ(hat.Spline(99)(0.5, 0), hat.Spline(3)(0.5, 0));
}

TEST(CNaturalSpline, StepsWherePointsShareAnInput)
{
    const Points step{{0.0, 1.0, 1.0, 1.0, 2.0}, {0.0, 1.0, 9.0, 5.0, 6.0}};
    for (int degree = 1; degree <= 3; ++degree) {
        EXPECT_DOUBLE_EQ(step.Spline(degree)(0.5, 0), 0.5);
        EXPECT_EQ(step.Spline(degree)(1.0, 0), 5.0);
        EXPECT_DOUBLE_EQ(step.Spline(degree)(1.5, 0), 5.5);
    }
}

TEST(CNaturalSpline, IsStraightWhereCurvaturesOverflow)
{
    const Points close{{0.0, 5e-318, 2.5e-228, 255.0}, {0.0, 0.0, 255.0, 255.0}};
    for (int degree = 1; degree <= 3; ++degree)
        for (const double x : {0.0, 1e-228, 2.5e-228, 100.0, 255.0}) {
            const double y = close.Spline(degree)(x, 0);
            EXPECT_TRUE(y >= 0.0 && y <= 255.0) << y << " at " << x << ", degree " << degree;
        }
}

TEST(CNaturalSpline, IsSafeWithoutPointsAndOnWildOnes)
{
    EXPECT_EQ(CNaturalSpline()(7.0, 0), 0.0);
    EXPECT_EQ(CNaturalSpline(nullptr, nullptr, 0, 3)(7.0, 1), 0.0);
    constexpr double dInf = std::numeric_limits<double>::infinity();
    constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();
    const Points wild{{-dInf, 0.0, 1.0, 2.0, dInf, dNaN}, {1.0, dInf, 2.0, dNaN, 3.0, 4.0}};
    for (int degree = 1; degree <= 3; ++degree) {
        EXPECT_EQ((Points{{2.0}, {5.0}}.Spline(degree)(-1.0, 0)), 5.0);
        EXPECT_EQ(wild.Spline(degree)(1.5, 0), 2.0) << "alone between two steps";
        EXPECT_TRUE(std::isnan(wild.Spline(degree)(dNaN, 0)));
    }
}

} // namespace
} // namespace Zorvan
