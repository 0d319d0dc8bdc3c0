// SPDX-License-Identifier: MIT
#include "tests/scans/realfile.h"
#include "tests/scans/scansamples.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/lzf.h"
#include "zorvan/scans/pcdreader.h"
#include "zorvan/scans/pcdwriter.h"
#include "zorvan/scans/scanreader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

using Zorvan::AppendLittle;
using Zorvan::Scan;
using Zorvan::Vector3;

const std::string header = "# a test\nVERSION 0.7\nFIELDS _ x y z rgb intensity\nSIZE 1 4 8 2 4 4\nTYPE U F F I F F\n"
                           "COUNT 3 1 1 1 1 1\nWIDTH 2\nHEIGHT 1\nVIEWPOINT 1 2 3 0 0 0 2\nPOINTS 2\n";
const float fColour = std::bit_cast<float>(0x00112233U);

void appendPadding(std::string& body) { body += "\x07\x08\x09"; }

std::string literalRuns(const std::string& bytes)
{
    std::string block;
    for (std::size_t at = 0; at < bytes.size(); at += 32) {
        const std::string run = bytes.substr(at, 32);
        block += static_cast<char>(run.size() - 1) + run;
    }
    return block;
}

std::string textPcd()
{
    return header + "DATA ascii\n7 8 9 1.5 2.25 3 1.5734718e-39 0.5\n7 8 9 -4 5 -6 1.5734718e-39 1\n";
}

std::string binaryPcd()
{
    std::string body;
    for (const int sign : {1, -1}) {
        appendPadding(body);
        AppendLittle(body, sign > 0 ? 1.5F : -4.0F);
        AppendLittle(body, sign > 0 ? 2.25 : 5.0);
        AppendLittle(body, static_cast<std::int16_t>(sign > 0 ? 3 : -6));
        AppendLittle(body, fColour);
        AppendLittle(body, sign > 0 ? 0.5F : 1.0F);
    }
    return header + "DATA binary\n" + body;
}

std::string compressedPcd()
{
    std::string columns;
    for (int i = 0; i < 2; ++i) appendPadding(columns);
    for (const float x : {1.5F, -4.0F}) AppendLittle(columns, x);
    for (const double y : {2.25, 5.0}) AppendLittle(columns, y);
    for (const std::int16_t z : {std::int16_t{3}, std::int16_t{-6}}) AppendLittle(columns, z);
    for (int i = 0; i < 2; ++i) AppendLittle(columns, fColour);
    for (const float value : {0.5F, 1.0F}) AppendLittle(columns, value);
    const std::string block = literalRuns(columns);
    std::string sizes;
    AppendLittle(sizes, static_cast<std::uint32_t>(block.size()));
    AppendLittle(sizes, static_cast<std::uint32_t>(columns.size()));
    return header + "DATA binary_compressed\n" + sizes + block;
}

TEST(Pcd, HasOneScanInThreeForms)
{
    for (const std::string& bytes : {textPcd(), binaryPcd(), compressedPcd()}) {
        const Scan scan = Zorvan::ReadPcd(bytes, "a.pcd");
        EXPECT_EQ(scan.points, (prereg::Vectors{{1.5F, 2.25F, 3}, {-4, 5, -6}}));
        EXPECT_EQ(scan.colours, std::vector<Zorvan::Rgb>(2, {0x11, 0x22, 0x33}));
        EXPECT_EQ(scan.intensities, (std::vector<float>{0.5F, 1}));
        EXPECT_TRUE(scan.normals.empty() && scan.faces.empty());
        ASSERT_TRUE(scan.sensor);
        EXPECT_EQ(scan.sensor->position, (Zorvan::Position{1, 2, 3}));
        EXPECT_EQ(scan.sensor->rotation, (std::array<double, 4>{0, 0, 0, 1}));
    }
}

TEST(Pcd, NoticesEveryMissingByte)
{
    for (const std::string& whole : {textPcd(), binaryPcd(), compressedPcd()}) {
        const std::size_t last = whole.find("DATA ascii") == std::string::npos ? 1 : 2; // the last line break may go
        for (std::size_t length = 0; length + last <= whole.size(); ++length)
            EXPECT_THROW(static_cast<void>(Zorvan::ReadPcd(whole.substr(0, length), "a.pcd")), Zorvan::CInputError)
                << length << " of " << whole.size();
    }
}

TEST(Pcd, OfOldVersionsHasFloatsInText)
{
    const Scan scan = Zorvan::ReadPcd("COLUMNS x y z\nPOINTS 2\nDATA ascii\n1 2 3\n\nnan 5 6", "a.pcd");
    ASSERT_EQ(scan.points.size(), 2U);
    EXPECT_EQ(scan.points[0], Vector3(1, 2, 3));
    EXPECT_TRUE(std::isnan(scan.points[1].x));
}

std::string imagePcd(const std::string& view)
{
    return "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\nWIDTH 3\nHEIGHT 2\nVIEWPOINT " + view +
           "\nPOINTS 6\nDATA ascii\n0 0 9\n1 0 9\n2 0 9\n0 1 9\nnan nan nan\n2 1 9\n";
}

TEST(Pcd, ImageIsMeshedTowardItsCamera)
{
    const Scan scan = Zorvan::ReadPcd(imagePcd("0 0 0 1 0 0 0"), "a.pcd");
    ASSERT_TRUE(scan.sensor) << "the rays of an image meet somewhere";
    ASSERT_EQ(scan.points.size(), 6U);
    EXPECT_EQ(scan.faces.size(), 2U); // one at each side of the missing pixel
    for (const auto& [a, b, c] : scan.faces) {
        const Vector3 normal = Cross(scan.points[b] - scan.points[a], scan.points[c] - scan.points[a]);
        EXPECT_LT(normal.z, 0.0F);
    }
    EXPECT_FALSE(Zorvan::ReadPcd("FIELDS x y z\nWIDTH 1\nVIEWPOINT 0 0 0 1 0 0 0\nDATA ascii\n1 2 3\n", "a").sensor);
}

TEST(Pcd, IsReadBackAsWritten)
{
    for (const Scan& scan : {SampleScan(), SampleScan({500000, 5.4e6, 300})}) {
        const Scan read = Zorvan::ReadPcd(Zorvan::WritePcdBytes(scan), "a.pcd");
        ExpectSameScan(read, scan);
        ASSERT_TRUE(read.sensor);
        EXPECT_EQ(read.shift, scan.shift);
        ExpectNear(read.sensor->position, scan.sensor->position, 1e-9);
    }
    Scan bare;
    bare.points = {{1, 2, 3}};
    EXPECT_FALSE(Zorvan::ReadPcd(Zorvan::WritePcdBytes(bare), "a.pcd").sensor);
}

TEST(Pcd, RefusesDamageWithPlaceAndAdvice)
{
    const auto messageOf = [](const std::string& bytes) -> std::string {
        try {
            static_cast<void>(Zorvan::ReadPcd(bytes, "a.pcd"));
        } catch (const Zorvan::CInputError& error) {
            return error.what();
        }
        return "no error";
    };
    const std::string xyz = "FIELDS x y z\nSIZE 4 4 4\nTYPE F F F\n";
    EXPECT_EQ(messageOf("ply\n"), "a.pcd: line 1: unknown keyword \"ply\"; check that it is a PCD file");
    EXPECT_EQ(messageOf(xyz + "WIDTH 2147483647\nHEIGHT 1\nDATA binary\n0123456789ab"),
              "a.pcd: truncated: the header promises 2147483647 points (at least 25769803764 bytes), the file holds 12 "
              "behind byte 73; write or copy it again");
    EXPECT_THAT(messageOf(xyz + "WIDTH 2147483647\nHEIGHT 2147483647\nDATA ascii\n"), testing::HasSubstr("more than"));
    EXPECT_THAT(messageOf(xyz + "WIDTH 2\nPOINTS 3\nDATA ascii\n"),
                testing::HasSubstr("line 6: POINTS is 3, WIDTH times HEIGHT 2;"));
    EXPECT_THAT(messageOf("FIELDS x y z\nSIZE 4 4 3\nWIDTH 1\nDATA ascii\n1 2 3"), testing::HasSubstr("takes 3 bytes"));
    EXPECT_THAT(messageOf("FIELDS x y\nWIDTH 1\nDATA ascii\n1 2"), testing::HasSubstr("no fields x, y and z"));
    EXPECT_THAT(messageOf("FIELDS x y z\nWIDTH 2\nDATA ascii\n1 2 3\n1 2,5 3\n"),
                testing::HasSubstr("line 5: \"2,5\" is not a number"));
    EXPECT_THAT(messageOf("FIELDS x y z\nWIDTH 2\nDATA ascii\n1 2 3\n1 2\n 4 5"), testing::HasSubstr("line 5: fewer"));
    // 4 GB promised by 12 bytes of block.
    EXPECT_THAT(messageOf(xyz + "WIDTH 357913941\nDATA binary_compressed\n" +
                          std::string("\x0c\0\0\0\xfc\xff\xff\xff", 8) + "0123456789ab"),
                testing::HasSubstr("byte 74: the compressed data do not make 4294967292 bytes"));
}

TEST(Lzf, ExpandsReferencesThatOverlapAndRefusesThoseThatLeave)
{
    using Zorvan::ExpandLzf;
    EXPECT_EQ(ExpandLzf(std::string("\x02"
                                    "abc"
                                    "\x20\x02",
                                    6),
                        6),
              "abcabc");
    EXPECT_EQ(ExpandLzf(std::string("\0a\xe0\x01\0", 5), 11), "aaaaaaaaaaa");
    EXPECT_EQ(ExpandLzf(std::string("\0a\x20\x01", 4), 4), std::nullopt); // one byte before the beginning
    EXPECT_EQ(ExpandLzf(std::string("\x02"
                                    "ab",
                                    3),
                        3),
              std::nullopt);                                            // a literal is missing
    EXPECT_EQ(ExpandLzf(std::string("\0a\x20", 3), 4), std::nullopt);   // the offset is missing
    EXPECT_EQ(ExpandLzf(std::string("\0a\x20\0", 4), 3), std::nullopt); // more than promised
    EXPECT_EQ(ExpandLzf(std::string("\0a\x20\0", 4), 5), std::nullopt); // less than promised
}

/// As a few lines of Python with the struct module read them.
struct KnownFile
{
    const char* name;
    std::size_t points;
    std::size_t finite;
    Zorvan::Position low;
    Zorvan::Position high;
};

TEST(Pcd, OfOtherProgramsIsReadWhole)
{
    for (const KnownFile& known :
         {KnownFile{
              "bun0.pcd", 397, 397, {-0.093938001, 0.037420001, -0.055025999}, {0.059562001, 0.18449999, 0.057803001}},
          KnownFile{"bun4.pcd", 361, 361, {-0.061512, 0.03681, -0.043472}, {0.081913, 0.18498, 0.092747}},
          KnownFile{"colored_cloud.pcd",
                    1000,
                    1000,
                    {-0.887100995, -0.650735319, 0.882000029},
                    {0.488799989, -0.375489593, 1.53199995}},
          KnownFile{"curve3d.pcd", 110, 110, {0.0, 0.0, -0.099657737}, {1.0, 1.0, 0.099709786}},
          KnownFile{"milk_color.pcd",
                    13704,
                    13704,
                    {-0.140082896, -0.263779998, 0.713999987},
                    {0.01380667, -0.0117285699, 0.890999973}},
          KnownFile{"nhood_test.pcd", 36, 36, {-1.09421, -0.793598, 1.503516}, {-1.004069, -0.703967, 1.564897}},
          KnownFile{"octants.pcd", 8, 8, {-9.0, -9.0, -9.0}, {9.0, -3.0, -3.0}},
          KnownFile{"office1.pcd",
                    307200,
                    254456,
                    {-2.6454761, -2.19642901, 1.83299994},
                    {1.50435996, 1.58124602, 5.36399984}},
          KnownFile{"rops_cloud.pcd", 32087, 32087, {-0.41984, -0.24034, -1.4022}, {0.40617, 0.24871, -1.0098}},
          KnownFile{
              "sac_plane_test.pcd", 3283, 3283, {0.66654998, -0.57867998, -0.3425}, {1.4515001, 0.44656, 0.3026}}}) {
        const auto file = RealFile(known.name);
        if (!file) GTEST_SKIP() << "ZORVAN_DATA names no folder with real files";
        const Scan scan = Zorvan::ReadScanFile(*file);
        Vector3 low = Vector3::Filled(1e30F);
        Vector3 high = Vector3::Filled(-1e30F);
        std::size_t finite = 0;
        for (const Vector3& p : scan.points) {
            if (!std::isfinite(p.x + p.y + p.z)) continue;
            ++finite;
            low = Min(low, p);
            high = Max(high, p);
        }
        EXPECT_EQ(scan.points.size(), known.points) << known.name;
        EXPECT_EQ(finite, known.finite) << known.name;
        for (unsigned k = 0; k < 3; ++k) {
            EXPECT_FLOAT_EQ(low[k], static_cast<float>(known.low[k])) << known.name;
            EXPECT_FLOAT_EQ(high[k], static_cast<float>(known.high[k])) << known.name;
        }
    }
    const Scan office = Zorvan::ReadScanFile(*RealFile("office1.pcd"));
    EXPECT_GT(office.faces.size(), 300000U);
    EXPECT_EQ(office.colours.size(), office.points.size());
    EXPECT_TRUE(office.sensor);
}

} // namespace
