// SPDX-License-Identifier: MIT
#include "zorvan/scans/pcdheader.h"

#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::uint64_t uiMostPoints = 2147483647; // indices are 31 bits wide in the search tree
constexpr std::uint64_t uiMostValues = 1U << 20U;  // of a point; a histogram has some hundreds
constexpr const char* sCutShort = "the file is cut short: write or copy it again";

class CPcdHeaderParser
{
public:
    CPcdHeaderParser(std::string_view bytes, const std::filesystem::path& file, std::uint64_t fileSize)
        : m_bytes(bytes), m_rest(bytes), m_file(file), m_fileSize(fileSize)
    {
    }

    PcdHeader Parse()
    {
        while (!m_rest.empty()) {
            ++m_line;
            if (!parseLine(NextLine(m_rest))) return finish();
        }
        fail("the header has no DATA", sCutShort);
    }

private:
    [[noreturn]] void fail(const std::string& why, const std::string& advice = "export the file again") const
    {
        throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why, advice);
    }

    /// False at the end of the header.
    bool parseLine(std::string_view line)
    {
        const std::string_view keyword = NextWord(line);
        if (keyword.empty() || keyword.front() == '#' || keyword == "VERSION") return true;
        if (keyword == "FIELDS" || keyword == "COLUMNS")
            parseFields(line);
        else if (keyword == "SIZE")
            parseSizes(line);
        else if (keyword == "TYPE")
            parseTypes(line);
        else if (keyword == "COUNT")
            parseCounts(line);
        else if (keyword == "WIDTH")
            m_width = count(line, uiMostPoints);
        else if (keyword == "HEIGHT")
            m_height = count(line, uiMostPoints);
        else if (keyword == "POINTS")
            m_points = count(line, uiMostPoints);
        else if (keyword == "VIEWPOINT")
            parseView(line);
        else if (keyword == "DATA")
            return parseData(line);
        else
            fail("unknown keyword " + Quoted(keyword), "check that it is a PCD file");
        return true;
    }

    std::uint64_t count(std::string_view& line, std::uint64_t most) const
    {
        const std::string_view word = NextWord(line);
        const std::optional<long long> value = ParseInteger(word);
        if (!value || *value < 0 || static_cast<std::uint64_t>(*value) > most)
            fail(Quoted(word) + " is no count from 0 to " + std::to_string(most));
        return static_cast<std::uint64_t>(*value);
    }

    void parseFields(std::string_view line)
    {
        if (!m_header.fields.empty()) fail("the fields are named twice");
        for (std::string_view name = NextWord(line); !name.empty(); name = NextWord(line)) {
            m_header.fields.emplace_back();
            m_header.fields.back().name = name;
        }
        if (m_header.fields.empty()) fail("no field is named");
    }

    void parseSizes(std::string_view line)
    {
        for (PcdField& field : m_header.fields) field.size = count(line, 8);
    }

    void parseTypes(std::string_view line)
    {
        for (PcdField& field : m_header.fields) {
            const std::string_view type = NextWord(line);
            if (type != "I" && type != "U" && type != "F") fail("the types are I, U and F, one for each field");
            field.eType = type == "I" ? EPcdType::Signed : type == "U" ? EPcdType::Unsigned : EPcdType::Float;
        }
    }

    void parseCounts(std::string_view line)
    {
        for (PcdField& field : m_header.fields) field.count = count(line, uiMostValues);
    }

    void parseView(std::string_view line)
    {
        std::array<double, 7> values{};
        for (double& value : values) {
            const std::string_view word = NextWord(line);
            const std::optional<double> number = ParseNumber(word);
            if (!number) fail(Quoted(word) + " is not a number: tx ty tz qw qx qy qz are wanted");
            value = *number;
        }
        m_header.sensor =
            Normalized(FramePose{{values[0], values[1], values[2]}, {values[3], values[4], values[5], values[6]}});
    }

    bool parseData(std::string_view line)
    {
        const std::string_view name = NextWord(line);
        if (name == "ascii")
            m_header.eData = EPcdData::Text;
        else if (name == "binary")
            m_header.eData = EPcdData::Binary;
        else if (name == "binary_compressed")
            m_header.eData = EPcdData::Compressed;
        else
            fail("unknown kind of data " + Quoted(name), "ascii, binary and binary_compressed are read");
        return false;
    }

    PcdHeader finish()
    {
        if (m_header.fields.empty()) fail("the header names no fields");
        setCounts();
        setOffsets();
        // Written by every program that knows of no sensor; but an image was taken from where its rays meet.
        const bool isDefault = m_header.sensor && m_header.sensor->position == Position{} &&
                               m_header.sensor->rotation == FramePose{}.rotation;
        if (isDefault && !m_header.IsImage()) m_header.sensor.reset();
        m_header.bodyOffset = m_bytes.size() - m_rest.size();
        m_header.bodyLine = m_line + 1;
        checkBodySize();
        return std::move(m_header);
    }

    void setCounts()
    {
        m_header.width = m_width ? *m_width : m_points.value_or(0);
        m_header.height = m_height.value_or(1);
        m_header.points = m_header.width * m_header.height; // below 2^62
        if (m_header.points > uiMostPoints) fail("more than " + std::to_string(uiMostPoints) + " points");
        if (m_points && *m_points != m_header.points)
            fail("POINTS is " + std::to_string(*m_points) + ", WIDTH times HEIGHT " + std::to_string(m_header.points));
        if (m_header.points == 0) fail("the file holds no point", "give a scan of a surface");
    }

    void setOffsets()
    {
        for (PcdField& field : m_header.fields) {
            const bool isKnown = field.size == 4 || field.size == 8 ||
                                 (field.eType != EPcdType::Float && (field.size == 1 || field.size == 2));
            if (!isKnown) fail("a value of " + Quoted(field.name) + " takes " + std::to_string(field.size) + " bytes");
            field.offset = m_header.pointBytes;
            field.column = m_header.columns;
            m_header.pointBytes += field.size * field.count;
            m_header.columns += field.count;
            if (m_header.columns > uiMostValues) fail("too many values a point");
        }
    }

    // Everything after this check may allocate by the counts: they are no larger than the file.
    void checkBodySize() const
    {
        // A value of a text takes a digit and a separator; the last one may end with the file. What is compressed is
        // checked where it is expanded.
        const std::uint64_t each = m_header.eData == EPcdData::Text ? 2 * m_header.columns : m_header.pointBytes;
        const std::uint64_t needed = m_header.eData == EPcdData::Compressed ? 8
                                     : m_header.eData == EPcdData::Text     ? m_header.points * each - 1
                                                                            : m_header.points * each;
        const std::uint64_t body = m_fileSize - m_header.bodyOffset;
        if (needed <= body) return;
        throw CInputError(m_file,
                          "truncated: the header promises " + std::to_string(m_header.points) + " points (at least " +
                              std::to_string(needed) + " bytes), the file holds " + std::to_string(body) +
                              " behind byte " + std::to_string(m_header.bodyOffset),
                          "write or copy it again");
    }

    std::string_view m_bytes;
    std::string_view m_rest;
    const std::filesystem::path& m_file;
    std::uint64_t m_fileSize;
    std::size_t m_line = 0;
    std::optional<std::uint64_t> m_width;
    std::optional<std::uint64_t> m_height;
    std::optional<std::uint64_t> m_points;
    PcdHeader m_header;
};

} // namespace

const PcdField* PcdHeader::Find(std::string_view field) const
{
    const auto found = std::ranges::find_if(fields, [field](const PcdField& f) { return f.name == field; });
    return found == fields.end() ? nullptr : &*found;
}

PcdHeader ReadPcdHeader(std::string_view bytes, const std::filesystem::path& file,
                        std::optional<std::uint64_t> fileSize)
{
    return CPcdHeaderParser(bytes, file, fileSize.value_or(bytes.size())).Parse();
}

} // namespace Zorvan
