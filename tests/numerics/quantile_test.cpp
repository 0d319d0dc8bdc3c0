// SPDX-License-Identifier: MIT
#include "zorvan/numerics/quantile.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

using testing::ElementsAre;
using Zorvan::Quantile;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(Quantile, TakesTheMeanWhereTheShareIsMetExactly)
{
    const std::vector<double> four = {40, 10, 30, 20};
    const double expected[][2] = {{-1, 10},  {0, 10},    {0.24, 10}, {0.25, 15}, {0.26, 20},
                                  {0.5, 25}, {0.75, 35}, {0.76, 40}, {1, 40},    {2, 40}};
    for (const auto& [q, value] : expected) EXPECT_EQ(Quantile(four, q), value) << q;
    EXPECT_EQ(Zorvan::Median({3, 1, 2}), 2);
    EXPECT_THROW((void)Quantile({}, 0.5), std::invalid_argument);
}

TEST(Quantile, KeepsNaNsAboveAllNumbers)
{
    const std::vector<double> values = {nan, 2, nan, 1, nan, 3, nan, 4};
    EXPECT_EQ(Quantile(values, 0.25), 2.5);
    EXPECT_TRUE(std::isnan(Quantile(values, 0.75)) && std::isnan(Quantile(values, nan)));
}

TEST(RobustZScores, MeasureFromTheMedianAndFallBackToUnits)
{
    EXPECT_THAT(Zorvan::RobustZScores({1, 100, 3}), ElementsAre(-1 / 1.4826, testing::DoubleEq(97 / 2.9652), 0));
    EXPECT_THAT(Zorvan::RobustZScores({5, 5, 5, 9}), ElementsAre(0, 0, 0, 4));
    EXPECT_TRUE(Zorvan::RobustZScores({}).empty());
}

} // namespace
