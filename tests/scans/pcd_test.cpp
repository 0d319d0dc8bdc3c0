// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/lzf.h"
#include "zorvan/scans/pcdreader.h"
#include "zorvan/scans/pcdwriter.h"

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
    const auto messageOf = [](const std::string& bytes) {
        return RefusalOf([&] { return Zorvan::ReadPcd(bytes, "a.pcd"); });
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

} // namespace
