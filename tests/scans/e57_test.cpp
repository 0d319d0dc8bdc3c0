// SPDX-License-Identifier: MIT
#include "tests/scans/scansamples.h"

#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/e57reader.h"
#include "zorvan/scans/e57writer.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace {

using Zorvan::AppendLittle;
using Zorvan::Position;
using Zorvan::Scan;

constexpr std::size_t uiPage = 128;
constexpr std::size_t uiContent = uiPage - 4;

std::size_t placeOf(std::size_t content) { return content / uiContent * uiPage + content % uiContent; }

void putChecksums(std::string& file)
{
    for (std::size_t at = 0; at + uiPage <= file.size(); at += uiPage) {
        const std::uint32_t crc = Zorvan::Crc32c(std::string_view(file).substr(at, uiContent));
        for (std::size_t k = 0; k < 4; ++k) file[at + uiContent + k] = static_cast<char>(crc >> (24 - 8 * k));
    }
}

/// A file of pages around content that begins with 48 bytes for the header.
std::string paged(std::string content, std::size_t xml)
{
    const std::size_t xmlLength = content.size() - xml;
    content.resize((content.size() + uiContent - 1) / uiContent * uiContent, '\0');
    std::string file;
    for (std::size_t at = 0; at < content.size(); at += uiContent) file += content.substr(at, uiContent) + "CRC!";
    std::string header = "ASTM-E57";
    for (const std::uint32_t version : {1U, 0U}) AppendLittle(header, version);
    for (const std::size_t value : {file.size(), placeOf(xml), xmlLength, uiPage})
        AppendLittle(header, static_cast<std::uint64_t>(value));
    file.replace(0, header.size(), header);
    putChecksums(file);
    return file;
}

/// Packs values of a width, least significant bits first.
std::string packed(unsigned bits, const std::vector<std::uint64_t>& values)
{
    std::string bytes((bits * values.size() + 7) / 8, '\0');
    for (std::size_t i = 0; i < values.size(); ++i) {
        for (unsigned bit = 0; bit < bits; ++bit) {
            const std::size_t at = i * bits + bit;
            if ((values[i] >> bit & 1U) != 0) bytes[at / 8] = static_cast<char>(bytes[at / 8] | 1 << at % 8);
        }
    }
    return bytes;
}

template <typename T>
std::string raw(std::initializer_list<double> values)
{
    std::string bytes;
    for (const double value : values) AppendLittle(bytes, static_cast<T>(value));
    return bytes;
}

/// A section of points: an index packet, and each stream cut in two, at any byte.
std::string section(const std::vector<std::string>& streams, std::size_t begin)
{
    std::string packets("\0\0\x0f\0", 4); // an index packet of 16 bytes
    packets.resize(16, '\0');
    for (const bool isFirst : {true, false}) {
        std::string packet("\1\0\0\0", 4);
        AppendLittle(packet, static_cast<std::uint16_t>(streams.size()));
        std::string data;
        for (const std::string& stream : streams) {
            const std::size_t cut = stream.size() / 3;
            const std::string part = isFirst ? stream.substr(0, cut) : stream.substr(cut);
            AppendLittle(packet, static_cast<std::uint16_t>(part.size()));
            data += part;
        }
        packet += data;
        packet.resize((packet.size() + 3) / 4 * 4, '\0');
        packet[2] = static_cast<char>(packet.size() - 1);
        packets += packet;
    }
    std::string header("\1\0\0\0\0\0\0\0", 8);
    AppendLittle(header, static_cast<std::uint64_t>(32 + packets.size()));
    AppendLittle(header, static_cast<std::uint64_t>(placeOf(begin + 32)));
    AppendLittle(header, std::uint64_t{0});
    return header + packets;
}

const std::string pose = "<pose type='Structure'><rotation type='Structure'><w type='Float'>0.5</w><x type='Float'/>"
                         "<y type='Float'/><z type='Float'>0.5</z></rotation><translation type='Structure'>"
                         "<x type='Float'>5e5</x><y type='Float'>10</y></translation></pose>";

std::string scanXml(const std::string& more, std::size_t place, const std::string& prototype)
{
    return "<vectorChild type='Structure'>" + more + "<points type='CompressedVector' fileOffset='" +
           std::to_string(placeOf(place)) + "' recordCount='3'><prototype type='Structure'>" + prototype +
           "</prototype></points></vectorChild>";
}

/// Two scans: one of scaled integers with a pose, normals, colours and a point that is not valid; one in spherical
/// coordinates with fields that are passed over.
std::string sample()
{
    std::string content(48, '\0');
    const std::size_t first = content.size();
    content +=
        section({packed(13, {4096, 4097, 0}), raw<float>({1.5, -2, 9}), raw<double>({3, 4, 9}), packed(2, {0, 0, 2}),
                 packed(10, {0, 1023, 5}), packed(10, {512, 1023, 5}), packed(10, {1023, 0, 5}), raw<float>({0, 1, 9}),
                 raw<float>({1, 0, 9}), raw<float>({0, 0, 9}), "", raw<float>({7, 8, 9})},
                first);
    const std::size_t second = content.size();
    content += section({raw<float>({2, 2, 0}), "text", raw<double>({0, std::numbers::pi / 2, 0}),
                        packed(64, {0, ~std::uint64_t{0}, 0}), raw<double>({0, 0, 0})},
                       second);
    const std::size_t xml = content.size();
    content += "<?xml version='1.0'?><e57Root type='Structure' xmlns:nor='n'><data3D type='Vector'>";
    const auto integer = [](const std::string& name, const std::string& low, const std::string& high) {
        return "<" + name + " type='Integer' minimum='" + low + "' maximum='" + high + "'/>";
    };
    const auto single = [](const std::string& name) { return "<" + name + " type='Float' precision='single'/>"; };
    content +=
        scanXml("<name type='String'><![CDATA[front]]></name>" + pose, first,
                "<cartesianX type='ScaledInteger' minimum='-4096' maximum='4095' scale='0.5' offset='10'/>" +
                    single("cartesianY") + "<cartesianZ type='Float'/>" + integer("cartesianInvalidState", "0", "2") +
                    integer("colorRed", "0", "1023") + integer("colorGreen", "0", "1023") +
                    integer("colorBlue", "0", "1023") + single("nor:normalX") + single("nor:normalY") +
                    single("nor:normalZ") + integer("rowIndex", "3", "3") + single("intensity"));
    content += scanXml("", second,
                       single("sphericalRange") + "<remark type='String'/><sphericalAzimuth type='Float'/>"
                                                  "<timeStamp type='Integer'/><sphericalElevation type='Float'/>");
    content += "</data3D><images2D type='Vector'/></e57Root>";
    return paged(content, xml);
}

TEST(E57, GivesScansWithPosesNormalsColoursAndIntensities)
{
    const std::vector<Scan> scans = Zorvan::ReadE57(sample(), "a.e57");
    ASSERT_EQ(scans.size(), 2U);
    EXPECT_EQ(scans[0].name, "front");
    EXPECT_EQ(scans[0].points, (prereg::Vectors{{10, 1.5F, 3}, {10.5F, -2, 4}})) << "one is not valid";
    EXPECT_EQ(scans[0].normals, (prereg::Vectors{{0, 1, 0}, {1, 0, 0}}));
    EXPECT_EQ(scans[0].colours, (std::vector<Zorvan::Rgb>{{0, 128, 255}, {255, 255, 0}}));
    EXPECT_EQ(scans[0].intensities, (std::vector<float>{7, 8}));
    ASSERT_TRUE(scans[0].pose && scans[0].sensor);
    ExpectNear(Transform(*scans[0].pose, {10, 1.5, 3}), {5e5 - 1.5, 20, 3}, 1e-9);
    EXPECT_EQ(scans[0].sensor->position, Position{});

    ASSERT_EQ(scans[1].points.size(), 3U);
    ExpectNear(PlaceOf(scans[1], 0), {2, 0, 0}, 1e-6);
    ExpectNear(PlaceOf(scans[1], 1), {0, 2, 0}, 1e-6);
    EXPECT_FALSE(scans[1].pose);
    EXPECT_TRUE(scans[1].sensor) << "angles are those of a sensor in the origin";
}

std::string messageOf(const std::string& bytes)
{
    return RefusalOf([&] { return Zorvan::ReadE57(bytes, "a"); });
}

TEST(E57, NoticesEveryMissingAndEveryChangedByte)
{
    const std::string whole = sample();
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_NE(messageOf(whole.substr(0, length)), "no error") << length << " of " << whole.size();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        if (at >= 12 && at < 16) continue; // a minor version may be any; its checksum is that of a page not read
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        EXPECT_NE(messageOf(damaged), "no error") << at;
    }
}

TEST(E57, RefusesDamageWithPlaceAndAdvice)
{
    const auto with = [](const std::string& from, const std::string& to) {
        std::string bytes = sample();
        std::string content;
        for (std::size_t at = 0; at < bytes.size(); at += uiPage) content += bytes.substr(at, uiContent);
        content.resize(content.find_last_not_of('\0') + 1);
        const std::size_t xml = content.find("<?xml");
        return messageOf(paged(content.replace(content.find(from), from.size(), to), xml));
    };
    EXPECT_EQ(messageOf("ply"), "a: byte 0: does not begin with \"ASTM-E57\"; check that it is an E57 file");
    EXPECT_THAT(with("recordCount='3'", "recordCount='400'"), testing::HasSubstr("byte 48: truncated: 400 points"));
    EXPECT_THAT(with("recordCount='3'", "recordCount='2147483647'"), testing::HasSubstr("more points are promised"));
    EXPECT_THAT(with("recordCount='3'", "recordCount='9147483647'"),
                testing::HasSubstr("scan 1: \"recordCount\" is no"));
    EXPECT_THAT(with("recordCount='3'", "recordCount='-3'"), testing::HasSubstr("scan 1: \"recordCount\" is no count"));
    EXPECT_THAT(with("fileOffset='48'", "fileOffset='52'"), testing::HasSubstr("byte 52: no points begin there"));
    EXPECT_THAT(with("fileOffset='48'", "fileOffset='9999999'"), testing::HasSubstr("byte 9999999: 32 bytes are"));
    EXPECT_THAT(with("maximum='4095'", "maximum='-4097'"), testing::HasSubstr("a maximum below its minimum"));
    EXPECT_THAT(with("<w type='Float'>0.5", "<w type='Float'>nan"),
                testing::HasSubstr("the pose is no turn and shift"));
    EXPECT_THAT(with("scale='0.5'", "scale='0,5'"), testing::HasSubstr("\"scale\" is \"0,5\", and a number is wanted"));
    EXPECT_THAT(with("<data3D", "<data3D<"), testing::HasSubstr("the XML is damaged at byte"));
    EXPECT_THAT(with("<rowIndex", "<!-- <rowIndex"), testing::HasSubstr("the XML is damaged"));
    EXPECT_THAT(with("<remark type='String'/>", ""), testing::HasSubstr("not as many fields as the header"));
    EXPECT_THAT(with("cartesianY", "cartesianU"), testing::HasSubstr("the scan has no coordinates"));
}

TEST(E57, IsReadBackAsWritten)
{
    std::vector<Scan> scans{SampleScan({}, 5000), SampleScan({500000, 5.4e6, 300}), {}, {}}; // several packets, doubles
    scans[0].name = "a <b> & ]]> c\n";
    scans[0].pose = Zorvan::Normalized(Zorvan::FramePose{{500, 20, -3}, {1, 2, -3, 4}});
    scans[2].points = {{1, 2, 3}};
    const std::string bytes = Zorvan::WriteE57Bytes(scans);
    EXPECT_EQ(bytes, Zorvan::WriteE57Bytes(scans)) << "same scans, same bytes";
    const std::vector<Scan> read = Zorvan::ReadE57(bytes, "a.e57");
    ASSERT_EQ(read.size(), 3U) << "one without points is none";
    for (std::size_t i = 0; i < 3; ++i) ExpectSameScan(read[i], scans[i]);
    EXPECT_EQ(read[0].name, "a <b> & ]]> c ");
    ASSERT_TRUE(read[0].pose);
    ExpectNear(Transform(*read[0].pose, {1, 2, 3}), Transform(*scans[0].pose, {1, 2, 3}), 1e-9);
    EXPECT_FALSE(read[1].pose || read[1].sensor);
    EXPECT_EQ(Zorvan::ReadE57(Zorvan::WriteE57Bytes(scans, 0.001), "a")[0].pose->position[0], 0.5);
}

} // namespace
