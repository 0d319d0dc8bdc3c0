// SPDX-License-Identifier: MIT
#include "zorvan/workflow/autosettings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using prereg::ChoosePairSettings;
using prereg::CPointSet;

/// A wavy sheet of 40 mm with rows of points and noise across it.
CPointSet sheet(double alongRows, double betweenRows, double noise)
{
    std::mt19937 rng(47110815);
    std::normal_distribution<double> normal;
    prereg::Vectors points;
    prereg::Vectors normals;
    for (double y = 0; y < 40; y += betweenRows) {
        for (double x = 0; x < 40; x += alongRows) {
            points.emplace_back(static_cast<float>(x), static_cast<float>(y),
                                static_cast<float>(2 * std::sin(0.2 * x) + noise * normal(rng)));
            normals.emplace_back(0.0F, 0.0F, 1.0F);
        }
    }
    return {points.data(), normals.data(), points.size()};
}

TEST(ChoosePairSettings, FollowsSpacingNoiseAndLines)
{
    const CPointSet raster = sheet(0.3, 0.3, 0.02);
    const CPointSet noisy = sheet(0.3, 0.3, 0.2);
    const CPointSet lines = sheet(0.15, 1.5, 0.01);
    const CPointSet coarse = sheet(0.9, 0.9, 0.02);
    EXPECT_NEAR(ChoosePairSettings(&raster, &raster, {}).dGrid, 0.3, 0.05);
    for (const auto& pair : {ChoosePairSettings(&raster, &noisy, {}), ChoosePairSettings(nullptr, &noisy, {})}) {
        EXPECT_NEAR(pair.dGrid, 0.4, 0.06) << pair.reason;
        EXPECT_EQ(pair.reason, "twice the noise of the floating scan");
    }
    const auto onLines = ChoosePairSettings(&lines, &raster, {});
    EXPECT_NEAR(onLines.dGrid, std::sqrt(0.15 * 1.5), 0.1) << onLines.reason;
    EXPECT_NE(onLines.reason.find("of the fixed scan, whose points lie in lines"), std::string::npos);
    EXPECT_NEAR(ChoosePairSettings(&raster, &coarse, {}).dGrid, 0.57, 0.03) << "a hundredth of the extent at most";
    EXPECT_NEAR(ChoosePairSettings(&coarse, &raster, {}).dGrid, 0.9, 0.1);
    EXPECT_EQ(ChoosePairSettings(&lines, &noisy, 0.25).dGrid, 0.25);
}

} // namespace
