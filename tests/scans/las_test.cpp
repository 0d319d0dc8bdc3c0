// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/lasheader.h"
#include "zorvan/scans/lasreader.h"
#include "zorvan/scans/laswriter.h"
#include "zorvan/scans/littleendian.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

namespace {

using Zorvan::AppendLittle;
using Zorvan::Position;
using Zorvan::Scan;

template <typename T>
void put(std::string& bytes, std::size_t at, T value)
{
    std::string raw;
    AppendLittle(raw, value);
    bytes.replace(at, raw.size(), raw);
}

struct LasLayout
{
    unsigned minor;
    unsigned format;
    std::size_t colour; ///< place in a point, 0 for none
};

/// Two points, in units of 0.5 from (100, 200, 300), each with 3 extra bytes, behind a record of 10 bytes.
std::string lasOf(const LasLayout& layout)
{
    const std::size_t header = layout.minor >= 4 ? 375 : layout.minor == 3 ? 235 : 227;
    const std::size_t stride = Zorvan::LasPointBytes(layout.format) + 3;
    const std::size_t body = header + 10;
    std::string bytes(body + 2 * stride, '\xEE');
    std::fill_n(bytes.begin(), header, '\0');
    bytes.replace(0, 4, "LASF");
    put(bytes, 24, std::uint8_t{1});
    put(bytes, 25, static_cast<std::uint8_t>(layout.minor));
    put(bytes, 94, static_cast<std::uint16_t>(header));
    put(bytes, 96, static_cast<std::uint32_t>(body));
    put(bytes, 104, static_cast<std::uint8_t>(layout.format));
    put(bytes, 105, static_cast<std::uint16_t>(stride));
    if (layout.format < 6) put(bytes, 107, std::uint32_t{2});
    if (layout.minor >= 4) put(bytes, 247, std::uint64_t{2});
    for (std::size_t axis = 0; axis < 3; ++axis) {
        put(bytes, 131 + 8 * axis, 0.5);
        put(bytes, 155 + 8 * axis, 100.0 * static_cast<double>(axis + 1));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        const std::size_t at = body + i * stride;
        for (std::size_t axis = 0; axis < 3; ++axis)
            put(bytes, at + 4 * axis, static_cast<std::int32_t>(axis) * (i == 0 ? 1 : -10));
        put(bytes, at + 12, static_cast<std::uint16_t>(1000 * i));
        for (std::size_t k = 0; layout.colour > 0 && k < 3; ++k)
            put(bytes, at + layout.colour + 2 * k, static_cast<std::uint16_t>(0x1100 * (k + 1)));
    }
    return bytes;
}

// Places of the colours as the tables of the format have them.
TEST(Las, OfEveryVersionAndPointFormatIsRead)
{
    for (const LasLayout& layout :
         {LasLayout{0, 0, 0}, LasLayout{1, 1, 0}, LasLayout{2, 2, 20}, LasLayout{2, 3, 28}, LasLayout{3, 4, 0},
          LasLayout{3, 5, 28}, LasLayout{4, 3, 28}, LasLayout{4, 6, 0}, LasLayout{4, 7, 30}, LasLayout{4, 8, 30},
          LasLayout{4, 9, 0}, LasLayout{4, 10, 30}}) {
        SCOPED_TRACE("1." + std::to_string(layout.minor) + ", points " + std::to_string(layout.format));
        const Scan scan = Zorvan::ReadLas(lasOf(layout), "a.las");
        EXPECT_EQ(scan.points, (prereg::Vectors{{100, 200.5F, 301}, {100, 195, 290}}));
        EXPECT_EQ(scan.intensities, (std::vector<float>{0, 1000}));
        EXPECT_EQ(scan.colours, std::vector<Zorvan::Rgb>(layout.colour > 0 ? 2 : 0, {0x11, 0x22, 0x33}));
    }
}

TEST(Las, NoticesEveryMissingByte)
{
    for (const std::string& whole : {lasOf({2, 2, 20}), lasOf({4, 7, 30})}) {
        for (std::size_t length = 0; length < whole.size(); ++length)
            EXPECT_THROW(static_cast<void>(Zorvan::ReadLas(whole.substr(0, length), "a.las")), Zorvan::CInputError)
                << length << " of " << whole.size();
    }
}

TEST(Las, RefusesDamageWithPlaceAndAdvice)
{
    const auto messageWith = [](std::size_t at, auto value) {
        std::string bytes = lasOf({4, 7, 30});
        put(bytes, at, value);
        return RefusalOf([&] { return Zorvan::ReadLas(bytes, "a.las"); });
    };
    EXPECT_EQ(messageWith(104, std::uint8_t{0x87}),
              "a.las: byte 104: the points are compressed (LAZ); LAZ is not read: convert it to LAS");
    EXPECT_EQ(messageWith(247, std::uint64_t{2147483647}),
              "a.las: truncated: the header promises 2147483647 points of 39 bytes behind byte 385, the file has 463 "
              "bytes; write or copy it again");
    EXPECT_THAT(messageWith(247, ~std::uint64_t{0}), testing::HasSubstr("at most 2147483647 are read; split the file"));
    EXPECT_THAT(messageWith(0, 'l'), testing::HasSubstr("byte 0: does not begin with \"LASF\""));
    EXPECT_THAT(messageWith(25, std::uint8_t{5}), testing::HasSubstr("byte 24: version 1.5; versions 1.0 to 1.4"));
    EXPECT_THAT(messageWith(104, std::uint8_t{11}), testing::HasSubstr("point format 11; formats 0 to 10"));
    EXPECT_THAT(messageWith(105, std::uint16_t{35}), testing::HasSubstr("byte 105: points of 35 bytes, and those of"));
    EXPECT_THAT(messageWith(96, std::uint32_t{374}), testing::HasSubstr("begin inside the header"));
    EXPECT_THAT(messageWith(139, 0.0), testing::HasSubstr("a scale factor is 0"));
    EXPECT_THAT(messageWith(163, std::numeric_limits<double>::quiet_NaN()), testing::HasSubstr("byte 163: a scale"));
}

TEST(Las, IsReadBackAsWritten)
{
    for (const Position& origin : {Position{}, Position{500000, 5.4e6, 300}}) {
        Scan scan = SampleScan(origin);
        const Scan read = Zorvan::ReadLas(Zorvan::WriteLasBytes(scan, "a.las"), "a.las");
        scan.normals.clear(); // have no place
        for (float& value : scan.intensities) value = std::round(value * 65535);
        ExpectSameScan(read, scan, 1e-7);
        EXPECT_EQ(read.shift, scan.shift);
    }
    Scan grey;
    grey.points = {{1, 2, 3}, {0, std::numeric_limits<float>::infinity(), 0}};
    EXPECT_THROW(static_cast<void>(Zorvan::WriteLasBytes(grey, "a.las")), Zorvan::CInputError);
    grey.points[1] = {0, 0, 0};
    grey.intensities = {7, 1e9F};
    const Scan read = Zorvan::ReadLas(Zorvan::WriteLasBytes(grey, "a.las", 0.001), "a.las");
    EXPECT_FLOAT_EQ(read.points[0].z, 0.003F);
    EXPECT_EQ(read.intensities, (std::vector<float>{7, 65535}));
    EXPECT_TRUE(read.colours.empty());
}

} // namespace
