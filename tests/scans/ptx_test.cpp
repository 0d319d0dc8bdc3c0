// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"
#include "tests/support/commalocale.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/ptsreader.h"
#include "zorvan/scans/ptxreader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using Zorvan::Position;
using Zorvan::Scan;
using Zorvan::Vector3;

// Two columns of three rows on a wall 5 ahead, one cell without a point; the scanner stands at (10, 20, 30) of the
// file, a quarter turn about z.
const std::string ptx = "2\n3\n10 20 30\n0 1 0\n-1 0 0\n0 0 1\n0 1 0 0\n-1 0 0 0\n0 0 1 0\n10 20 30 1\n"
                        "5 1 -1 0.5 1 2 3\n5 1 0 0.5 4 5 6\n5 1 1 0.5 7 8 9\n"
                        "5 0 -1 0.25 1 2 3\n0 0 0 0.5 0 0 0\n5 0 1 1 255 256 -1\n";

TEST(Ptx, GivesScansWithTheirPosesAndScanners)
{
    const CCommaLocale comma;
    const std::string empty = "1\n1\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n0 0 0 0.5\n";
    const std::vector<Scan> scans = Zorvan::ReadPtx(ptx + empty + ptx + "\r\n", "a.ptx");
    ASSERT_EQ(scans.size(), 2U) << "a scan without points is none";
    for (const Scan& scan : scans) {
        EXPECT_EQ(scan.points, (prereg::Vectors{{5, 1, -1}, {5, 1, 0}, {5, 1, 1}, {5, 0, -1}, {5, 0, 1}}));
        EXPECT_EQ(scan.intensities, (std::vector<float>{0.5F, 0.5F, 0.5F, 0.25F, 1}));
        EXPECT_EQ(scan.colours.back(), (Zorvan::Rgb{255, 255, 0}));
        ASSERT_EQ(scan.faces.size(), 2U); // of each square, the three corners that are there
        for (const auto& [a, b, c] : scan.faces)
            EXPECT_LT(Cross(scan.points[b] - scan.points[a], scan.points[c] - scan.points[a]).x, 0) << "to the scanner";
        ASSERT_TRUE(scan.pose && scan.sensor);
        ExpectNear(Transform(*scan.pose, {5, 1, -1}), {9, 25, 29}, 1e-12);
        ExpectNear(scan.sensor->position, {0, 0, 0}, 1e-12);
    }
}

// Points in the frame of the file, as some programs write them: then the scanner is not in the origin.
TEST(Ptx, BelievesTheScannerPositionBesideAnEmptyPose)
{
    const Scan scan =
        Zorvan::ReadPtx("1\n1\n10 20 30\n0 0 0\n0 0 0\n0 0 0\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n1 2 3 0.5\n", "a.ptx")
            .front();
    ExpectNear(scan.sensor->position, {10, 20, 30}, 0.0);
}

TEST(Ptx, NoticesEveryMissingByte)
{
    for (std::size_t length = 0; length + 2 <= ptx.size(); ++length)
        EXPECT_THROW(static_cast<void>(Zorvan::ReadPtx(ptx.substr(0, length), "a.ptx")), Zorvan::CInputError) << length;
}

std::string messageOfPts(const std::string& bytes)
{
    return RefusalOf([&] { return Zorvan::ReadPts(bytes, "a"); });
}

std::string messageOfPtx(const std::string& bytes)
{
    return RefusalOf([&] { return Zorvan::ReadPtx(bytes, "a"); });
}

TEST(Ptx, RefusesDamageWithPlaceAndAdvice)
{
    const auto with = [](const std::string& from, const std::string& to) {
        std::string bytes = ptx;
        return messageOfPtx(bytes.replace(bytes.find(from), from.size(), to));
    };
    EXPECT_EQ(with("2\n3\n", "2\n2147483647\n"),
              "a: line 10: truncated: 2 columns of 2147483647 points are promised, and "
              "102 bytes are left; write or copy the file again");
    EXPECT_THAT(with("2\n3\n", "2 3\n"), testing::HasSubstr("line 1: a count from 0 to 2147483647 is wanted, alone"));
    EXPECT_THAT(with("2\n3\n", "-2\n3\n"), testing::HasSubstr("line 1: a count"));
    EXPECT_THAT(with("10 20 30 1", "10 20 nan 1"), testing::HasSubstr("line 10: the pose above is no rotation"));
    EXPECT_THAT(with("0 1 0 0", "0 2 0 0"), testing::HasSubstr("no rotation (within 0.001); export the scan without"));
    EXPECT_THAT(with("5 1 0 0.5 4", "5 1 0 0.5"), testing::HasSubstr("line 12: 6 numbers, and the first point has 7"));
    EXPECT_THAT(with("5 1 0 0.5", "5 1 0 0,5"), testing::HasSubstr("line 12: \"0,5\" is not a number"));
    EXPECT_THAT(messageOfPtx("0\n0\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n"),
                testing::HasSubstr("holds no point"));
}

TEST(Pts, HasIntensityColourBothOrNone)
{
    struct
    {
        std::string bytes;
        std::size_t intensities;
        std::size_t colours;
    } const cases[]{{"2\n1 2 3\n4 5 6\n", 0, 0},
                    {"1\n1 2 3 -2048\n1\n4 5 6 7", 2, 0},
                    {"2\n1 2 3 10 20 30\n\n4 5 6 10 20 30\n\n", 0, 2},
                    {"2\r\n1 2 3 9 10 20 30\r\n4 5 6 9 10 20 30", 2, 2}};
    for (const auto& c : cases) {
        const Scan scan = Zorvan::ReadPts(c.bytes, "a.pts");
        EXPECT_EQ(scan.points, (prereg::Vectors{{1, 2, 3}, {4, 5, 6}})) << c.bytes;
        EXPECT_EQ(scan.intensities.size(), c.intensities) << c.bytes;
        EXPECT_EQ(scan.colours, std::vector<Zorvan::Rgb>(c.colours, {10, 20, 30})) << c.bytes;
    }
    EXPECT_THAT(messageOfPts("3\n1 2 3\n4 5 6\n"), testing::HasSubstr("line 3: truncated"));
    EXPECT_THAT(messageOfPts("1\n1 2 3\n4 5 6\n"), testing::HasSubstr("line 3: a count"));
    EXPECT_THAT(messageOfPts("2147483647\n1 2 3"), testing::HasSubstr("line 2: truncated"));
    EXPECT_THAT(messageOfPts("1\n1 2\n"), testing::HasSubstr("line 2: 2 numbers where 3 are wanted"));
    EXPECT_THAT(messageOfPts("0\n"), testing::HasSubstr("holds no point"));
}

} // namespace
