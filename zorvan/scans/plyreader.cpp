// SPDX-License-Identifier: MIT
#include "zorvan/scans/plyreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/plyheader.h"
#include "zorvan/scans/rangegrid.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

namespace Zorvan {

namespace {

/// What is wrong with the body; the place is where the source stands.
class CBodyError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

constexpr const char* sCopyAgain = "the file is damaged: write or copy it again";

/// Values of a binary body, one after another.
template <std::endian Order>
class CBinarySource
{
public:
    CBinarySource(std::string_view bytes, std::size_t offset) : m_bytes(bytes), m_offset(offset) {}

    double Read(EPlyType type)
    {
        switch (type) {
        case EPlyType::Int8:
            return load<std::int8_t>();
        case EPlyType::UInt8:
            return load<std::uint8_t>();
        case EPlyType::Int16:
            return load<std::int16_t>();
        case EPlyType::UInt16:
            return load<std::uint16_t>();
        case EPlyType::Int32:
            return load<std::int32_t>();
        case EPlyType::UInt32:
            return load<std::uint32_t>();
        case EPlyType::Float32:
            return static_cast<double>(load<float>());
        default:
            return load<double>();
        }
    }

    /// A list of three indices below the limit, its length in one byte and each of them in four. Stays where it is when
    /// anything else follows.
    std::optional<Face> ReadTriangle(std::uint32_t limit)
    {
        const std::size_t before = m_offset;
        if (m_bytes.size() - m_offset < sizeof(std::uint8_t) + sizeof(Face)) return std::nullopt;
        const bool isTriangle = load<std::uint8_t>() == 3;
        const Face face{load<std::uint32_t>(), load<std::uint32_t>(), load<std::uint32_t>()};
        if (isTriangle && face[0] < limit && face[1] < limit && face[2] < limit) return face;
        m_offset = before;
        return std::nullopt;
    }

    /// Three floats. Stays where it is when there are fewer.
    std::optional<Vector3> ReadPoint()
    {
        if (m_bytes.size() - m_offset < 3 * sizeof(float)) return std::nullopt;
        return Vector3{load<float>(), load<float>(), load<float>()};
    }

    [[nodiscard]] std::string Where() const { return "byte " + std::to_string(m_offset); }

private:
    template <typename T>
    T load()
    {
        if (m_bytes.size() - m_offset < sizeof(T)) throw CBodyError("truncated in the middle of an entry");
        std::array<char, sizeof(T)> raw{};
        std::memcpy(raw.data(), m_bytes.data() + m_offset, sizeof(T));
        if constexpr (Order != std::endian::native) std::reverse(raw.begin(), raw.end());
        m_offset += sizeof(T);
        return std::bit_cast<T>(raw);
    }

    std::string_view m_bytes;
    std::size_t m_offset;
};

/// Values of a text body. Lines have no meaning beyond separating words.
class CTextSource
{
public:
    CTextSource(std::string_view bytes, std::size_t offset) : m_bytes(bytes), m_rest(bytes.substr(offset)) {}

    double Read(EPlyType type)
    {
        const std::string_view word = NextWord(m_rest, "\n");
        if (word.empty()) throw CBodyError("truncated: a value is missing");
        const std::optional<double> value = ParseNumber(word);
        if (!value) throw CBodyError(Quoted(word) + " is not a number");
        const bool isReal = type == EPlyType::Float32 || type == EPlyType::Float64;
        if (!isReal && *value != std::trunc(*value)) throw CBodyError("a whole number is wanted");
        return *value;
    }

    static std::optional<Face> ReadTriangle(std::uint32_t) { return std::nullopt; }
    static std::optional<Vector3> ReadPoint() { return std::nullopt; }

    [[nodiscard]] std::string Where() const
    {
        const std::string_view read = m_bytes.substr(0, m_bytes.size() - m_rest.size());
        return "line " + std::to_string(1 + std::count(read.begin(), read.end(), '\n'));
    }

private:
    std::string_view m_bytes;
    std::string_view m_rest;
};

/// The columns of a vertex that are taken; -1 where the file has none.
struct VertexColumns
{
    std::array<int, 3> point{};
    std::array<int, 3> normal{};
    std::array<int, 3> colour{};
    int intensity = -1;

    explicit VertexColumns(const PlyElement& vertex)
        : point{vertex.FindScalar("x"), vertex.FindScalar("y"), vertex.FindScalar("z")},
          normal{vertex.FindScalar("nx"), vertex.FindScalar("ny"), vertex.FindScalar("nz")},
          colour{vertex.FindScalar("red"), vertex.FindScalar("green"), vertex.FindScalar("blue")},
          intensity(vertex.FindScalar("intensity"))
    {
        if (!IsComplete(colour))
            colour = {vertex.FindScalar("diffuse_red"), vertex.FindScalar("diffuse_green"),
                      vertex.FindScalar("diffuse_blue")};
        if (intensity < 0) intensity = vertex.FindScalar("scalar_Intensity");
    }

    [[nodiscard]] static bool IsComplete(const std::array<int, 3>& columns)
    {
        return std::all_of(columns.begin(), columns.end(), [](int column) { return column >= 0; });
    }
};

/// A part of a colour as a byte: real numbers run to 1, those of 16 bits to 65535.
std::uint8_t toByte(double value, EPlyType type)
{
    if (type == EPlyType::Float32 || type == EPlyType::Float64) value *= 255.0;
    if (type == EPlyType::UInt16) value /= 257.0;
    return static_cast<std::uint8_t>(value > 0.0 ? std::min(value + 0.5, 255.0) : 0.0); // false for NaN
}

template <class Source>
class CBodyReader
{
public:
    CBodyReader(Source source, const PlyHeader& header)
        : m_source(source), m_header(header), m_numVertices(static_cast<double>(header.Find("vertex")->count))
    {
    }

    Scan Read()
    {
        for (const PlyElement& element : m_header.elements) readElement(element);
        if (m_places.empty())
            ShiftFarPoints(m_scan);
        else
            SetPoints(m_scan, m_places);
        if (m_scan.faces.empty() && !m_grid.cells.empty()) m_scan.faces = FacesFromRangeGrid(m_scan.points, m_grid);
        return std::move(m_scan);
    }

    [[nodiscard]] std::string Where() const { return m_source.Where(); }

private:
    void readElement(const PlyElement& element)
    {
        if (element.name == "vertex")
            readVertices(element);
        else if (element.name == "face")
            readFaces(element);
        else if (element.name == "range_grid")
            readGrid(element);
        else
            skip(element);
    }

    // Leaves the scalars in m_row and the list in column `list` in m_list.
    void readEntry(const PlyElement& element, int list = -1)
    {
        m_row.resize(element.properties.size());
        for (std::size_t i = 0; i < element.properties.size(); ++i) {
            const PlyProperty& property = element.properties[i];
            if (property.isList)
                readList(property, static_cast<int>(i) == list);
            else
                m_row[i] = m_source.Read(property.type);
        }
    }

    void readList(const PlyProperty& property, bool isWanted)
    {
        const double length = m_source.Read(property.countType);
        if (length < 0) throw CBodyError("a list of negative length");
        if (isWanted) m_list.clear();
        // A text may promise any length; it ends long before so many values.
        const auto count = static_cast<std::uint64_t>(std::min(length, 1e10));
        for (std::uint64_t i = 0; i < count; ++i) {
            const double value = m_source.Read(property.type);
            if (isWanted) m_list.push_back(value);
        }
    }

    void readVertices(const PlyElement& element)
    {
        const VertexColumns columns(element);
        const bool hasNormals = VertexColumns::IsComplete(columns.normal);
        const bool hasColours = VertexColumns::IsComplete(columns.colour);
        const bool isDouble = hasMoreDigits(element, columns.point);
        if (isDouble)
            m_places.reserve(element.count);
        else
            m_scan.points.reserve(element.count);
        if (hasNormals) m_scan.normals.reserve(element.count);
        if (hasColours) m_scan.colours.reserve(element.count);
        if (columns.intensity >= 0) m_scan.intensities.reserve(element.count);
        const bool mayBePlain = isPlainPoint(element);
        for (std::uint64_t i = 0; i < element.count; ++i) {
            if (const auto point = mayBePlain ? m_source.ReadPoint() : std::nullopt) {
                m_scan.points.push_back(*point);
                continue;
            }
            readEntry(element);
            if (isDouble)
                m_places.push_back({cell(columns.point[0]), cell(columns.point[1]), cell(columns.point[2])});
            else
                m_scan.points.push_back(takeVector(columns.point));
            if (hasNormals) m_scan.normals.push_back(takeVector(columns.normal));
            if (hasColours) m_scan.colours.push_back(takeColour(element, columns.colour));
            if (columns.intensity >= 0) m_scan.intensities.push_back(ToFloat(cell(columns.intensity)));
        }
    }

    /// Nothing but x, y and z, as many scanners write them.
    [[nodiscard]] static bool isPlainPoint(const PlyElement& vertex)
    {
        static constexpr std::array<std::string_view, 3> names{"x", "y", "z"};
        return std::ranges::equal(vertex.properties, names, [](const PlyProperty& property, std::string_view name) {
            return !property.isList && property.type == EPlyType::Float32 && property.name == name;
        });
    }

    /// Whether coordinates may have more digits than a float; those of a text always may.
    [[nodiscard]] bool hasMoreDigits(const PlyElement& vertex, const std::array<int, 3>& columns) const
    {
        return m_header.format == EPlyFormat::Ascii || std::ranges::any_of(columns, [&](int column) {
                   const EPlyType type = vertex.properties[static_cast<std::size_t>(column)].type;
                   return type == EPlyType::Float64 || type == EPlyType::Int32 || type == EPlyType::UInt32;
               });
    }

    [[nodiscard]] double cell(int column) const { return m_row[static_cast<std::size_t>(column)]; }

    [[nodiscard]] Rgb takeColour(const PlyElement& vertex, const std::array<int, 3>& columns) const
    {
        const auto take = [&](std::size_t i) {
            return toByte(cell(columns[i]), vertex.properties[static_cast<std::size_t>(columns[i])].type);
        };
        return {take(0), take(1), take(2)};
    }

    [[nodiscard]] Vector3 takeVector(const std::array<int, 3>& columns) const
    {
        return {ToFloat(cell(columns[0])), ToFloat(cell(columns[1])), ToFloat(cell(columns[2]))};
    }

    void readFaces(const PlyElement& element)
    {
        const int list = std::max(element.FindList("vertex_indices"), element.FindList("vertex_index"));
        if (list < 0) return skip(element);
        const bool mayBePlain = isPlain(element);
        if (mayBePlain) m_scan.faces.reserve(element.count);
        const auto limit = static_cast<std::uint32_t>(std::min(m_numVertices, 2147483648.0)); // of either sign
        for (std::uint64_t i = 0; i < element.count; ++i) {
            if (const auto triangle = mayBePlain ? m_source.ReadTriangle(limit) : std::nullopt) {
                m_scan.faces.push_back(*triangle);
                continue;
            }
            readEntry(element, list);
            for (std::size_t k = 2; k < m_list.size(); ++k)
                m_scan.faces.push_back({takeIndex(m_list[0]), takeIndex(m_list[k - 1]), takeIndex(m_list[k])});
        }
    }

    /// Faces as nearly all files hold them: nothing but a list of indices. They are as many as all else of a file.
    [[nodiscard]] static bool isPlain(const PlyElement& face)
    {
        if (face.properties.size() != 1) return false;
        const PlyProperty& list = face.properties.front();
        return (list.countType == EPlyType::UInt8 || list.countType == EPlyType::Int8) &&
               (list.type == EPlyType::Int32 || list.type == EPlyType::UInt32);
    }

    // Vertices may stand behind the faces, so the count of the header decides.
    [[nodiscard]] std::uint32_t takeIndex(double value) const
    {
        if (!(value >= 0.0) || !(value < m_numVertices))
            throw CBodyError("index " + ToText(value, 10) + " of " + ToText(m_numVertices, 10) + " vertices");
        return static_cast<std::uint32_t>(value);
    }

    void readGrid(const PlyElement& element)
    {
        const int list = element.FindList("vertex_indices");
        if (list < 0 || element.count == 0) return skip(element);
        if (m_header.gridColumns * m_header.gridRows != element.count)
            throw CBodyError("num_cols times num_rows is not the number of cells of the range grid");
        m_grid = {m_header.gridColumns, m_header.gridRows, {}};
        m_grid.cells.reserve(element.count);
        for (std::uint64_t i = 0; i < element.count; ++i) {
            readEntry(element, list);
            m_grid.cells.push_back(m_list.empty() ? -1 : static_cast<std::int32_t>(takeIndex(m_list.front())));
        }
    }

    void skip(const PlyElement& element)
    {
        if (element.properties.empty()) return;
        for (std::uint64_t i = 0; i < element.count; ++i) readEntry(element);
    }

    Source m_source;
    const PlyHeader& m_header;
    double m_numVertices;
    std::vector<double> m_row;
    std::vector<double> m_list;
    std::vector<Position> m_places; ///< of the vertices, when they may have more digits than a float
    RangeGrid m_grid;
    Scan m_scan;
};

template <class Source>
Scan readBody(std::string_view bytes, const PlyHeader& header, const std::filesystem::path& file)
{
    CBodyReader<Source> reader(Source(bytes, header.bodyOffset), header);
    try {
        return reader.Read();
    } catch (const CBodyError& error) {
        throw CInputError(file, reader.Where() + ": " + error.what(), sCopyAgain);
    }
}

} // namespace

Scan ReadPly(std::string_view bytes, const std::filesystem::path& file)
{
    const PlyHeader header = ReadPlyHeader(bytes, file);
    const PlyElement* const vertex = header.Find("vertex");
    if (vertex == nullptr || !VertexColumns::IsComplete(VertexColumns(*vertex).point))
        throw CInputError(file, "the header has no element \"vertex\" with x, y and z", "export points or a mesh");
    switch (header.format) {
    case EPlyFormat::Ascii:
        return readBody<CTextSource>(bytes, header, file);
    case EPlyFormat::LittleEndian:
        return readBody<CBinarySource<std::endian::little>>(bytes, header, file);
    default:
        return readBody<CBinarySource<std::endian::big>>(bytes, header, file);
    }
}

} // namespace Zorvan
