// SPDX-License-Identifier: MIT
#include "zorvan/util/universaluniqueid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>

namespace {

const std::string exampleText = "0f8fad5b-d9cb-469f-a165-70867728950e";

std::string textOf(const UniversalUniqueID& id) { return id; }

TEST(UniversalUniqueID, FieldsLieInMemoryInTheOrderOfTheText)
{
    const UniversalUniqueID id = exampleText;
    EXPECT_EQ(id.Data1, 0x0f8fad5bU);
    EXPECT_EQ(id[0], 0x5b) << "little-endian";
    EXPECT_THROW(static_cast<void>(id[16]), std::out_of_range);
    wchar_t wide[37];
    EXPECT_STREQ(id.ToString(wide, true), L"0F8FAD5B-D9CB-469F-A165-70867728950E");
    EXPECT_EQ(UniversalUniqueID(static_cast<std::wstring>(id)), id);
    EXPECT_TRUE(id.Matches("0F8FAD5B-.*") && !id.Matches("0f8fad5b"));
    for (const std::string& same : {"{" + exampleText + "}", "{" + exampleText, exampleText + "}"})
        EXPECT_TRUE(id.Matches(same) && !UniversalUniqueID().Matches(same)) << same;
    EXPECT_TRUE(id.Matches("[0-9a-f-]{36}"));
    EXPECT_THROW(static_cast<void>(id.Matches(std::string(1U << 20, '('))), std::regex_error);
}

TEST(UniversalUniqueID, ReadsOnlyWholeTexts)
{
    const std::string& text = exampleText;
    const auto isValid = [](const std::wstring& wide) {
        const UniversalUniqueID id(wide);
        EXPECT_EQ(UniversalUniqueID(std::string(wide.begin(), wide.end())), id);
        EXPECT_TRUE(textOf(id) == exampleText || id == UniversalUniqueID::InvalidID());
        return textOf(id) == exampleText;
    };
    for (const std::string& good : {text, "{" + text + "}", "{" + text, text + "}", text + "} and more", text + "a"})
        EXPECT_TRUE(isValid({good.begin(), good.end()})) << good;
    for (const std::string& bad : {text + "g", text + " ", " " + text, "{{" + text, text.substr(0, 35),
                                   text.substr(0, 8), "0f8fad5b_" + text.substr(9), "0f8fad5-b" + text.substr(9),
                                   "0x" + text.substr(2), std::string(), std::string("{")})
        EXPECT_FALSE(isValid({bad.begin(), bad.end()})) << bad;

    std::wstring wide(text.begin(), text.end());
    wide[3] += 0x100; // would be a digit if only its low byte counted
    EXPECT_FALSE(UniversalUniqueID(wide));
}

TEST(UniversalUniqueID, AreRandomAndSortAgainstTheOrderOfTheTexts)
{
    std::set<UniversalUniqueID> all;
    for (int i = 0; i < 2000; ++i) all.insert(UniversalUniqueID::Create());
    EXPECT_EQ(all.size(), 2000U);
    EXPECT_TRUE(std::ranges::all_of(all, [](const auto& id) { return id[6] >> 4 == 4 && id[8] >> 6 == 2; }));

    std::mt19937 engine(47110815);
    int less = 0;
    for (UniversalUniqueID a : all) {
        UniversalUniqueID b = a;
        for (UniversalUniqueID* id : {&a, &b}) (*id)[static_cast<int>(engine() % 16)] = 10;
        EXPECT_EQ(a < b, textOf(b) < textOf(a)) << textOf(a) << " " << textOf(b);
        less += a < b;
    }
    EXPECT_TRUE(less > 500 && less < 1500);
}

} // namespace
