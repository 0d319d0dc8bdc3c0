// SPDX-License-Identifier: MIT
#include "zorvan/scans/xyzreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::string_view sSeparators = ",;";

class CXyzParser
{
public:
    explicit CXyzParser(const std::filesystem::path& file) : m_file(file) {}

    Scan Parse(std::string_view rest)
    {
        while (!rest.empty()) {
            ++m_line;
            parseLine(NextLine(rest));
        }
        if (m_places.empty()) throw CInputError(m_file, "holds no point", "write one point a line: x y z");
        SetPoints(m_scan, m_places);
        return std::move(m_scan);
    }

private:
    void parseLine(std::string_view line)
    {
        std::string_view ahead = line;
        const std::string_view first = NextWord(ahead, sSeparators);
        if (first.empty() || first.front() == '#') return;
        if (m_columns == 0) m_columns = countColumns(line) >= 6 ? 6 : 3;
        std::array<double, 6> values{};
        for (std::size_t i = 0; i < m_columns; ++i) values[i] = takeNumber(line);
        m_places.push_back({values[0], values[1], values[2]});
        if (m_columns == 6) m_scan.normals.emplace_back(ToFloat(values[3]), ToFloat(values[4]), ToFloat(values[5]));
    }

    [[nodiscard]] static std::size_t countColumns(std::string_view line)
    {
        std::size_t count = 0;
        while (!NextWord(line, sSeparators).empty()) ++count;
        return count;
    }

    [[nodiscard]] double takeNumber(std::string_view& line) const
    {
        const std::string_view word = NextWord(line, sSeparators);
        if (word.empty()) fail("fewer than " + std::to_string(m_columns) + " columns");
        const std::optional<double> value = ParseNumber(word);
        if (!value) fail(Quoted(word) + " is not a number");
        return *value;
    }

    [[noreturn]] void fail(const std::string& why) const
    {
        throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why,
                          "write x y z, or x y z nx ny nz, with a point as decimal mark");
    }

    const std::filesystem::path& m_file;
    std::size_t m_line = 0;
    std::size_t m_columns = 0; ///< taken from each line: 3 or 6; 0 before the first
    std::vector<Position> m_places;
    Scan m_scan;
};

} // namespace

Scan ReadXyz(std::string_view bytes, const std::filesystem::path& file) { return CXyzParser(file).Parse(bytes); }

} // namespace Zorvan
