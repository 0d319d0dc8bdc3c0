// SPDX-License-Identifier: MIT
#include "zorvan/scans/ptxreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/pointcolumns.h"
#include "zorvan/scans/rangegrid.h"
#include "zorvan/scans/textlines.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::uint64_t uiMostCells = 2147483647; // indices are 31 bits wide in the search tree
constexpr std::size_t uiPointBytes = 6;           // the shortest line: "0 0 0\n"

class CPtxParser
{
public:
    CPtxParser(std::string_view bytes, const std::filesystem::path& file) : m_lines(bytes, file), m_file(file) {}

    std::vector<Scan> Parse()
    {
        std::vector<Scan> scans;
        do {
            Scan scan = parseScan();
            scan.number = ++m_number;
            if (!scan.points.empty()) scans.push_back(std::move(scan));
        } while (!m_lines.IsAtEnd());
        if (scans.empty()) throw CInputError(m_file, "holds no point", "give a scan of a surface");
        return scans;
    }

private:
    Scan parseScan()
    {
        const std::uint64_t columns = m_lines.Count();
        const std::uint64_t rows = m_lines.Count();
        Scan scan;
        const FramePose scanner = parseScanner();
        scan.pose = parsePose();
        if (columns * rows > uiMostCells || columns * rows * uiPointBytes > m_lines.BytesLeft() + 1)
            m_lines.Fail("truncated: " + std::to_string(columns) + " columns of " + std::to_string(rows) +
                         " points are promised, and " + std::to_string(m_lines.BytesLeft()) + " bytes are left");
        if (columns * rows == 0) return scan;
        const RangeGrid grid = parsePoints(scan, columns, rows);
        scan.faces = FacesFromRangeGrid(scan.points, grid);
        scan.sensor = Compose(Inverse(*scan.pose), scanner);
        for (std::size_t axis = 0; axis < 3; ++axis) scan.sensor->position[axis] -= scan.shift[axis];
        return scan;
    }

    Position three()
    {
        const std::span<const double> numbers = m_lines.Numbers(3);
        return {numbers[0], numbers[1], numbers[2]};
    }

    FramePose parseScanner()
    {
        std::array<Position, 4> lines{};
        for (Position& line : lines) line = three();
        const auto scanner = PtxScanner(lines);
        if (!scanner) m_lines.Fail("the position of the scanner is not finite");
        return *scanner;
    }

    /// Four lines of four numbers for points that stand left of the matrix: the last line is the shift.
    FramePose parsePose()
    {
        std::array<Position, 3> rows{};
        for (std::size_t column = 0; column < 3; ++column) {
            const std::span<const double> numbers = m_lines.Numbers(4);
            for (std::size_t row = 0; row < 3; ++row) rows[row][column] = numbers[row];
        }
        const std::span<const double> shift = m_lines.Numbers(4);
        const auto pose = FromRows(rows, {shift[0], shift[1], shift[2]});
        if (!pose) m_lines.Fail("the pose above is no rotation (within 0.001)", "export the scan without a scale");
        return *pose;
    }

    /// Column by column, each from the lowest row up.
    RangeGrid parsePoints(Scan& scan, std::uint64_t columns, std::uint64_t rows)
    {
        RangeGrid grid{columns, rows, std::vector<std::int32_t>(columns * rows, -1)};
        std::vector<Position> places;
        CPointColumns attributes;
        for (std::uint64_t column = 0; column < columns; ++column) {
            for (std::uint64_t row = 0; row < rows; ++row) {
                const std::span<const double> numbers = m_lines.Numbers(3);
                const Position place{numbers[0], numbers[1], numbers[2]};
                if (place == Position{}) continue;
                grid.cells[row * columns + column] = static_cast<std::int32_t>(places.size());
                places.push_back(place);
                attributes.Take(scan, numbers.subspan(3), m_lines);
            }
        }
        SetPoints(scan, places);
        return grid;
    }

    std::size_t m_number = 0; ///< of scans so far
    CTextLines m_lines;
    const std::filesystem::path& m_file;
};

} // namespace

std::optional<FramePose> PtxScanner(const std::array<Position, 4>& lines)
{
    std::array<Position, 3> rows{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t k = 0; k < 3; ++k) rows[k][axis] = lines[axis + 1][k];
    }
    if (const auto scanner = FromRows(rows, lines[0])) return scanner;
    return Normalized(FramePose{lines[0]});
}

std::vector<Scan> ReadPtx(std::string_view bytes, const std::filesystem::path& file)
{
    return CPtxParser(bytes, file).Parse();
}

} // namespace Zorvan
