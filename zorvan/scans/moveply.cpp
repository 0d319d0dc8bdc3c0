// SPDX-License-Identifier: MIT
#include "zorvan/scans/movecolumns.h"
#include "zorvan/scans/moveformats.h"
#include "zorvan/scans/moverows.h"
#include "zorvan/scans/plyheader.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::array<std::string_view, 6> roleNames{"x", "y", "z", "nx", "ny", "nz"};

class CPlyMover
{
public:
    CPlyMover(CMoveStream& stream, const CMovement& movement)
        : m_stream(stream),
          m_movement(movement),
          m_head(stream.Peek()),
          m_header(ReadPlyHeader(m_head, stream.File(), stream.Size()))
    {
    }

    void Move()
    {
        const PlyElement* const vertices = m_header.Find("vertex");
        if (vertices == nullptr) m_stream.Fail("the header has no element vertex", "export points or a mesh");
        findRoles(*vertices);
        if (m_header.format == EPlyFormat::Ascii)
            moveText(*vertices);
        else
            moveBinary(*vertices);
        m_stream.CopyRest();
    }

private:
    void findRoles(const PlyElement& vertices)
    {
        for (std::size_t k = 0; k < roleNames.size(); ++k) {
            const int at = vertices.FindScalar(roleNames[k]);
            if (at < 0 && k < 3) m_stream.Fail("the vertices have no x, y and z", "export points or a mesh");
            if (at < 0) return;
            m_columns[k / 3][k % 3] = static_cast<std::size_t>(at);
            m_hasNormals = k == 5;
        }
    }

    /// One entry a line.
    void moveText(const PlyElement& vertices)
    {
        if (std::ranges::any_of(vertices.properties, [](const PlyProperty& p) { return p.isList; })) refuseLists();
        m_stream.Copy(m_header.bodyOffset);
        for (const PlyElement& element : m_header.elements) {
            for (std::uint64_t i = 0; i < element.count; ++i) {
                CMovedLine line(m_stream.TakeLine());
                const auto normals = m_hasNormals ? std::optional(m_columns[1]) : std::nullopt;
                if (&element == &vertices && (line.NumWords() != vertices.properties.size() ||
                                              !MoveColumns(line, m_columns[0], normals, m_movement, m_stream)))
                    m_stream.FailLine("the numbers of one vertex were expected");
                m_stream.Put(line.Text());
            }
            if (&element == &vertices) return;
        }
    }

    void moveBinary(const PlyElement& vertices)
    {
        if (std::ranges::any_of(vertices.properties, [](const PlyProperty& p) { return p.isList; })) refuseLists();
        const bool isFirst = &m_header.elements.front() == &vertices;
        const std::string header(m_stream.Take(m_header.bodyOffset));
        // What stands before the vertices is passed over; the first of them show where they come to.
        std::string before;
        if (!isFirst) before = takeBefore(vertices);
        const CRowMover rows(fieldsOf(vertices), m_header.format == EPlyFormat::BigEndian, m_movement,
                             m_stream.Peek().substr(0, sampleBytes(vertices)));
        m_stream.Put(rows.HasNewTypes() ? withTypes(header, vertices, rows) : header);
        m_stream.Put(before);
        rows.Move(m_stream, vertices.count);
    }

    [[noreturn]] void refuseLists() const { m_stream.Fail("its vertices have lists", "write their points without"); }

    static std::size_t sampleBytes(const PlyElement& vertices)
    {
        return vertices.count * vertices.MinimumBytes(EPlyFormat::LittleEndian);
    }

    [[nodiscard]] std::vector<RowField> fieldsOf(const PlyElement& vertices) const
    {
        std::vector<RowField> fields;
        for (const PlyProperty& property : vertices.properties)
            fields.push_back({ERole::Other, property.type, SizeOf(property.type)});
        for (std::size_t k = 0; k < (m_hasNormals ? 6U : 3U); ++k)
            fields[m_columns[k / 3][k % 3]].eRole = static_cast<ERole>(k);
        return fields;
    }

    /// The elements before the vertices, which are few.
    std::string takeBefore(const PlyElement& vertices)
    {
        constexpr std::size_t uiMost = std::size_t{64} << 20U;
        std::string bytes;
        for (const PlyElement& element : m_header.elements) {
            if (&element == &vertices) break;
            for (std::uint64_t i = 0; i < element.count; ++i) {
                for (const PlyProperty& property : element.properties) takeProperty(property, bytes);
                if (bytes.size() > uiMost)
                    m_stream.Fail("more than 64 MiB stand before its vertices", "write the vertices first");
            }
        }
        return bytes;
    }

    void takeProperty(const PlyProperty& property, std::string& bytes)
    {
        std::uint64_t size = SizeOf(property.type);
        if (property.isList) {
            const std::string_view count = m_stream.Take(SizeOf(property.countType));
            bytes += count;
            size *= countOf(count);
        }
        if (size > m_stream.BytesLeft() || size > CMoveStream::uiBlock)
            m_stream.Fail("a list of " + std::to_string(size) + " bytes", "write or copy it again");
        bytes += m_stream.Take(size);
    }

    [[nodiscard]] std::uint64_t countOf(std::string_view bytes) const
    {
        std::uint64_t count = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const std::size_t at = m_header.format == EPlyFormat::BigEndian ? i : bytes.size() - 1 - i;
            count = count << 8U | static_cast<unsigned char>(bytes[at]);
        }
        return count;
    }

    /// The header with other types of what is moved.
    static std::string withTypes(std::string_view header, const PlyElement& vertices, const CRowMover& rows)
    {
        std::string text;
        bool isInVertices = false;
        std::size_t property = 0;
        while (!header.empty()) {
            const std::size_t end = std::min(header.find('\n'), header.size() - 1) + 1;
            const CMovedLine line(header.substr(0, end));
            if (line.Word(0) == "element") isInVertices = line.Word(1) == "vertex";
            const bool isProperty = isInVertices && line.Word(0) == "property";
            if (isProperty && rows.TypeOf(property) != vertices.properties[property].type)
                text += std::string("property ") + (rows.TypeOf(property) == EPlyType::Float64 ? "double " : "float ") +
                        vertices.properties[property].name + "\n";
            else
                text += header.substr(0, end);
            if (isProperty) ++property;
            header.remove_prefix(end);
        }
        return text;
    }

    CMoveStream& m_stream;
    const CMovement& m_movement;
    std::string_view m_head; ///< until something is taken
    PlyHeader m_header;
    std::array<CMovedLine::Columns, 2> m_columns{}; ///< of points and normals among the properties of a vertex
    bool m_hasNormals = false;
};

} // namespace

std::string MovePly(CMoveStream& stream, const CMovement& movement)
{
    CPlyMover(stream, movement).Move();
    return {};
}

} // namespace Zorvan
