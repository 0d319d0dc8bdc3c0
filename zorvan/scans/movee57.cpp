// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/textnumber.h"

#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::uint64_t uiChecksum = 4;
constexpr std::size_t uiHeaderBytes = 48;
constexpr std::size_t uiLengthPlace = 16; // of the length of the file, the place of the XML and its length

double numberOf(const pugi::xml_node& parent, const char* name, double absent)
{
    const pugi::xml_node node = parent.child(name);
    return node ? ParseNumber(node.child_value()).value_or(0.0) : absent;
}

FramePose poseOf(const pugi::xml_node& node, const CMoveStream& stream)
{
    const pugi::xml_node turn = node.child("rotation");
    const pugi::xml_node shift = node.child("translation");
    const auto pose =
        Normalized(FramePose{{numberOf(shift, "x", 0.0), numberOf(shift, "y", 0.0), numberOf(shift, "z", 0.0)},
                             {numberOf(turn, "w", turn ? 0.0 : 1.0), numberOf(turn, "x", 0.0), numberOf(turn, "y", 0.0),
                              numberOf(turn, "z", 0.0)}});
    if (!pose) stream.Fail("a pose in it is no turn and shift", "export the file again");
    return *pose;
}

pugi::xml_node childOf(pugi::xml_node parent, const char* name, const char* type)
{
    if (const pugi::xml_node child = parent.child(name)) return child;
    pugi::xml_node child = parent.append_child(name);
    child.append_attribute("type") = type;
    return child;
}

void setNumber(pugi::xml_node parent, const char* name, double value)
{
    childOf(parent, name, "Float").text() = ToExactText(value).c_str();
}

void movePose(pugi::xml_node owner, const FramePose& motion, const CMoveStream& stream)
{
    const FramePose pose = Compose(motion, poseOf(owner.child("pose"), stream));
    const pugi::xml_node node = childOf(owner, "pose", "Structure");
    const pugi::xml_node turn = childOf(node, "rotation", "Structure");
    const pugi::xml_node shift = childOf(node, "translation", "Structure");
    const std::array names{"w", "x", "y", "z"};
    for (std::size_t k = 0; k < names.size(); ++k) setNumber(turn, names[k], pose.rotation[k]);
    for (std::size_t k = 0; k < 3; ++k) setNumber(shift, names[k + 1], pose.position[k]);
}

std::string textOf(const pugi::xml_node& node)
{
    std::string text;
    for (const pugi::xml_node& part : node.children()) text += part.value();
    return text;
}

/// The XML with the poses of scans and pictures moved, and all else as it is.
std::string movedXml(const std::string& xml, const CMovement& movement, const CMoveStream& stream)
{
    pugi::xml_document document;
    const unsigned all = pugi::parse_full | pugi::parse_ws_pcdata;
    const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), all);
    if (!result)
        stream.Fail("the XML is damaged at byte " + std::to_string(result.offset) + ": " + result.description(),
                    "export the file again");
    const pugi::xml_node root = document.child("e57Root");
    std::map<std::string, FramePose> motions; // by the identifier of the scan
    std::size_t number = 0;
    for (const pugi::xml_node& scan : root.child("data3D").children("vectorChild")) {
        const FramePose motion = movement.OfScan(++number, poseOf(scan.child("pose"), stream));
        motions.emplace(textOf(scan.child("guid")), motion);
        movePose(scan, motion, stream);
    }
    for (const pugi::xml_node& picture : root.child("images2D").children("vectorChild")) {
        const auto scan = motions.find(textOf(picture.child("associatedData3DGuid")));
        movePose(picture, scan == motions.end() ? movement.Pose() : scan->second, stream);
    }
    std::ostringstream text;
    document.save(text, "", pugi::format_raw | pugi::format_no_declaration);
    return text.str();
}

std::string page(std::string content, std::uint64_t pageSize)
{
    content.resize(pageSize - uiChecksum, '\0');
    const std::uint32_t crc = Crc32c(content);
    for (const unsigned shift : {24U, 16U, 8U, 0U}) content.push_back(static_cast<char>(crc >> shift));
    return content;
}

/// What the header of the file says of its pages.
struct Layout
{
    std::uint64_t length = 0;
    std::uint64_t xmlPlace = 0;
    std::uint64_t xmlLength = 0;
    std::uint64_t pageSize = 0;
};

Layout layoutOf(CMoveStream& stream)
{
    constexpr std::uint64_t uiSmallestPage = 64;
    constexpr std::uint64_t uiLargestPage = 1U << 20U;
    const std::string_view head = stream.Peek(uiHeaderBytes);
    if (!head.starts_with("ASTM-E57") || head.size() < uiHeaderBytes)
        stream.Fail("byte 0: does not begin with \"ASTM-E57\"", "check that it is an E57 file");
    const auto number = [&](std::size_t place) { return LoadLittle<std::uint64_t>(head, place); };
    const Layout layout{number(16), number(24), number(32), number(40)};
    const bool hasPages = layout.pageSize >= uiSmallestPage && layout.pageSize <= uiLargestPage;
    if (!hasPages || layout.length > stream.Size() || layout.length % layout.pageSize != 0 ||
        layout.xmlPlace >= layout.length || layout.xmlPlace < uiHeaderBytes || layout.xmlLength > layout.length ||
        layout.xmlPlace % layout.pageSize >= layout.pageSize - uiChecksum)
        stream.Fail("truncated, or its header does not hold", "write or copy it again");
    return layout;
}

/// Content from a place on, its pages checked.
std::string readContent(const CMoveStream& stream, const Layout& layout)
{
    std::ifstream file(stream.File(), std::ios::binary);
    std::uint64_t at = layout.xmlPlace % layout.pageSize;
    file.seekg(static_cast<std::streamoff>(layout.xmlPlace - at));
    std::string content;
    std::string bytes(layout.pageSize, '\0');
    for (; content.size() < layout.xmlLength; at = 0) {
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file) stream.Fail("truncated inside its XML", "write or copy it again");
        const std::size_t length = layout.pageSize - uiChecksum;
        if (page(bytes.substr(0, length), layout.pageSize) != bytes)
            stream.Fail("the checksum of a page of its XML does not fit", "write or copy it again");
        content += bytes.substr(at, std::min<std::uint64_t>(length - at, layout.xmlLength - content.size()));
    }
    return content;
}

} // namespace

std::string MoveE57(CMoveStream& stream, const CMovement& movement)
{
    const Layout layout = layoutOf(stream);
    const std::uint64_t each = layout.pageSize - uiChecksum;
    const std::string xml = movedXml(readContent(stream, layout), movement, stream);
    // The XML takes new pages: in the place of the old ones when they are the last, else behind all.
    const std::uint64_t firstPage = layout.xmlPlace / layout.pageSize;
    const std::uint64_t oldPages = (layout.xmlPlace % layout.pageSize + layout.xmlLength + each - 1) / each;
    const bool isLast = firstPage + oldPages == layout.length / layout.pageSize;
    const bool isShared = layout.xmlPlace % layout.pageSize != 0; // its first page ends with something else
    const std::uint64_t kept = isLast ? firstPage + (isShared ? 1 : 0) : layout.length / layout.pageSize;
    const std::uint64_t newPages = (xml.size() + each - 1) / each;

    std::string header(stream.Take(std::min<std::uint64_t>(layout.pageSize, layout.length)));
    std::string numbers;
    for (const std::uint64_t value :
         {(kept + newPages) * layout.pageSize, kept * layout.pageSize, std::uint64_t{xml.size()}})
        AppendLittle(numbers, value);
    header.replace(uiLengthPlace, numbers.size(), numbers);
    stream.Put(page(header.substr(0, each), layout.pageSize));
    stream.Copy((std::max<std::uint64_t>(kept, 1) - 1) * layout.pageSize);
    for (std::size_t at = 0; at < xml.size(); at += each) stream.Put(page(xml.substr(at, each), layout.pageSize));
    return {};
}

} // namespace Zorvan
