// SPDX-License-Identifier: MIT
#include "tests/support/temporaryfolder.h"

#include "zorvan/colour/rgbtransfercurveparser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace Zorvan {
namespace {

struct Curves
{
    std::array<CChannelTransferCurve, 5> channels; ///< value, red, green, blue, alpha
    std::string error;
};

Curves curvesOf(const std::string& text)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "test.curve") << text;
    RGBTransferCurveParser parser((folder / "test.curve").string());
    std::string error;
    try {
        parser.Parse();
    } catch (const AStreamParser::CParseError& e) {
        error = std::to_string(e.GetLine()) + ":" + std::to_string(e.GetColumn()) + " " +
                AStreamParser::Convert(e.GetMessage());
    }
    const auto rgb = parser.GetRGBTransferCurve();
    return {{parser.GetValueTransferCurve(), rgb[0], rgb[1], rgb[2], parser.GetAlphaTransferCurve()}, error};
}

std::string section(const std::string& channel, const std::string& type, const std::string& points,
                    const std::string& samples)
{
    return "(channel " + channel + ")\n(curve (curve-type " + type + ") (n-points 9) (points " + points +
           ")\n (n-samples 9) (samples " + samples + "))\n";
}

bool isIdentity(const CChannelTransferCurve& curve)
{
    return curve.Size() == 2 && curve.GetDegree() == 1 && curve(0) == 0 && curve(255) == 255 && curve.Hi() == 255;
}

TEST(RGBTransferCurveParser, ReadsSmoothPointsAndFreeSamples)
{
    const auto [channels, error] =
        curvesOf("# made by hand\n( TIME 0 )\n" + section("value", "smooth", "6 1 1 0.5 .6 0 0", "2 7 8") +
                 section("alpha", "free", "2 0.1 0.1", "6 5 4 3 2 1 255"));
    EXPECT_EQ(error, "");
    EXPECT_EQ(channels[0].Size(), 3U);
    EXPECT_EQ(channels[0].GetDegree(), 2);
    for (const double share : {0.0, 1.0}) EXPECT_EQ(channels[0](255 * share), 255 * share);
    EXPECT_DOUBLE_EQ(channels[0](127.5), 153.0);
    EXPECT_EQ(channels[4].Size(), 6U);
    EXPECT_EQ(channels[4].GetDegree(), 1);
    for (int i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(channels[4][i].dInput, 51.0 * i);
    EXPECT_EQ(channels[4](255), 255.0);
    EXPECT_DOUBLE_EQ(channels[4](76.5), 3.5) << "straight between the samples";
    for (const int untouched : {1, 2, 3}) EXPECT_TRUE(isIdentity(channels[untouched]));
    EXPECT_TRUE(std::ranges::all_of(curvesOf("(time 0)").channels, isIdentity));
}

TEST(RGBTransferCurveParser, SortsChannelsAndKeepsTheLastOfEach)
{
    const auto [channels, error] = curvesOf(
        "(time 1)" + section("red", "free", "0", "2 1 1") + section("green", "free", "0", "2 2 2") +
        section("blue", "free", "0", "2 3 3") + section("red", "free", "0", "2 4 4") + "whatever stands behind");
    EXPECT_EQ(error, "");
    for (const int channel : {1, 2, 3}) EXPECT_EQ(channels[channel](99), channel == 1 ? 4.0 : channel);
    EXPECT_TRUE(isIdentity(channels[0]) && isIdentity(channels[4]));
}

TEST(RGBTransferCurveParser, DropsWhatLiesOutsideTheRange)
{
    EXPECT_NE(curvesOf("(time 0)" + section("red", "smooth", "1 1e999 0.1", "0")).error, "") << "1e999 is no number";
    const Curves good =
        curvesOf("(time 0)" + section("red", "smooth", "9 -1 0.5 0.5 -0.1 0.25 0.5 1.1 0.3 0.75 1.01", "0") +
                 section("green", "free", "0", "3 7 -1 9 10 11") + section("blue", "free", "0", "1 7 8") +
                 section("alpha", "free", "0", "-2147483648 7") + section("value", "smooth", "0", "0"));
    EXPECT_EQ(good.error, "");
    EXPECT_EQ(good.channels[1].Size(), 1U);
    EXPECT_DOUBLE_EQ(good.channels[1](63.75), 127.5);
    EXPECT_EQ(good.channels[2].Size(), 2U) << "the first and the third; the fourth would lie behind the range";
    EXPECT_EQ(good.channels[2](255), 9.0);
    EXPECT_EQ(good.channels[3].Size(), 0U) << "one sample has no place";
    EXPECT_EQ(good.channels[4](100), 7.0) << "the first sample has its place for any other number";
    EXPECT_EQ(good.channels[0](300), 255.0) << "no points: held in the range";
}

// Rounded, the place of the last of these would lie behind the range and be lost.
TEST(RGBTransferCurveParser, KeepsTheLastSampleOfAnyNumber)
{
    for (int n = 2; n < 3000; n += 31) {
        std::string samples = std::to_string(n);
        for (int i = 1; i <= n; ++i) samples += i == n ? " 200" : " 1";
        const Curves curves = curvesOf("(time 0)" + section("red", "free", "0", samples));
        ASSERT_EQ(curves.channels[1].Size(), static_cast<std::size_t>(n));
        ASSERT_EQ(curves.channels[1](255), 200.0) << n;
    }
}

TEST(RGBTransferCurveParser, ReportsWhereAndWhy)
{
    const std::string curve = "(time 0)\n(channel red)\n(curve ";
    const std::pair<std::string, std::string> cases[] = {
        {"", "1:-1 unexpected end of text"},
        {"(thyme 0)", "1:2 expected identifier \"time\" (found \"thyme\")"},
        {"(time 0.5)", "1:7 expected token [integer], found [fp. number]."},
        {"(time 0)\n(channel cyan)", "2:10 invalid channel name: 'cyan'"},
        {"(time 0)\n(channel Red)", "2:10 invalid channel name: 'Red'"},
        {curve + "(curve-type Smooth)", "3:20 unsupported curve type"},
        {curve + "(curve type free)", "3:15 expected token '-', found [identifier]."},
        {curve + "(curve-type free) (n-points 1.5)", "3:36 expected token [integer], found [fp. number]."},
        {curve + "(curve-type free) (n-points 0) (points 0 1)", "3:50 expected token [fp. number], found ')'."},
        {curve + "(curve-type free) (n-points 0) (points 0) (n-samples 0) (samples 0 red))",
         "3:75 expected token [fp. number], found [identifier]."},
        {curve + "(curve-type free) (n-points 0) (points 0) (n-samples 0) (samples 0", "3:-1 unexpected end of text"},
        {curve + "(curve-type free) (n-points 0) (points 0) (n-samples 0) (samples 0) (",
         "3:76 expected token ')', found '('."},
    };
    for (const auto& [text, error] : cases) EXPECT_EQ(curvesOf(text).error, error) << text;
    RGBTransferCurveParser missing("no such file");
    EXPECT_THROW(missing.Parse(), AStreamParser::CParseError);
}

// One build of the spline for each of these points would take hours.
TEST(RGBTransferCurveParser, ReadsManyPoints)
{
    std::string points = "2";
    for (int i = 0; i < 300000; ++i) points += " 0.5 0.5";
    EXPECT_EQ(curvesOf("(time 0)" + section("red", "smooth", points, "0")).channels[1].Size(), 300000U);
}

} // namespace
} // namespace Zorvan
