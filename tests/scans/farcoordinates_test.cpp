// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/joinscans.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/textnumber.h"

#include <gtest/gtest.h>

#include <limits>
#include <numbers>

namespace {

using Zorvan::FramePose;
using Zorvan::Position;
using Zorvan::Scan;

constexpr double dNan = std::numeric_limits<double>::quiet_NaN();
const Position utm{500012.25, 5400034.5, 300.125}; // a sheet of 100 there

TEST(FarCoordinates, AreShiftedByRoundNumbersOnlyWhenTheyAreFar)
{
    EXPECT_EQ(SampleScan().shift, Position{});
    EXPECT_EQ(SampleScan({0, 0, 50 * 100}).shift, Position{}) << "a sensor some way off is not far";
    EXPECT_EQ(SampleScan(utm).shift, (Position{500100, 5400100, 300}));
    EXPECT_EQ(SampleScan({0, 0, -1e6}).shift, (Position{0, 0, -1e6})) << "axes that are near stay";
    EXPECT_EQ(Zorvan::ShiftFor({}), Position{});
    EXPECT_EQ(Zorvan::ShiftFor(std::vector<Position>(3, {dNan, 1, 2})), Position{});
    EXPECT_EQ(Zorvan::ShiftFor(std::vector<Position>(3, {1e9, 1, 2})), Position{}) << "no extent to compare with";
}

TEST(FarCoordinates, AreFarWhateverStrayPointsSay)
{
    std::vector<Position> places;
    for (int i = 0; i < 1000; ++i) places.push_back({utm[0] + i % 100, utm[1] + i / 10, utm[2]});
    places[10] = {0, 0, 0};
    places[20] = {dNan, dNan, dNan};
    places[30] = {1e30, 0, 0};
    EXPECT_EQ(Zorvan::ShiftFor(places), (Position{500100, 5400100, 300}));
}

// What single precision would make of it steps by half a unit.
TEST(FarCoordinates, KeepTheirDigitsThroughEveryTextAndDouble)
{
    const Scan scan = SampleScan(utm);
    const TemporaryFolder folder;
    std::string xyz;
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        for (const double c : PlaceOf(scan, i)) xyz += Zorvan::ToText(c, 17) + " ";
        xyz += "\n";
    }
    const std::string ply = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(scan.points.size()) +
                            "\nproperty float x\nproperty float y\nproperty float z\nend_header\n" + xyz;
    Zorvan::WritePly(folder / "b.ply", scan);
    for (const auto& file : {folder.Write("a.xyz", xyz), folder.Write("a.ply", ply), folder / "b.ply"}) {
        const std::vector<Scan> read = Zorvan::ReadScans(file);
        ASSERT_EQ(read.size(), 1U);
        EXPECT_EQ(read[0].shift, scan.shift) << file;
        EXPECT_EQ(read[0].points, scan.points) << file;
    }
    EXPECT_EQ(Zorvan::ReadScanFile(folder / "b.ply").shift, Position{});
    EXPECT_NEAR(static_cast<double>(Zorvan::ReadScanFile(folder / "b.ply").points[7].y), PlaceOf(scan, 7)[1], 0.25);
    const auto surfels = Zorvan::ReadScan(folder / "b.ply", {.dMmPerUnit = 1000, .sensor = {}, .isShifted = true});
    EXPECT_EQ(surfels.shift, (Position{500100e3, 5400100e3, 300e3}));
    EXPECT_EQ(surfels.points[7], scan.points[7] * 1000.0F);
}

TEST(FarCoordinates, GoOverToACommonShiftAndBackWithTheSensor)
{
    Scan scan = SampleScan(utm);
    const Scan before = scan;
    EXPECT_EQ(Zorvan::CommonShift(std::vector<Position>{{}, {1, 2, 3}, scan.shift}), (Position{1, 2, 3}));
    EXPECT_EQ(Zorvan::CommonShift({}), Position{});
    Zorvan::SetShift(scan, {500000, 5400000, 0});
    ExpectSameScan(scan, before, 1e-4);
    EXPECT_NEAR(scan.sensor->position[1], before.sensor->position[1] + before.shift[1] - 5400000, 1e-8);
    Zorvan::SetShift(scan, before.shift);
    ExpectSameScan(scan, before, 1e-4);
    EXPECT_EQ(scan.sensor->position, before.sensor->position);
}

TEST(FarCoordinates, PoseOfShiftedScansHoldsForTheFiles)
{
    const FramePose pose{{1, 2, 3}, {std::numbers::sqrt2 / 2, 0, 0, std::numbers::sqrt2 / 2}};
    const Position from{1e6, 2e6, 0};
    const Position to{5e5, 0, 100};
    const Position p{10, 20, 30};
    const Position inside = Transform(pose, p);
    const Position outside = Transform(Zorvan::WithoutShifts(pose, from, to), {p[0] + from[0], p[1] + from[1], p[2]});
    ExpectNear(outside, {inside[0] + to[0], inside[1] + to[1], inside[2] + to[2]}, 1e-8);
}

// Two scans of one file with poses at coordinates of a map; a quarter turn about z between them.
TEST(JoinScans, PutsAllIntoTheFrameOfTheFile)
{
    const FramePose turned{utm, {std::numbers::sqrt2 / 2, 0, 0, std::numbers::sqrt2 / 2}};
    Scan a = SampleScan();
    Scan b = SampleScan();
    a.pose = FramePose{utm};
    b.pose = turned;
    a.faces = {{0, 1, 2}};
    b.faces = {{3, 4, 5}};
    b.colours.clear();
    const Scan joined = Zorvan::JoinScans({a, b});
    const std::size_t n = a.points.size();
    ASSERT_EQ(joined.points.size(), 2 * n);
    EXPECT_NE(joined.shift, Position{});
    for (std::size_t i = 0; i < n; ++i) {
        ExpectNear(PlaceOf(joined, i), Transform(*a.pose, PlaceOf(a, i)), 1e-4);
        ExpectNear(PlaceOf(joined, n + i), Transform(turned, PlaceOf(b, i)), 1e-4);
    }
    EXPECT_NEAR(joined.normals[n].y, a.normals[0].x, 1e-6F);
    EXPECT_EQ(joined.faces[1], (Zorvan::Face{static_cast<std::uint32_t>(n) + 3, static_cast<std::uint32_t>(n) + 4,
                                             static_cast<std::uint32_t>(n) + 5}));
    EXPECT_TRUE(joined.colours.empty()) << "not every scan has them";
    EXPECT_EQ(joined.intensities.size(), 2 * n);
    EXPECT_FALSE(joined.sensor) << "there were two";
    Zorvan::PutInFileFrame(b);
    ExpectNear(
        {b.sensor->position[0] + b.shift[0], b.sensor->position[1] + b.shift[1], b.sensor->position[2] + b.shift[2]},
        Transform(turned, a.sensor->position), 1e-8);
}

TEST(FramePose, ComesFromRowsThatAreARotation)
{
    const FramePose pose = *Zorvan::Normalized(FramePose{{1, 2, 3}, {1, 2, -3, 4}});
    const auto again = Zorvan::FromRows(RotationRows(pose), pose.position);
    ASSERT_TRUE(again);
    ExpectNear(Transform(*again, {5, 6, 7}), Transform(pose, {5, 6, 7}), 1e-12);
    EXPECT_FALSE(Zorvan::FromRows({{{1, 0, 0}, {0, 1, 0}, {0, 0, -1}}}, {})) << "a mirror";
    EXPECT_FALSE(Zorvan::FromRows({{{1.01, 0, 0}, {0, 1, 0}, {0, 0, 1}}}, {}));
    EXPECT_FALSE(Zorvan::Normalized(FramePose{{0, 0, dNan}}));
}

} // namespace
