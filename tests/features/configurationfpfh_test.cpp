// SPDX-License-Identifier: MIT
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/features/configurationfpfh_fields.h"

#include "tests/support/commalocale.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

using prereg::ConfigurationFPFH;

// Which of them are lengths is said by their units, below.
TEST(ConfigurationFPFH, ScalesLengthsAndLeavesAllElse)
{
    ConfigurationFPFH config;
    const ConfigurationFPFH twice = config.Scale(2.0);
    EXPECT_EQ(twice.dFeatureRadius, 3.0);
    EXPECT_EQ(twice.icpConfig, config.icpConfig.Scale(2.0));
    EXPECT_EQ(twice.dMaxPolygonDiameter, config.dMaxPolygonDiameter) << "below 0 it is no length";
    config.dMaxPolygonDiameter = 4.0;
    EXPECT_EQ(config.Scale(0.5).dMaxPolygonDiameter, 2.0);
}

TEST(ConfigurationFPFH, SaysWhatIsWrong)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    using Change = void (*)(ConfigurationFPFH&);
    const std::pair<Change, const char*> cases[] = {
        {[](auto&) {}, ""},
        {[](auto& c) { c.dVerifyTrafoMinConfidence = nan; }, "dVerifyTrafoMinConfidence needs a finite number"},
        {[](auto& c) { c.icpConfig.dMaxMovement = -infinity; }, "dMaxMovement needs a finite number"},
        {[](auto& c) { c.icpConfig.dMaxRMSE = -1e-9; }, "dMaxRMSE needs a number that is not negative"},
        {[](auto& c) { c.icpConfig.dMaxStdDev = -1.0; }, ""},
        {[](auto& c) { c.uiNumNeighbors = 100; }, ""},
        {[](auto& c) { c.uiNumNeighbors = 101; }, "uiNumNeighbors needs a whole number from 0 to 100"},
        {[](auto& c) { c.uiNumPolygons = 1000001; }, "uiNumPolygons needs a whole number from 0 to 1000000"},
        {[](auto& c) { c.dFeatureRadius = 0.0; }, "dFeatureRadius (0 mm) is not between 1e-6 and 1e9 mm"},
        {[](auto& c) { c.dGridSize = c.dFeatureGridSize = 1e-7; }, "the grid is finer than 1e-6 mm"},
        {[](auto& c) { c.dGridSize = c.dFeatureGridSize = 0.0; }, ""},
        {[](auto& c) { c.dFeatureGridSize = 1.625; },
         "dFeatureGridSize (1.625 mm) is larger than dFeatureRadius (1.5 mm)"},
        {[](auto& c) { c.dGridSize = 0.5; }, "dGridSize (0.5 mm) is larger than dFeatureGridSize (0.3 mm)"},
    };
    const CCommaLocale comma;
    for (const auto& [change, words] : cases) {
        ConfigurationFPFH config;
        change(config);
        EXPECT_EQ(prereg::WhatIsWrong(config), words);
    }
}

TEST(ConfigurationFPFH, EverySettingHasOneNameAndItsWords)
{
    std::set<std::string> names;
    for (const prereg::SettingInfo& setting : prereg::AllSettings()) {
        EXPECT_TRUE(names.insert(setting.key).second) << setting.key << " would have two meanings in a settings file";
        EXPECT_GT(std::string(setting.unit).size() * std::string(setting.words).size(), 0U) << setting.key;
        EXPECT_EQ(setting.scaling != prereg::EScaling::None, std::string(setting.unit).starts_with("mm"))
            << setting.key << ": lengths grow with the data, and nothing else does";
    }
}
