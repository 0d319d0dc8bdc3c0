// SPDX-License-Identifier: MIT
#include "zorvan/colour/din99o.h"
#include "zorvan/colour/hsl.h"
#include "zorvan/colour/hsv.h"
#include "zorvan/colour/lab.h"
#include "zorvan/colour/rgb.h"
#include "zorvan/colour/xyz.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace Zorvan::cs {
namespace {

constexpr unsigned uiSeed = 47110815;

template <typename T>
double largestDifference(const T& a, const T& b)
{
    return std::max({std::fabs(a[0] - b[0]), std::fabs(a[1] - b[1]), std::fabs(a[2] - b[2])});
}

template <typename T>
testing::AssertionResult isNear(const T& actual, const T& expected, double tolerance)
{
    if (largestDifference(actual, expected) <= tolerance) return testing::AssertionSuccess();
    return testing::AssertionFailure() << actual[0] << ", " << actual[1] << ", " << actual[2] << " instead of "
                                       << expected[0] << ", " << expected[1] << ", " << expected[2];
}

/// Every fifth value of all three bytes.
template <typename Visit>
void overTheCube(const Visit& visit)
{
    for (int r = 0; r <= 255; r += 5)
        for (int g = 0; g <= 255; g += 5)
            for (int b = 0; b <= 255; b += 5) visit(RGB(r, g, b));
}

struct RoundTrip
{
    const char* name;
    RGB (*thereAndBack)(const RGB&);
    double tolerance; ///< of 255; what the six digits of the matrices leave
    bool needsZ;      ///< passes the limit of 100 for z
};

const RoundTrip roundTrips[] = {
    {"XYZ", [](const RGB& c) { return XYZ(c).ToRGB(); }, 0.001, false},
    {"sRGB", [](const RGB& c) { return XYZ::FromSRGB(c).ToSRGB(); }, 0.01, false},
    {"Lab", [](const RGB& c) { return Lab(c).ToRGB(); }, 0.001, true},
    {"Lab of sRGB", [](const RGB& c) { return Lab(XYZ::FromSRGB(c)).ToXYZ().ToSRGB(); }, 0.01, true},
    {"DIN99o", [](const RGB& c) { return DIN99o(c).ToRGB(); }, 0.001, true},
    {"HSV", [](const RGB& c) { return HSV(c).ToRGB(); }, 1e-12, false},
    {"bytes", [](const RGB& c) { return RGB(c.Pack()); }, 0.0, false},
};

TEST(Colours, ComeBackOverTheWholeCube)
{
    for (const RoundTrip& trip : roundTrips) {
        double worst = 0.0;
        int n = 0;
        overTheCube([&](const RGB& c) {
            if (trip.needsZ && std::max(XYZ(c).z, XYZ::FromSRGB(c).z) > 100.0) return;
            worst = std::max(worst, largestDifference(trip.thereAndBack(c), c));
            ++n;
        });
        EXPECT_LE(worst, trip.tolerance) << trip.name;
        EXPECT_GT(n, 125000) << trip.name;
    }
}

TEST(Colours, AgreeWithPublishedValues)
{
    // Lab of the sRGB primaries under D65 as colour tables print them.
    const std::pair<RGB, Lab> primaries[] = {{{255, 0, 0}, {53.2408, 80.0925, 67.2032}},
                                             {{0, 255, 0}, {87.7347, -86.1827, 83.1793}},
                                             {{0, 0, 255}, {32.2970, 79.1875, -107.8602}},
                                             {{255, 255, 255}, {100.0, 0.0053, -0.0104}},
                                             {{128, 128, 128}, {53.5850, 0.0, 0.0}}};
    for (const auto& [rgb, lab] : primaries) EXPECT_TRUE(isNear(Lab(XYZ::FromSRGB(rgb)), lab, 0.02));
    EXPECT_TRUE(isNear(XYZ(RGB(255.0)), XYZ(95.0456, 100.0, 108.8754), 1e-4));
    // The published formula divides by 0.0435 where 23 stands here.
    EXPECT_TRUE(isNear(DIN99o(Lab(50, 20, -30)), DIN99o(54.09765, 15.64860, -22.15027), 0.02));
    EXPECT_TRUE(isNear(DIN99o(Lab(90, -10, 70)), DIN99o(91.35762, -3.25790, 39.03025), 0.02));
    for (double t = 0.009; t < 2.0; t *= 1.01)
        EXPECT_NEAR(Lab(XYZ(95.047, 100.0 * t, 108.883)).L, 116.0 * std::cbrt(t) - 16.0, 1e-7) << "cube root of " << t;
}

TEST(Colours, AgreeWithThePublishedPairsOfCIEDE2000)
{
    const char* const folder = std::getenv("ZORVAN_DATA");
    if (folder == nullptr) GTEST_SKIP() << "ZORVAN_DATA is not set; it names the folder of the test pairs";
    std::ifstream file(std::string(folder) + "/colour/ciede2000.txt");
    std::string line;
    int n = 0;
    while (std::getline(file, line)) {
        Lab a;
        Lab b;
        double difference = 0.0;
        if (!(std::istringstream(line) >> a.L >> a.a >> a.b >> b.L >> b.a >> b.b >> difference)) continue;
        ++n;
        EXPECT_NEAR(std::sqrt(a.DistanceSq_CIEDE2000(b)), difference, 5.1e-5) << line;
        EXPECT_NEAR(b.DistanceSq_CIEDE2000(a), a.DistanceSq_CIEDE2000(b), 1e-9) << line;
        EXPECT_EQ(a.Distance_CIEDE2000(b), a.Distance(b)) << "the plain distance, by this name too";
    }
    EXPECT_EQ(n, 34);
}

TEST(Colours, KnowTheirHues)
{
    std::mt19937 engine(uiSeed);
    std::uniform_real_distribution<double> draw(-60.0, 60.0);
    for (int i = 0; i < 1000; ++i) {
        const DIN99o c(50.0, i % 4 == 0 ? 0.0 : draw(engine), i % 4 == 1 ? 0.0 : draw(engine));
        const double degrees = std::atan2(c.b, c.a) * 180.0 / 3.14159265358979323846;
        EXPECT_NEAR(c.Hue(), degrees < 0.0 ? degrees + 360.0 : degrees, 1e-10);
    }
    EXPECT_EQ(DIN99o(50, 0, 0).Hue(), 0.0);

    const std::pair<RGB, HSV> corners[] = {{{255, 0, 0}, {0, 1, 1}},         {{255, 255, 0}, {60, 1, 1}},
                                           {{0, 51, 0}, {120, 1, 0.2}},      {{0, 255, 255}, {180, 1, 1}},
                                           {{102, 102, 255}, {240, 0.6, 1}}, {{255, 0, 51}, {348, 1, 1}},
                                           {{51, 51, 51}, {0, 0, 0.2}},      {{0, 0, 0}, {0, 0, 0}}};
    for (const auto& [rgb, hsv] : corners) {
        EXPECT_TRUE(isNear(HSV(rgb), hsv, 1e-12));
        EXPECT_TRUE(isNear(hsv.ToRGB(), rgb, 1e-12));
    }
    HSV outside(359.0, 1.0, 1.0);
    for (const double step : {1.0, 30.0, -800.0, std::nan("")}) {
        outside.h += step;
        EXPECT_TRUE(isNear(outside.ToRGB(), outside.h == 360.0 ? RGB(255, 0, 0) : RGB(0.0), 1e-12)) << outside.h;
    }
}

TEST(Colours, ConvertHSLOnTwoScales)
{
    const std::pair<HSL, RGB> shades[] = {{{0, 100, 50}, {1, 0, 0}},     {{360, 100, 50}, {1, 0, 0}},
                                          {{120, 100, 25}, {0, 0.5, 0}}, {{210, 50, 40}, {0.2, 0.4, 0.6}},
                                          {{300, 100, 75}, {1, 0.5, 1}}, {{77, 0, 30}, {0.3, 0.3, 0.3}},
                                          {{180, 100, 100}, {1, 1, 1}},  {{40, 30, 0}, {0, 0, 0}}};
    for (const auto& [hsl, rgb] : shades) EXPECT_TRUE(isNear(hsl.ToRGB(), rgb, 1e-12));
    EXPECT_TRUE(isNear(HSL(RGB(0.2, 0.4, 0.6)), HSL(210, 0.5, 0.4), 1e-12));
    EXPECT_TRUE(isNear(HSL(RGB(1, 0.5, 1)), HSL(300, 0.5 / 1.5, 0.75), 1e-12)) << "the odd divisor of light colours";
    EXPECT_TRUE(isNear(HSL(RGB(0.7)), HSL(0, 0, 0.7), 1e-12));
}

TEST(Colours, SayWhetherTheyAreValid)
{
    EXPECT_FALSE(RGB() || XYZ() || Lab() || DIN99o() || HSV() || HSL());
    EXPECT_FALSE(HSV(RGB(1, std::nan(""), 1)) || HSL(RGB(0, 0, std::nan(""))) || Lab(RGB(std::nan(""), 0, 0)));
    EXPECT_TRUE(RGB(0.0) && XYZ(RGB(0.0)) && DIN99o(-1, 900, 0));
    EXPECT_TRUE(Lab(100, -128, 127) && Lab(0, 127, -128));
    EXPECT_FALSE(Lab(100.5, 0, 0) || Lab(-0.1, 0, 0) || Lab(50, 127.5, 0) || Lab(50, 0, -129) || Lab::max());

    RGB::Packed bytes(0, 0, 1);
    EXPECT_TRUE(bytes && RGB(RGB::Packed(0, 0, 0)));
    bytes.Invalidate();
    EXPECT_TRUE(!bytes && bytes == RGB::Packed(0, 0, 0));
    Lab::Packed lab = Lab(0, 3, 4).Pack();
    EXPECT_TRUE(lab);
    lab.Invalidate();
    EXPECT_TRUE(!lab && lab == Lab::Packed(-128, 0, 0));
}

TEST(Colours, RoundToBytesWithinTheirLimits)
{
    EXPECT_EQ(RGB(0.5, 1.5, 254.5).Pack(), RGB::Packed(0, 2, 254)) << "ties to even";
    EXPECT_EQ(RGB::Packed::FromRGB(-3, 1e300, std::nan("")), RGB::Packed(0, 255, 0));
    EXPECT_EQ(RGB(10, 200, 100).ToGray(), 152) << "2.13 + 143.03 + 7.22";
    EXPECT_EQ(Lab(101, 200, -500).Pack(), Lab::Packed::max().L == 100 ? Lab::Packed(100, 127, -128) : Lab::Packed());
    EXPECT_EQ(DIN99o::Packed::fromDIN99o(-1, 2.5, 3.5), DIN99o::Packed(0, 2, 4));
    EXPECT_TRUE(isNear(Lab(Lab::Packed(50, -128, 127)), Lab(50, -128, 127), 0.0));
    EXPECT_TRUE(isNear(Lab(-1, 300, -300).Clamp(), Lab(0, 127, -128), 0.0));
    EXPECT_TRUE(isNear(RGB(-1, 300, 7).Clamp() + RGB(XYZ(-1, 300, 7).Clamp().y), RGB(100, 355, 107), 0.0));
}

TEST(Colours, AreReadFromWordsAsTheyWereWritten)
{
    const RGB::Packed bytes(0x12, 0x34, 0x56);
    EXPECT_EQ(bytes.ToARGB(), 0xFF123456U);
    EXPECT_EQ(bytes.ToABGR(), 0xFF563412U);
    EXPECT_EQ(bytes.ToRGBA(), 0x123456FFU);
    EXPECT_EQ(bytes.ToBGRA(), 0x563412FFU);
    const RGB c(0x12 + 0.4, 0x34 - 0.4, 0x56);
    EXPECT_EQ(RGB::FromARGB(c.ToARGB() & 0xFFFFFF).Pack(), bytes) << "alpha does not count";
    EXPECT_EQ(RGB::FromABGR(c.ToABGR()).Pack(), bytes);
    EXPECT_EQ(RGB::FromRGBA(c.ToRGBA()).Pack(), bytes);
    EXPECT_EQ(RGB::FromBGRA(c.ToBGRA()).Pack(), bytes);
}

TEST(Colours, CalculateByComponents)
{
    const XYZ a(1, 2, 3);
    const XYZ b(10, 20, 40);
    EXPECT_TRUE(isNear((a + b) * a - b / 2.0F, XYZ(6, 34, 109), 0.0));
    EXPECT_TRUE(isNear(HSV(300, 0.5, 0.5) + HSV(300, 0.9, 0.1), HSV(360, 1, 0.6), 0.0));
    HSL light(300, 50, 50);
    light *= 3.0;
    EXPECT_EQ(light.s, 150.0) << "the compound forms do not clamp";
    EXPECT_EQ((light * 1.0).s, 100.0);
    EXPECT_EQ(RGB(1, 2, 3).PackSSE(), (std::array<float, 4>{1, 2, 3, 0}));

    const Lab from(10, 20, 30);
    const Lab to(20, 40, -30);
    EXPECT_TRUE(isNear(from.Mix(to, 0.5, 0.25), Lab(15, 25, 15), 0.0));
    EXPECT_TRUE(isNear(RGB(10, 20, 30).Mix(RGB(20, 40, -30), 0.5), RGB(15, 30, 0), 0.0));
    EXPECT_DOUBLE_EQ(from.Distance(to), std::sqrt(4100.0));
    EXPECT_DOUBLE_EQ(from.ChromaticDistance(to), std::sqrt(4000.0));
    EXPECT_EQ(from.DistanceSqWeighted(to, 2.0F, 3.0F, 0.5F), 3200.0F);
    EXPECT_EQ(Lab(1.0 + 1e-9, 0, 0).DistanceSqWeighted(Lab(1, 0, 0), 1, 1, 1), 0.0F) << "in single precision";
    EXPECT_EQ(DIN99o(50, 3, 4).DeltaC(DIN99o(40, 6, 8)) + DIN99o(50, 3, 4).LuminanceDistance(DIN99o(60, 0, 0)), 15.0);
}

} // namespace
} // namespace Zorvan::cs
