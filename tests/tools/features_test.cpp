// SPDX-License-Identifier: MIT
#include "workfolder.h"

#include "zorvan/platform/cpufeatures.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/workflow/colourscale.h"
#include "zorvan/workflow/featuresummary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

using prereg::CPointFeatureHistogram;
using Zorvan::Rgb;

constexpr Rgb darkBlue{18, 22, 98};
constexpr Rgb grey{128, 128, 128};

/// The number behind the name of a row.
std::size_t countOf(const std::string& name, const std::string& text)
{
    const std::size_t at = text.find("  " + name + "  ");
    return at == std::string::npos ? 0 : std::stoul(text.substr(at + name.size() + 2));
}

std::vector<Rgb> coloursOf(const std::string& ply)
{
    constexpr std::size_t uiVertex = 27; // six floats and the colour
    std::vector<Rgb> colours;
    for (std::size_t i = ply.find("end_header\n") + 11 + 24; i + 3 <= ply.size(); i += uiVertex)
        colours.push_back({static_cast<std::uint8_t>(ply[i]), static_cast<std::uint8_t>(ply[i + 1]),
                           static_cast<std::uint8_t>(ply[i + 2])});
    return colours;
}

double luminance(const Rgb& colour) { return 0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2]; }

TEST(FeaturesCommand, CountsAndColoursTheSameOnAnyNumberOfThreadsAndInAnyUnit)
{
    const WorkFolder folder;
    ASSERT_EQ(folder.Run("simulate -o . --views 1 --points 12000 --seed 4 --quiet").exitCode, 0);
    const Zorvan::Scan scan = Zorvan::ReadScanFile(folder / "view00.ply");
    Zorvan::WritePly(folder / "metres.ply", scan, 0.001);
    const auto one = folder.Run("features view00.ply --quiet -o one.ply");
    ASSERT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(one.err, "");
    const std::size_t tried = countOf("feature points", one.out);
    const std::size_t found = countOf("features", one.out);
    EXPECT_EQ(countOf("points read", one.out), scan.points.size());
    EXPECT_GT(found, scan.points.size() / 50);
    const Zorvan::Scan coloured = Zorvan::ReadScanFile(folder / "one.ply");
    EXPECT_EQ(coloured.points.size(), tried);
    const std::vector<Rgb> colours = coloursOf(folder.Read("one.ply"));
    ASSERT_EQ(colours.size(), tried);
    EXPECT_EQ(std::count(colours.begin(), colours.end(), grey), tried - found);

    EXPECT_EQ(folder.Run("features view00.ply --quiet --threads 3 -o three.ply").out, one.out);
    EXPECT_EQ(folder.Read("three.ply"), folder.Read("one.ply"));
    const auto metres = folder.Run("features metres.ply --scale 1000 -o m.ply");
    EXPECT_NEAR(static_cast<double>(countOf("features", metres.out)), static_cast<double>(found), 20.0) << metres.err;
    EXPECT_NEAR(Zorvan::ReadScanFile(folder / "m.ply").points[0].x, 0.001F * coloured.points[0].x, 1e-4F);
}

TEST(FeaturesCommand, PaintsFlatRegionsDarkCurvedOnesLightAndLonePointsGrey)
{
    std::ostringstream points;
    for (int i = 0; i < 900; ++i) points << 0.31 * (i % 30) << ' ' << 0.31 * (i / 30) << " 0 0 0 1\n";
    for (int i = 0; i < 900; ++i) { // a ball of 1.5 mm, on a spiral
        const double z = (i + 0.5) / 450 - 1;
        const double r = std::sqrt(1 - z * z);
        const double x = r * std::cos(2.4 * i);
        const double y = r * std::sin(2.4 * i);
        points << 50 + 1.5 * x << ' ' << 1.5 * y << ' ' << 1.5 * z << ' ' << x << ' ' << y << ' ' << z << '\n';
    }
    points << "25 25 0 0 0 1\n";
    const WorkFolder folder;
    folder.Write("parts.xyzn", points.str());
    folder.Write("mine.txt", "{'dFeatureGridSize' : 0.4}");
    const auto outcome = folder.Run("features parts.xyzn --grid 0.3 --settings mine.txt -o parts.ply");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("feature grid 0.4 mm"), std::string::npos) << outcome.out;
    const prereg::Vectors places = Zorvan::ReadScanFile(folder / "parts.ply").points;
    const std::vector<Rgb> colours = coloursOf(folder.Read("parts.ply"));
    ASSERT_EQ(places.size(), colours.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (places[i].x < 20)
            EXPECT_EQ(colours[i], darkBlue) << places[i].x;
        else if (places[i].x < 30)
            EXPECT_EQ(colours[i], grey);
        else
            EXPECT_GT(luminance(colours[i]), 5 * luminance(darkBlue)) << places[i].z;
    }
}

TEST(FeaturesCommand, WithoutAnyFeatureSaysWhatToDoAndKeepsTheOldFile)
{
    const WorkFolder folder;
    folder.Write("few.xyzn", "0 0 0 0 0 1\n1 0 0 0 0 1\n0 1 0 0 0 1\n1 1 0 0 0 1\n");
    folder.Write("old.ply", "old");
    const auto outcome = folder.Run("features few.xyzn --quiet -o old.ply");
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_NE(outcome.err.find("set a larger dFeatureRadius"), std::string::npos) << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_EQ(countOf("feature points", outcome.out), 4U);
    EXPECT_EQ(folder.Read("old.ply"), "old");
}

TEST(FeaturesCommand, UsesTheVectorUnitThatTheEnvironmentChooses)
{
    const WorkFolder folder;
    const auto version = folder.Run("--version", ">stdout.txt", "ZORVAN_SIMD=baseline ");
    EXPECT_EQ(version.exitCode, 0) << version.err;
    EXPECT_NE(version.out.find(" (baseline)\n"), std::string::npos) << version.out;
    folder.Write("few.xyzn", "0 0 0 0 0 1\n1 0 0 0 0 1\n0 1 0 0 0 1\n");
    const auto refused = folder.Run("features few.xyzn", ">stdout.txt", "ZORVAN_SIMD=baseline ");
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.err.find("features need a processor with AVX"), std::string::npos) << refused.err;
    if (!Zorvan::GetCpuFeatures().bAvx) GTEST_SKIP() << "no AVX here";
    EXPECT_NE(folder.Run("--version").out.find(" (avx)\n"), std::string::npos);
}

TEST(DescribeFeatures, TellsSharesQuantilesAndTheSideOfTheNeighbours)
{
    std::vector<CPointFeatureHistogram> features(3, CPointFeatureHistogram::Plane());
    CPointFeatureHistogram other;
    for (const std::size_t bin : {2U, 11U, 32U}) other.AsArray()[bin] = 1.0F; // nothing in common with a plane
    features.push_back(other);
    const std::string text = prereg::DescribeFeatures(features, 0.16F);
    for (const char* words : {" 75 % are flat", " 50 % up to 0         .", "100 % up to 1         ####",
                              "left |  ▅  █     | right", "below |▅    █     | above", "|     █    ▅| apart"})
        EXPECT_NE(text.find(words), std::string::npos) << words << " is not in\n" << text;
}

TEST(ColourAt, GrowsLighterFromDarkBlueToYellow)
{
    EXPECT_EQ(prereg::ColourAt(-1.0), darkBlue);
    EXPECT_EQ(prereg::ColourAt(std::numeric_limits<double>::quiet_NaN()), darkBlue);
    EXPECT_EQ(prereg::ColourAt(7.0), (Rgb{253, 233, 37}));
    for (int i = 0; i < 50; ++i)
        EXPECT_LT(luminance(prereg::ColourAt(i / 50.0)), luminance(prereg::ColourAt((i + 1) / 50.0))) << i;
}

} // namespace
