// SPDX-License-Identifier: MIT
#include "tests/support/commalocale.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/colour/cchanneltransfercurve.h"
#include "zorvan/colour/ccolortransfercurve.h"
#include "zorvan/colour/din99o.h"
#include "zorvan/colour/hsl.h"
#include "zorvan/colour/hsv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>

namespace Zorvan {
namespace {

constexpr double dNaN = std::numeric_limits<double>::quiet_NaN();

TEST(TransferCurves, StartAsTheIdentityOverTheRangeOfTheirChannel)
{
    EXPECT_EQ(CChannelTransferCurve()(0.5), 0.5);
    EXPECT_EQ(CChannelTransferCurve(0, 255, 7).GetDegree(), 3);
    const std::tuple<CChannelTransferCurve, double, double> ranges[] = {
        {cs::RGB::CreateChannelTransferCurve(2, 1), 0, 255},     {cs::XYZ::CreateChannelTransferCurve(0, 2), 0, 100},
        {cs::Lab::CreateChannelTransferCurve(0, 1), 0, 100},     {cs::Lab::CreateColorTransferCurve(3)[1], -128, 128},
        {cs::DIN99o::CreateColorTransferCurve(1)[2], -128, 128}, {cs::DIN99o::CreateColorTransferCurve(1)[0], 0, 100},
        {cs::HSV::CreateChannelTransferCurve(0, 1), 0, 360},     {cs::HSV::CreateChannelTransferCurve(1, 3), 0, 1},
        {cs::HSL::CreateChannelTransferCurve(0, 1), 0, 360},     {cs::HSL::CreateChannelTransferCurve(2, 2), 0, 100}};
    for (const auto& [curve, lo, hi] : ranges)
        for (double t = -0.25; t <= 1.25; t += 0.125)
            EXPECT_DOUBLE_EQ(curve * (lo + t * (hi - lo)), std::clamp(lo + t * (hi - lo), lo, hi)) << lo << " " << hi;
    for (const int channel : {-1, 3})
        EXPECT_THROW(static_cast<void>(cs::Lab::CreateChannelTransferCurve(channel, 1)), std::invalid_argument);
}

TEST(TransferCurves, TakePointsOfTheirRangeInAnyOrder)
{
    CChannelTransferCurve curve(0, 255, 1);
    EXPECT_TRUE(curve.AddControlPoint(100, 200) && curve.AddControlPoint(50, 10));
    EXPECT_FALSE(curve.AddControlPoint(-1, 0) || curve.AddControlPoint(0, 256) || curve.AddControlPoint(dNaN, 0) ||
                 curve.AddControlPoint(0, dNaN));
    EXPECT_EQ(curve.Size(), 4U);
    EXPECT_EQ(curve[1].dInput, 50.0);
    EXPECT_EQ(curve(75), 105.0);

    CChannelTransferCurve atOnce(0, 255, 1);
    atOnce.AddControlPoints({{{100, 200}, {-1, 0}, {50, 10}, {0, dNaN}}});
    for (double x = -10; x < 270; x += 7) EXPECT_EQ(atOnce(x), curve(x));

    curve[1].dInput = 150.0; // moved behind its neighbour
    curve.Update();
    EXPECT_EQ(curve[1].dInput, 100.0);
    curve.SetDegree(7);
    EXPECT_EQ(curve.GetDegree(), 7);
    EXPECT_EQ(curve.GetSpline().eval(120, 3), curve.GetSpline().eval(125, 3));
    EXPECT_NE(curve.GetSpline().eval(120, 3), 0.0) << "the spline takes 7 as 3";
}

// The spline swings beyond its points, the curve does not.
TEST(TransferCurves, StayInTheirRange)
{
    for (int degree = 1; degree <= 3; ++degree) {
        CChannelTransferCurve curve(0, 1, degree);
        curve.AddControlPoints({{{0.1, 1}, {0.2, 1}, {0.3, 0}, {0.4, 0}}});
        bool isHeld = false;
        for (double x = 0.0; x <= 1.0; x += 0.001) {
            EXPECT_TRUE(curve(x) >= 0.0 && curve(x) <= 1.0);
            isHeld = isHeld || curve(x) != curve.GetSpline().eval(x, 0);
        }
        EXPECT_EQ(isHeld, degree > 1);
        EXPECT_TRUE(std::isnan(curve(dNaN)));
    }
}

TEST(TransferCurves, NeverReadAPointThatIsNotThere)
{
    CChannelTransferCurve curve(0, 255, 2);
    curve[2] = {17, 18}; // the place behind the last point
    EXPECT_EQ(curve.Size(), 2U);
    EXPECT_EQ(curve(100), 100.0);
    EXPECT_THROW(static_cast<void>(curve[3]), std::invalid_argument);
    curve.Clear();
    EXPECT_EQ(curve(100), 100.0) << "without points: held in the range";
    EXPECT_EQ(curve(-5), 0.0);
    EXPECT_EQ(curve(300), 255.0);
    curve.AddControlPoint(100, 7);
    for (const double x : {50.0, 100.0, 200.0}) EXPECT_EQ(curve(x), 7.0) << "one point";
    curve.AddControlPoint(200, 9);
    curve[0].dInput = dNaN;
    curve.Update();
    EXPECT_EQ(curve[0].dInput, 200.0);
    EXPECT_EQ(curve(100), 9.0);
}

TEST(TransferCurves, StretchContrastBetweenTwoLimits)
{
    CChannelTransferCurve curve(0, 200, 3);
    curve.SetContrast(0.5, 40, 120); // the line through the middle (80, 80) with twice the slope, between 60 and 100
    EXPECT_EQ(curve.GetDegree(), 1);
    for (const auto& [x, y] : {std::pair(0, 40), {60, 40}, {70, 60}, {80, 80}, {90, 100}, {100, 120}, {200, 120}})
        EXPECT_DOUBLE_EQ(curve(x), y);
    curve.SetContrast(-3, dNaN, 900);
    for (double x = 0; x <= 200; x += 20) EXPECT_DOUBLE_EQ(curve(x), x);
    curve.SetContrast(1, -5, dNaN);
    EXPECT_DOUBLE_EQ(curve[0].dInput, 99.0);
    EXPECT_DOUBLE_EQ(curve[1].dInput, 101.0) << "contrast is held at 0.99";
}

TEST(TransferCurves, BendContrastAroundTheMiddle)
{
    CChannelTransferCurve curve(100, 400, 1);
    curve.SetContrast(0.2, false);
    EXPECT_EQ(curve.Size(), 4U);
    for (const auto& [x, y] : {std::pair(100, 100), {130, 100}, {250, 250}, {370, 400}, {400, 400}})
        EXPECT_DOUBLE_EQ(curve(x), y);
    curve.SetDegree(3);
    curve.SetContrast(0.2, true);
    EXPECT_EQ(curve.Size(), 5U);
    for (const auto& [x, y] : {std::pair(130, 110), {250, 250}, {370, 390}}) EXPECT_DOUBLE_EQ(curve(x), y);
    curve.SetContrast(1.1, true);
    curve.SetContrast(dNaN, true);
    EXPECT_DOUBLE_EQ(curve(130), 110) << "unchanged";
    curve.SetContrast(1.0, true); // all inner points share one input: a step
    for (const auto& [x, y] : {std::pair(100, 100), {400, 400}}) EXPECT_DOUBLE_EQ(curve(x), y);
    EXPECT_NEAR(curve(249.999), 150, 0.01);
    EXPECT_NEAR(curve(250.001), 350, 0.01);
}

TEST(TransferCurves, CorrectGammaAtTheirPoints)
{
    CChannelTransferCurve curve(50, 100, 3);
    curve.SetGammaCorrection(2.2);
    EXPECT_EQ(curve.Size(), 32U);
    EXPECT_EQ(curve.GetDegree(), 1);
    for (int i = 0; i < 32; ++i) EXPECT_NEAR(curve(50 + i * 50.0 / 31), 50 + 50 * std::pow(i / 31.0, 2.2), 1e-10);
    for (double x = 50; x <= 100; x += 0.3)
        EXPECT_NEAR(curve(x), 50 + 50 * std::pow((x - 50) / 50, 2.2), 0.02) << "straight between the points";
    curve.SetGammaCorrection(-1.0); // infinite at the start
    EXPECT_EQ(curve(50.1), 100.0);
    curve.SetGammaCorrection(1.0);
    EXPECT_EQ(curve.Size(), 0U);
    EXPECT_EQ(curve(60), 60.0);
}

TEST(TransferCurves, AreWrittenAsATable)
{
    const CCommaLocale comma;
    const TemporaryFolder folder;
    CChannelTransferCurve curve(0, 1, 1);
    curve.AddControlPoint(0.2, 0.6);
    curve.RenderToCSVFile((folder / "no folder" / "table.csv").c_str());
    curve.RenderToCSVFile((folder / "table.csv").c_str());
    std::ifstream file(folder / "table.csv");
    std::string line;
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(std::getline(file, line));
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g %g", i / 255.0, curve(i / 255.0));
        std::string classic(expected);
        std::replace(classic.begin(), classic.end(), ',', '.');
        EXPECT_EQ(line, classic);
    }
    EXPECT_FALSE(std::getline(file, line));
}

} // namespace
} // namespace Zorvan
