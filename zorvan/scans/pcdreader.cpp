// SPDX-License-Identifier: MIT
#include "zorvan/scans/pcdreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/lzf.h"
#include "zorvan/scans/pcdheader.h"
#include "zorvan/scans/rangegrid.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr const char* sCopyAgain = "the file is damaged: write or copy it again";

/// The fields of a point that are taken; null where the file has none.
struct TakenFields
{
    std::array<const PcdField*, 3> point{};
    std::array<const PcdField*, 3> normal{};
    const PcdField* colour = nullptr;
    const PcdField* intensity = nullptr;

    explicit TakenFields(const PcdHeader& header)
        : point{header.Find("x"), header.Find("y"), header.Find("z")},
          normal{header.Find("normal_x"), header.Find("normal_y"), header.Find("normal_z")},
          colour(header.Find("rgb")),
          intensity(header.Find("intensity"))
    {
        if (colour == nullptr) colour = header.Find("rgba");
        if (colour != nullptr && (colour->count != 1 || colour->size != 4)) colour = nullptr;
        if (!AreSingle(normal)) normal = {};
        if (intensity != nullptr && intensity->count != 1) intensity = nullptr;
    }

    [[nodiscard]] static bool AreSingle(const std::array<const PcdField*, 3>& fields)
    {
        return std::ranges::all_of(fields, [](const PcdField* f) { return f != nullptr && f->count == 1; });
    }
};

/// Values of the binary forms: those of one point after another, or those of one field after another.
class CBinaryPoints
{
public:
    CBinaryPoints(const PcdHeader& header, std::string_view body, bool isByField)
        : m_header(header), m_body(body), m_isByField(isByField)
    {
    }

    void NextPoint() { ++m_next; }

    [[nodiscard]] double Read(const PcdField& field) const
    {
        const std::size_t at = offsetOf(field);
        if (field.eType == EPcdType::Float)
            return field.size == 8 ? LoadLittle<double>(m_body, at)
                                   : static_cast<double>(LoadLittle<float>(m_body, at));
        const bool isSigned = field.eType == EPcdType::Signed;
        switch (field.size) {
        case 1:
            return isSigned ? LoadLittle<std::int8_t>(m_body, at) : LoadLittle<std::uint8_t>(m_body, at);
        case 2:
            return isSigned ? LoadLittle<std::int16_t>(m_body, at) : LoadLittle<std::uint16_t>(m_body, at);
        case 4:
            return isSigned ? LoadLittle<std::int32_t>(m_body, at) : LoadLittle<std::uint32_t>(m_body, at);
        default:
            return isSigned ? static_cast<double>(LoadLittle<std::int64_t>(m_body, at))
                            : static_cast<double>(LoadLittle<std::uint64_t>(m_body, at));
        }
    }

    /// The four bytes of a colour, whatever the type.
    [[nodiscard]] std::uint32_t ReadColour(const PcdField& field) const
    {
        return LoadLittle<std::uint32_t>(m_body, offsetOf(field));
    }

private:
    [[nodiscard]] std::size_t offsetOf(const PcdField& field) const
    {
        const std::uint64_t point = m_next - 1;
        if (m_isByField) return field.offset * m_header.points + point * field.size * field.count;
        return point * m_header.pointBytes + field.offset;
    }

    const PcdHeader& m_header;
    std::string_view m_body;
    bool m_isByField;
    std::uint64_t m_next = 0;
};

/// Values of the text form, a point a line.
class CTextPoints
{
public:
    CTextPoints(const PcdHeader& header, std::string_view body, const std::filesystem::path& file)
        : m_rest(body), m_file(file), m_line(header.bodyLine - 1), m_words(header.columns)
    {
    }

    void NextPoint()
    {
        std::string_view line;
        do {
            if (m_rest.empty()) fail("truncated: a point is missing");
            ++m_line;
            line = NextLine(m_rest);
            m_words[0] = NextWord(line);
        } while (m_words[0].empty());
        for (std::size_t i = 1; i < m_words.size(); ++i) m_words[i] = NextWord(line);
        if (m_words.back().empty()) fail("fewer than " + std::to_string(m_words.size()) + " values");
    }

    [[nodiscard]] double Read(const PcdField& field) const
    {
        const std::string_view word = m_words[field.column];
        const std::optional<double> value = ParseNumber(word);
        if (!value) fail(Quoted(word) + " is not a number");
        return *value;
    }

    /// A whole number, or the bytes of a float as its value.
    [[nodiscard]] std::uint32_t ReadColour(const PcdField& field) const
    {
        const double value = Read(field);
        if (field.eType == EPcdType::Float) return std::bit_cast<std::uint32_t>(ToFloat(value));
        if (!(std::abs(value) < 0x1p32)) fail("a colour takes 32 bits");
        return static_cast<std::uint32_t>(static_cast<std::int64_t>(value));
    }

private:
    [[noreturn]] void fail(const std::string& why) const
    {
        throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why, sCopyAgain);
    }

    std::string_view m_rest;
    const std::filesystem::path& m_file;
    std::size_t m_line;
    std::vector<std::string_view> m_words;
};

template <class Points>
Scan takePoints(Points source, const PcdHeader& header)
{
    const TakenFields fields(header);
    Scan scan;
    std::vector<Position> places;
    places.reserve(header.points);
    const auto three = [&](const std::array<const PcdField*, 3>& f) {
        return Position{source.Read(*f[0]), source.Read(*f[1]), source.Read(*f[2])};
    };
    for (std::uint64_t i = 0; i < header.points; ++i) {
        source.NextPoint();
        places.push_back(three(fields.point));
        if (fields.normal[0] != nullptr) {
            const Position n = three(fields.normal);
            scan.normals.emplace_back(ToFloat(n[0]), ToFloat(n[1]), ToFloat(n[2]));
        }
        if (fields.colour != nullptr) {
            const std::uint32_t bits = source.ReadColour(*fields.colour);
            scan.colours.push_back({static_cast<std::uint8_t>(bits >> 16U), static_cast<std::uint8_t>(bits >> 8U),
                                    static_cast<std::uint8_t>(bits)});
        }
        if (fields.intensity != nullptr) scan.intensities.push_back(ToFloat(source.Read(*fields.intensity)));
    }
    SetPoints(scan, places);
    return scan;
}

Scan readBody(const PcdHeader& header, std::string_view body, const std::filesystem::path& file)
{
    switch (header.eData) {
    case EPcdData::Text:
        return takePoints(CTextPoints(header, body, file), header);
    case EPcdData::Binary:
        return takePoints(CBinaryPoints(header, body, false), header);
    default:
        return takePoints(CBinaryPoints(header, ExpandPcd(header, body, file), true), header);
    }
}

/// Rows run down in the file, and up in the grid.
std::vector<Face> facesOf(const PcdHeader& header, const prereg::Vectors& points)
{
    RangeGrid grid{header.width, header.height, {}};
    grid.cells.reserve(points.size());
    for (std::size_t row = header.height; row-- > 0;) {
        for (std::size_t i = row * header.width; i < (row + 1) * header.width; ++i) {
            const Vector3& p = points[i];
            const bool isThere = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
            grid.cells.push_back(isThere ? static_cast<std::int32_t>(i) : -1);
        }
    }
    return FacesFromRangeGrid(points, grid);
}

} // namespace

std::string ExpandPcd(const PcdHeader& header, std::string_view body, const std::filesystem::path& file)
{
    const auto fail = [&](const std::string& why) {
        throw CInputError(file, "byte " + std::to_string(header.bodyOffset) + ": " + why, sCopyAgain);
    };
    const std::size_t compressed = LoadLittle<std::uint32_t>(body, 0);
    const std::size_t size = LoadLittle<std::uint32_t>(body, 4);
    if (size / header.pointBytes != header.points || size % header.pointBytes != 0)
        fail("the compressed data promise " + std::to_string(size) + " bytes, the header " +
             std::to_string(header.points) + " points of " + std::to_string(header.pointBytes));
    body.remove_prefix(8);
    if (compressed > body.size())
        fail("truncated: " + std::to_string(compressed) + " bytes of compressed data are promised, " +
             std::to_string(body.size()) + " are there");
    std::optional<std::string> points = ExpandLzf(body.substr(0, compressed), size);
    if (!points) fail("the compressed data do not make " + std::to_string(size) + " bytes");
    return *std::move(points);
}

Scan ReadPcd(std::string_view bytes, const std::filesystem::path& file)
{
    const PcdHeader header = ReadPcdHeader(bytes, file);
    if (!TakenFields::AreSingle(TakenFields(header).point))
        throw CInputError(file, "the header has no fields x, y and z with one value each", "export points");
    Scan scan = readBody(header, bytes.substr(header.bodyOffset), file);
    if (header.IsImage()) scan.faces = facesOf(header, scan.points);
    if (!header.sensor) return scan;
    scan.sensor = header.sensor;
    for (std::size_t axis = 0; axis < 3; ++axis) scan.sensor->position[axis] -= scan.shift[axis];
    return scan;
}

} // namespace Zorvan
