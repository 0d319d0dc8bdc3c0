// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57document.h"

#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <pugixml.hpp>

#include <bit>
#include <limits>
#include <utility>

namespace Zorvan {

namespace {

constexpr long long iMostPoints = 2147483647; // indices are 31 bits wide in the search tree

class CE57DocumentReader
{
public:
    explicit CE57DocumentReader(const std::filesystem::path& file) : m_file(file) {}

    std::vector<E57ScanHeader> Read(const std::string& xml)
    {
        pugi::xml_document document;
        const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size());
        if (!result) fail("the XML is damaged at byte " + std::to_string(result.offset) + ": " + result.description());
        std::vector<E57ScanHeader> scans;
        for (const pugi::xml_node& node : document.child("e57Root").child("data3D").children("vectorChild")) {
            ++m_scan;
            scans.push_back(readScan(node));
        }
        return scans;
    }

private:
    [[noreturn]] void fail(const std::string& why) const
    {
        const std::string where = m_scan > 0 ? "scan " + std::to_string(m_scan) + ": " : "";
        throw CInputError(m_file, where + why, "export the file again");
    }

    E57ScanHeader readScan(const pugi::xml_node& node) const
    {
        E57ScanHeader scan;
        // A text with the end of a CDATA section in it stands in two of them.
        for (const pugi::xml_node& part : node.child("name").children()) scan.name += part.value();
        scan.pose = readPose(node.child("pose"));
        const pugi::xml_node points = node.child("points");
        scan.points = static_cast<std::uint64_t>(integer(points, "recordCount", 0));
        scan.place = static_cast<std::uint64_t>(integer(points, "fileOffset", 0));
        if (scan.points > static_cast<std::uint64_t>(iMostPoints))
            fail("\"recordCount\" is no count from 0 to 2147483647");
        for (const pugi::xml_node& field : points.child("prototype").children())
            scan.fields.push_back(readField(field));
        const pugi::xml_node limits = node.child("colorLimits");
        const char* const names[]{"colorRedMinimum",   "colorRedMaximum",  "colorGreenMinimum",
                                  "colorGreenMaximum", "colorBlueMinimum", "colorBlueMaximum"};
        for (std::size_t i = 0; i < scan.colourLimits.size(); ++i)
            if (limits.child(names[i])) scan.colourLimits[i] = content(limits.child(names[i]), 0.0);
        return scan;
    }

    std::optional<FramePose> readPose(const pugi::xml_node& node) const
    {
        if (!node) return std::nullopt;
        const pugi::xml_node turn = node.child("rotation");
        const pugi::xml_node shift = node.child("translation");
        const FramePose pose{
            {content(shift.child("x"), 0.0), content(shift.child("y"), 0.0), content(shift.child("z"), 0.0)},
            {content(turn.child("w"), turn ? 0.0 : 1.0), content(turn.child("x"), 0.0), content(turn.child("y"), 0.0),
             content(turn.child("z"), 0.0)}};
        const auto unit = Normalized(pose);
        if (!unit) fail("the pose is no turn and shift");
        return unit;
    }

    E57Field readField(const pugi::xml_node& node) const
    {
        E57Field field;
        field.name = node.name();
        const std::string_view type = node.attribute("type").value();
        if (type == "Float") {
            const bool isSingle = std::string_view(node.attribute("precision").value()) == "single";
            field.eKind = isSingle ? E57Field::EKind::Float32 : E57Field::EKind::Float64;
            field.bits = isSingle ? 32 : 64;
        } else if (type == "Integer" || type == "ScaledInteger") {
            field.eKind = E57Field::EKind::Integer;
            field.minimum = integer(node, "minimum", std::numeric_limits<std::int64_t>::min());
            const std::int64_t maximum = integer(node, "maximum", std::numeric_limits<std::int64_t>::max());
            if (maximum < field.minimum) fail(Quoted(field.name) + " has a maximum below its minimum");
            field.bits = static_cast<unsigned>(
                std::bit_width(static_cast<std::uint64_t>(maximum) - static_cast<std::uint64_t>(field.minimum)));
            if (type == "ScaledInteger") {
                field.scale = number(node, "scale", 1.0);
                field.offset = number(node, "offset", 0.0);
            }
            field.highest = static_cast<double>(maximum) * field.scale + field.offset;
        }
        return field;
    }

    /// Of an element; one without text is 0.
    [[nodiscard]] double content(const pugi::xml_node& node, double absent) const
    {
        if (!node) return absent;
        return parsed(node.child_value(), node.name());
    }

    [[nodiscard]] double number(const pugi::xml_node& node, const char* name, double absent) const
    {
        const pugi::xml_attribute attribute = node.attribute(name);
        return attribute ? parsed(attribute.value(), name) : absent;
    }

    [[nodiscard]] double parsed(std::string_view text, const char* name) const
    {
        const std::string_view word = NextWord(text, "\n");
        if (word.empty()) return 0.0;
        const std::optional<double> value = ParseNumber(word);
        if (!value) fail(Quoted(name) + " is " + Quoted(word) + ", and a number is wanted");
        return *value;
    }

    [[nodiscard]] std::int64_t integer(const pugi::xml_node& node, const char* name, std::int64_t absent) const
    {
        const pugi::xml_attribute attribute = node.attribute(name);
        if (!attribute) return absent;
        const std::optional<long long> value = ParseInteger(attribute.value());
        if (!value) fail(Quoted(name) + " is " + Quoted(attribute.value()) + ", and a whole number is wanted");
        return *value;
    }

    const std::filesystem::path& m_file;
    std::size_t m_scan = 0;
};

} // namespace

int E57ScanHeader::Find(std::string_view field) const
{
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (fields[i].name == field) return static_cast<int>(i);
    }
    return -1;
}

std::vector<E57ScanHeader> ReadE57Document(const std::string& xml, const std::filesystem::path& file)
{
    return CE57DocumentReader(file).Read(xml);
}

} // namespace Zorvan
