// SPDX-License-Identifier: MIT
#include "zorvan/scans/meshreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <optional>
#include <string>

namespace Zorvan {

namespace {

constexpr std::size_t uiStlHeader = 84; // 80 bytes of text and the number of triangles
constexpr std::size_t uiStlTriangle = 50;

std::uint64_t sizeOfBinaryStl(std::string_view bytes)
{
    return uiStlHeader + uiStlTriangle * std::uint64_t{LoadLittle<std::uint32_t>(bytes, 80)};
}

/// Without what stands behind the last triangle.
std::string_view checkedBinaryStl(std::string_view bytes, const std::filesystem::path& file)
{
    if (bytes.size() < uiStlHeader)
        throw CInputError(file, "truncated: " + std::to_string(bytes.size()) + " bytes are no STL file",
                          "write or copy it again");
    const std::uint64_t size = sizeOfBinaryStl(bytes);
    if (size <= bytes.size()) return bytes.substr(0, size);
    throw CInputError(file,
                      "truncated: the header promises " + std::to_string((size - uiStlHeader) / uiStlTriangle) +
                          " triangles (" + std::to_string(size) + " bytes), the file holds " +
                          std::to_string(bytes.size()),
                      "write or copy it again");
}

void appendTriangle(Scan& scan)
{
    const auto first = static_cast<std::uint32_t>(scan.points.size()) - 3;
    scan.faces.push_back({first, first + 1, first + 2});
}

Scan readBinary(std::string_view bytes)
{
    Scan scan;
    for (std::size_t at = uiStlHeader; at < bytes.size(); at += uiStlTriangle) {
        for (std::size_t corner = 1; corner <= 3; ++corner) { // behind the normal
            const auto number = [&](std::size_t k) { return LoadLittle<float>(bytes, at + 12 * corner + 4 * k); };
            scan.points.emplace_back(number(0), number(1), number(2));
        }
        appendTriangle(scan);
    }
    return scan;
}

/// Solids of facets of loops of vertices, a keyword a line.
class CTextStlParser
{
public:
    explicit CTextStlParser(const std::filesystem::path& file) : m_file(file) {}

    Scan Parse(std::string_view rest)
    {
        while (!rest.empty()) {
            ++m_line;
            parseLine(NextLine(rest));
        }
        if (m_isInSolid) fail("truncated: the solid has no endsolid");
        return std::move(m_scan);
    }

private:
    void parseLine(std::string_view line)
    {
        std::string keyword(NextWord(line));
        std::ranges::transform(keyword, keyword.begin(),
                               [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (keyword == "solid" || keyword == "endsolid")
            m_isInSolid = keyword == "solid";
        else if (keyword == "vertex")
            parseVertex(line);
        else if (keyword == "endloop")
            endLoop();
        else if (!keyword.empty() && keyword != "facet" && keyword != "outer" && keyword != "endfacet")
            fail("unknown keyword " + Quoted(keyword));
    }

    void parseVertex(std::string_view line)
    {
        std::array<float, 3> numbers{};
        for (float& number : numbers) {
            const std::string_view word = NextWord(line);
            const std::optional<double> value = ParseNumber(word);
            if (!value) fail(Quoted(word) + " is not a number");
            number = ToFloat(*value);
        }
        m_loop.emplace_back(numbers[0], numbers[1], numbers[2]);
    }

    /// More than three corners are cut into triangles as a fan.
    void endLoop()
    {
        if (m_loop.size() < 3) fail("a loop of " + std::to_string(m_loop.size()) + " corners");
        for (std::size_t i = 2; i < m_loop.size(); ++i) {
            m_scan.points.insert(m_scan.points.end(), {m_loop[0], m_loop[i - 1], m_loop[i]});
            appendTriangle(m_scan);
        }
        m_loop.clear();
    }

    [[noreturn]] void fail(const std::string& why) const
    {
        throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why, "export the file again");
    }

    const std::filesystem::path& m_file;
    std::size_t m_line = 0;
    bool m_isInSolid = false;
    prereg::Vectors m_loop; ///< corners since the last one ended
    Scan m_scan;
};

} // namespace

// Binary files may begin with "solid" too: their exact size or a zero byte gives them away.
bool IsTextStl(std::string_view bytes, std::uint64_t fileSize)
{
    constexpr std::size_t uiLooked = 512;
    const std::size_t start = std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size());
    if (bytes.substr(start, 5) != "solid") return false;
    if (bytes.substr(0, uiLooked).find('\0') != std::string_view::npos) return false;
    return bytes.size() < uiStlHeader || sizeOfBinaryStl(bytes) != fileSize;
}

Scan ReadStl(std::string_view bytes, const std::filesystem::path& file)
{
    Scan scan =
        IsTextStl(bytes, bytes.size()) ? CTextStlParser(file).Parse(bytes) : readBinary(checkedBinaryStl(bytes, file));
    if (scan.points.empty()) throw CInputError(file, "holds no point", "export points or a mesh");
    ShiftFarPoints(scan);
    return scan;
}

} // namespace Zorvan
