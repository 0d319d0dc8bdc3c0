// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/settingsserialization.h"

#include "tests/support/logcapture.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

using bson::element;
using bson::from_object;
using bson::object;
using bson::to_object;
using prereg::ConfigurationFPFH;
using prereg::ConfigurationICP;
using prereg::OverrideSettings;

namespace {

/// A document of settings, each with a value of its own; so a key that is swapped or missing shows.
object allDifferent(const object& settings, unsigned int start)
{
    object result;
    for (const element& e : settings) {
        if (e.type() == element::eObject)
            result += element(e.name(), allDifferent(e.as_object(), start + 100));
        else if (e.type() == element::eUInt32)
            result += element(e.name(), start++);
        else
            result += element(e.name(), 0.1 + start++);
    }
    return result;
}

} // namespace

TEST(SettingsDocument, KeepsEveryFieldUnderItsName)
{
    const object document = allDifferent(to_object(ConfigurationFPFH()), 1);
    const auto config = from_object<ConfigurationFPFH>(document);
    EXPECT_EQ(to_object(config).to_json(2), document.to_json(2));
    EXPECT_EQ(config.uiNumPolygons, 1U);
    EXPECT_EQ(config.dFeatureRadius, 6.1);
    EXPECT_EQ(config.dVerifyTrafoMinConfidence, 14.1);
    EXPECT_EQ(config.icpConfig.dMaxRMSE, 122.1);
    EXPECT_EQ(config.icpConfig.dPointAccuracy, 128.1);
    EXPECT_EQ(to_object(config.icpConfig).num_elements(), 14U);
}

TEST(SettingsDocument, IsReadStrictly)
{
    EXPECT_EQ(from_object<ConfigurationICP>({}), ConfigurationICP());
    const object twice{element("dMaxRMSE", 1.0), element("unknown", true), element("dMaxRMSE", 2.0)};
    EXPECT_EQ(from_object<ConfigurationICP>(twice).dMaxRMSE, 2.0);
    for (const element& wrong : {element("uiNumSamples", 5), element("dMaxRMSE", 1.0F), element("dMaxRMSE")})
        EXPECT_THROW(static_cast<void>(from_object<ConfigurationICP>(wrong)), std::bad_cast) << wrong.dump();
    EXPECT_THROW(static_cast<void>(from_object<ConfigurationFPFH>(element("icpConfig", 1.0))), std::bad_cast);
}

TEST(OverrideSettings, ConvertsToTheTypeOfTheSetting)
{
    ConfigurationFPFH expected;
    expected.icpConfig.uiNumSamples = 100;
    EXPECT_EQ(OverrideSettings(object::from_json("{'icpConfig' : {'uiNumSamples' : 100}}"), ConfigurationFPFH()),
              expected);
    const object loose{element("uiNumSamples", "100"), element("dMaxRMSE", 1), element("unknown", 7)};
    const ConfigurationICP icp = OverrideSettings(loose, ConfigurationICP());
    EXPECT_EQ(icp.uiNumSamples, 100U);
    EXPECT_EQ(icp.dMaxRMSE, 1.0);
    EXPECT_THROW(static_cast<void>(OverrideSettings(element("dMaxRMSE", "low"), ConfigurationICP())),
                 std::invalid_argument);
    EXPECT_THROW(static_cast<void>(OverrideSettings(element("dMaxRMSE"), ConfigurationICP())), std::bad_cast);
}

TEST(OverrideSettings, WarnsOfAnEmptyDocument)
{
    const support::LogCapture log;
    EXPECT_EQ(OverrideSettings({}, ConfigurationICP().Scale(3.0)), ConfigurationICP().Scale(3.0));
    EXPECT_EQ(OverrideSettings({}, ConfigurationFPFH()), ConfigurationFPFH());
    ASSERT_EQ(log.Messages().size(), 2U);
    EXPECT_EQ(log.Messages()[0].text, L"OverrideConfigSettings(ICP): nothing to override");
    EXPECT_EQ(log.Messages()[1].text, L"OverrideConfigSettings(FPFH): nothing to override");
    EXPECT_EQ(log.Messages()[1].function, "prereg::OverrideSettings");
    EXPECT_EQ(log.Messages()[1].domain, L"QAV.PreRegistration.FPFH");
}
