// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57writer.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiHeaderBytes = 48;
constexpr std::size_t uiSectionHeader = 32;
constexpr std::size_t uiIndexPacket = 32;
constexpr std::size_t uiMostPacketBytes = 65536;

/// A value of every point: how it stands in the XML, and how it is written.
struct Column
{
    std::string xml;
    std::size_t bytes;
    std::function<void(std::string&, std::size_t)> append;
};

std::string tag(const std::string& name, const std::string& type, const std::string& content)
{
    return "<" + name + " type=\"" + type + "\">" + content + "</" + name + ">";
}

std::string realTag(const std::string& name, double value) { return tag(name, "Float", ToText(value, 17)); }

/// What cannot stand in an XML text becomes a blank; the end of a CDATA section is cut in two.
std::string stringTag(const std::string& name, std::string text)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    for (std::size_t at = text.find("]]>"); at != std::string::npos; at = text.find("]]>", at + 12))
        text.insert(at + 2, "]]><![CDATA[");
    return tag(name, "String", "<![CDATA[" + text + "]]>");
}

/// The same scans, the same identifiers.
std::string guidOf(std::string_view bytes, std::size_t number)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string guid = "{00000000-0000-4000-8000-000000000000}";
    const std::uint64_t value = static_cast<std::uint64_t>(Crc32c(bytes)) << 16U | (number & 0xFFFFU);
    for (std::size_t k = 0; k < 12; ++k) guid[25 + k] = digits[value >> (44 - 4 * k) & 0xFU];
    return guid;
}

std::string singleXml(const std::string& name) { return "<" + name + " type=\"Float\" precision=\"single\"/>"; }

std::vector<Column> columnsOf(const Scan& scan, double factor)
{
    std::vector<Column> columns;
    const bool isFar = scan.shift != Position{};
    const std::array<std::string, 3> axes{"X", "Y", "Z"};
    for (unsigned k = 0; k < 3; ++k) {
        const auto place = [&scan, factor, k](std::size_t i) {
            return (static_cast<double>(scan.points[i][k]) + scan.shift[k]) * factor;
        };
        const std::string name = "cartesian" + axes[k];
        if (isFar)
            columns.push_back({"<" + name + " type=\"Float\"/>", 8,
                               [place](std::string& bytes, std::size_t i) { AppendLittle(bytes, place(i)); }});
        else
            columns.push_back({singleXml(name), 4,
                               [place](std::string& bytes, std::size_t i) { AppendLittle(bytes, ToFloat(place(i))); }});
    }
    for (unsigned k = 0; k < 3 && !scan.normals.empty(); ++k)
        columns.push_back({singleXml("nor:normal" + axes[k]), 4,
                           [&scan, k](std::string& bytes, std::size_t i) { AppendLittle(bytes, scan.normals[i][k]); }});
    const std::array<std::string, 3> parts{"Red", "Green", "Blue"};
    for (std::size_t k = 0; k < 3 && !scan.colours.empty(); ++k)
        columns.push_back({"<color" + parts[k] + " type=\"Integer\" minimum=\"0\" maximum=\"255\"/>", 1,
                           [&scan, k](std::string& bytes, std::size_t i) {
                               bytes.push_back(static_cast<char>(scan.colours[i][k]));
                           }});
    if (!scan.intensities.empty())
        columns.push_back({singleXml("intensity"), 4,
                           [&scan](std::string& bytes, std::size_t i) { AppendLittle(bytes, scan.intensities[i]); }});
    return columns;
}

/// Points `begin` to `end`, field after field.
void appendPacket(std::string& bytes, const std::vector<Column>& columns, std::size_t begin, std::size_t end)
{
    std::string packet("\1\0\0\0", 4);
    AppendLittle(packet, static_cast<std::uint16_t>(columns.size()));
    for (const Column& column : columns) AppendLittle(packet, static_cast<std::uint16_t>(column.bytes * (end - begin)));
    for (const Column& column : columns) {
        for (std::size_t i = begin; i < end; ++i) column.append(packet, i);
    }
    packet.resize((packet.size() + 3) / 4 * 4, '\0');
    const std::size_t last = packet.size() - 1;
    packet[2] = static_cast<char>(last & 0xFFU);
    packet[3] = static_cast<char>(last >> 8U);
    bytes += packet;
}

std::string packetsOf(const std::vector<Column>& columns, std::size_t points)
{
    std::size_t each = 0;
    for (const Column& column : columns) each += column.bytes;
    const std::size_t room = uiMostPacketBytes - 6 - 2 * columns.size() - 3;
    const std::size_t most = room / std::max<std::size_t>(1, each);
    std::string packets;
    for (std::size_t begin = 0; begin < points; begin += most)
        appendPacket(packets, columns, begin, std::min(points, begin + most));
    return packets;
}

/// Header, packets of points, and an index with the first of them.
std::string sectionOf(const std::vector<Column>& columns, std::size_t points, std::size_t begin)
{
    const std::string packets = packetsOf(columns, points);
    const auto place = [](std::size_t content) { return static_cast<std::uint64_t>(E57PlaceOf(content)); };
    std::string section("\1\0\0\0\0\0\0\0", 8);
    for (const std::uint64_t value : {static_cast<std::uint64_t>(uiSectionHeader + packets.size() + uiIndexPacket),
                                      place(begin + uiSectionHeader), place(begin + uiSectionHeader + packets.size())})
        AppendLittle(section, value);
    section += packets;
    std::string index(uiIndexPacket, '\0');
    index[2] = static_cast<char>(uiIndexPacket - 1);
    index[4] = '\1'; // entries
    std::string entry;
    AppendLittle(entry, std::uint64_t{0});
    AppendLittle(entry, place(begin + uiSectionHeader));
    return section + index.replace(16, entry.size(), entry);
}

std::string poseXml(const FramePose& pose, double factor)
{
    const auto& [w, x, y, z] = pose.rotation;
    const auto& [tx, ty, tz] = pose.position;
    return tag("pose", "Structure",
               tag("rotation", "Structure", realTag("w", w) + realTag("x", x) + realTag("y", y) + realTag("z", z)) +
                   tag("translation", "Structure",
                       realTag("x", tx * factor) + realTag("y", ty * factor) + realTag("z", tz * factor)));
}

std::string limitsXml(const Scan& scan)
{
    std::string xml;
    if (!scan.intensities.empty()) {
        const auto [low, high] =
            std::ranges::minmax(scan.intensities, {}, [](float v) { return std::isfinite(v) ? v : 0; });
        if (std::isfinite(low) && std::isfinite(high))
            xml += tag("intensityLimits", "Structure",
                       realTag("intensityMinimum", static_cast<double>(low)) +
                           realTag("intensityMaximum", static_cast<double>(high)));
    }
    if (scan.colours.empty()) return xml;
    std::string limits;
    for (const std::string part : {"Red", "Green", "Blue"})
        limits += tag("color" + part + "Minimum", "Integer", "0") + tag("color" + part + "Maximum", "Integer", "255");
    return xml + tag("colorLimits", "Structure", limits);
}

std::string scanXml(const Scan& scan, const std::vector<Column>& columns, const std::string& guid, std::size_t begin,
                    double factor)
{
    std::string prototype;
    for (const Column& column : columns) prototype += column.xml;
    return tag("vectorChild", "Structure",
               stringTag("guid", guid) + stringTag("name", scan.name) + (scan.pose ? poseXml(*scan.pose, factor) : "") +
                   limitsXml(scan) + "<points type=\"CompressedVector\" fileOffset=\"" +
                   std::to_string(E57PlaceOf(begin)) + "\" recordCount=\"" + std::to_string(scan.points.size()) +
                   "\">" + tag("prototype", "Structure", prototype) +
                   "<codecs type=\"Vector\" allowHeterogeneousChildren=\"1\"></codecs></points>");
}

} // namespace

std::string WriteE57Bytes(std::span<const Scan> scans, double unitsPerMm)
{
    std::string content(uiHeaderBytes, '\0');
    std::string list;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const std::size_t begin = content.size();
        const std::vector<Column> columns = columnsOf(scans[i], unitsPerMm);
        const std::string section = sectionOf(columns, scans[i].points.size(), begin);
        content += section;
        list += scanXml(scans[i], columns, guidOf(section, i), begin, unitsPerMm);
    }
    const std::size_t xml = content.size();
    const std::string guid = guidOf(content, scans.size());
    content += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<e57Root type=\"Structure\" "
               "xmlns=\"http://www.astm.org/COMMIT/E57/2010-e57-v1.0\" "
               "xmlns:nor=\"http://www.libe57.org/E57_NOR_surface_normals.txt\">" +
               stringTag("formatName", "ASTM E57 3D Imaging Data File") + stringTag("guid", guid) +
               tag("versionMajor", "Integer", "1") + tag("versionMinor", "Integer", "0") +
               stringTag("e57LibraryVersion", "zorvan") + "<data3D type=\"Vector\" allowHeterogeneousChildren=\"1\">" +
               list + "</data3D><images2D type=\"Vector\" allowHeterogeneousChildren=\"1\"></images2D></e57Root>\n";
    return E57Pages(std::move(content), xml);
}

void WriteE57(const std::filesystem::path& file, std::span<const Scan> scans, double unitsPerMm)
{
    WriteFileAtomically(file, WriteE57Bytes(scans, unitsPerMm));
}

} // namespace Zorvan
