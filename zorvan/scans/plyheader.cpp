// SPDX-License-Identifier: MIT
#include "zorvan/scans/plyheader.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_set>
#include <utility>

namespace Zorvan {

namespace {

constexpr long long iMaxCount = 2147483647; // indices are 31 bits wide in the search tree

struct TypeName
{
    std::string_view name;
    EPlyType type;
};

constexpr std::array<TypeName, 16> typeNames{{{"char", EPlyType::Int8},
                                              {"int8", EPlyType::Int8},
                                              {"uchar", EPlyType::UInt8},
                                              {"uint8", EPlyType::UInt8},
                                              {"short", EPlyType::Int16},
                                              {"int16", EPlyType::Int16},
                                              {"ushort", EPlyType::UInt16},
                                              {"uint16", EPlyType::UInt16},
                                              {"int", EPlyType::Int32},
                                              {"int32", EPlyType::Int32},
                                              {"uint", EPlyType::UInt32},
                                              {"uint32", EPlyType::UInt32},
                                              {"float", EPlyType::Float32},
                                              {"float32", EPlyType::Float32},
                                              {"double", EPlyType::Float64},
                                              {"float64", EPlyType::Float64}}};

class CHeaderParser
{
public:
    CHeaderParser(std::string_view bytes, const std::filesystem::path& file, std::uint64_t fileSize)
        : m_bytes(bytes), m_rest(bytes), m_file(file), m_fileSize(fileSize)
    {
    }

    PlyHeader Parse()
    {
        if (nextLine() != "ply") fail("does not begin with \"ply\"", "check that it is a PLY file");
        while (!m_rest.empty()) {
            if (!parseLine(nextLine())) return finish();
        }
        fail("the header has no end_header", "the file is cut short: write or copy it again");
    }

private:
    [[noreturn]] void fail(const std::string& why, const std::string& advice = "export the file again") const
    {
        throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why, advice);
    }

    std::string_view nextLine()
    {
        ++m_line;
        return NextLine(m_rest);
    }

    /// False at the end of the header.
    bool parseLine(std::string_view line)
    {
        const std::string_view keyword = NextWord(line);
        if (keyword == "end_header") return false;
        if (keyword == "format")
            parseFormat(line);
        else if (keyword == "element")
            parseElement(line);
        else if (keyword == "property")
            parseProperty(line);
        else if (keyword == "obj_info")
            parseInfo(line);
        else if (!keyword.empty() && keyword != "comment")
            fail("unknown keyword " + Quoted(keyword));
        return true;
    }

    void parseFormat(std::string_view line)
    {
        const std::string_view name = NextWord(line);
        m_hasFormat = true;
        if (name == "ascii")
            m_header.format = EPlyFormat::Ascii;
        else if (name == "binary_little_endian")
            m_header.format = EPlyFormat::LittleEndian;
        else if (name == "binary_big_endian")
            m_header.format = EPlyFormat::BigEndian;
        else
            fail("unknown format", "ascii, binary_little_endian and binary_big_endian are read");
    }

    void parseElement(std::string_view line)
    {
        PlyElement element;
        element.name = NextWord(line);
        const std::optional<long long> count = ParseInteger(NextWord(line));
        if (element.name.empty() || !count || *count < 0 || *count > iMaxCount)
            fail("an element needs a name and a count from 0 to 2147483647");
        if (!m_names.insert(element.name).second) fail("element " + Quoted(element.name) + " appears twice");
        element.count = static_cast<std::uint64_t>(*count);
        m_header.elements.push_back(std::move(element));
    }

    EPlyType parseType(std::string_view name) const
    {
        const auto* const found =
            std::find_if(typeNames.begin(), typeNames.end(), [name](const TypeName& t) { return t.name == name; });
        if (found == typeNames.end()) fail("unknown type " + Quoted(name));
        return found->type;
    }

    void parseProperty(std::string_view line)
    {
        if (m_header.elements.empty()) fail("a property before the first element");
        PlyProperty property;
        std::string_view type = NextWord(line);
        if (type == "list") {
            property.isList = true;
            property.countType = parseType(NextWord(line));
            if (property.countType == EPlyType::Float32 || property.countType == EPlyType::Float64)
                fail("the length of a list must be a whole number");
            type = NextWord(line);
        }
        property.type = parseType(type);
        property.name = NextWord(line);
        if (property.name.empty()) fail("a property without a name");
        m_header.elements.back().properties.push_back(std::move(property));
    }

    void parseInfo(std::string_view line)
    {
        const std::string_view key = NextWord(line);
        if (key != "num_cols" && key != "num_rows") return;
        const std::optional<long long> value = ParseInteger(NextWord(line));
        if (!value || *value < 0 || *value > iMaxCount) fail(std::string(key) + " must be a count");
        (key == "num_cols" ? m_header.gridColumns : m_header.gridRows) = static_cast<std::uint64_t>(*value);
    }

    PlyHeader finish()
    {
        if (!m_hasFormat) fail("the header names no format");
        m_header.bodyOffset = m_bytes.size() - m_rest.size();
        checkBodySize();
        return std::move(m_header);
    }

    // Everything after this check may allocate by the counts: they are no larger than the file.
    void checkBodySize() const
    {
        constexpr std::uint64_t uiHuge = std::uint64_t{1} << 62; // sums below it cannot wrap
        std::uint64_t needed = 0;
        std::string promised;
        for (const PlyElement& element : m_header.elements) {
            const std::uint64_t each = element.MinimumBytes(m_header.format);
            if (element.count > 0 && each > uiHuge / element.count) fail("too many properties");
            needed = std::min(needed + element.count * each, uiHuge);
            if (!promised.empty()) promised += " and ";
            promised += std::to_string(element.count) + " entries of " + Quoted(element.name);
        }
        // The last value of a text may end with the file, without a separator.
        if (m_header.format == EPlyFormat::Ascii && needed > 0) --needed;
        const std::uint64_t body = m_fileSize - m_header.bodyOffset;
        if (needed <= body) return;
        throw CInputError(m_file,
                          "truncated: the header promises " + promised + " (at least " + std::to_string(needed) +
                              " bytes), the file holds " + std::to_string(body) + " behind byte " +
                              std::to_string(m_header.bodyOffset),
                          "write or copy it again");
    }

    std::string_view m_bytes;
    std::string_view m_rest;
    const std::filesystem::path& m_file;
    std::uint64_t m_fileSize;
    std::size_t m_line = 0;
    bool m_hasFormat = false;
    std::unordered_set<std::string> m_names; ///< of the elements: a hostile header has many
    PlyHeader m_header;
};

int findProperty(const PlyElement& element, std::string_view name, bool isList)
{
    for (std::size_t i = 0; i < element.properties.size(); ++i) {
        if (element.properties[i].name == name && element.properties[i].isList == isList) return static_cast<int>(i);
    }
    return -1;
}

} // namespace

std::size_t SizeOf(EPlyType type)
{
    switch (type) {
    case EPlyType::Int8:
    case EPlyType::UInt8:
        return 1;
    case EPlyType::Int16:
    case EPlyType::UInt16:
        return 2;
    case EPlyType::Float64:
        return 8;
    default:
        return 4;
    }
}

int PlyElement::FindScalar(std::string_view property) const { return findProperty(*this, property, false); }

int PlyElement::FindList(std::string_view property) const { return findProperty(*this, property, true); }

std::uint64_t PlyElement::MinimumBytes(EPlyFormat format) const
{
    std::uint64_t bytes = 0;
    for (const PlyProperty& property : properties) {
        // A value of a text takes a digit and a separator.
        if (format == EPlyFormat::Ascii)
            bytes += 2;
        else
            bytes += SizeOf(property.isList ? property.countType : property.type);
    }
    return bytes;
}

const PlyElement* PlyHeader::Find(std::string_view element) const
{
    const auto found =
        std::find_if(elements.begin(), elements.end(), [element](const PlyElement& e) { return e.name == element; });
    return found == elements.end() ? nullptr : &*found;
}

PlyHeader ReadPlyHeader(std::string_view bytes, const std::filesystem::path& file,
                        std::optional<std::uint64_t> fileSize)
{
    return CHeaderParser(bytes, file, fileSize.value_or(bytes.size())).Parse();
}

} // namespace Zorvan
