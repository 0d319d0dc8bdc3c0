// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <vector>

namespace Zorvan {

/// Cells in columns and rows, numbered row by row; what the partitions of a plane have in common.
class ZORVAN_API CellGrid2D
{
public:
    enum ENeighbours
    {
        eSides,  ///< up to four cells
        eCorners ///< and those that share only a corner: up to eight
    };

    /// Cells from one corner to the other, both inclusive; none when a first is behind its last.
    struct Block
    {
        std::size_t firstColumn = 1;
        std::size_t firstRow = 1;
        std::size_t lastColumn = 0;
        std::size_t lastRow = 0;

        [[nodiscard]] bool operator==(const Block&) const = default;
        [[nodiscard]] bool IsEmpty() const { return firstColumn > lastColumn || firstRow > lastRow; }
    };

    /// @throws std::invalid_argument  for no cell, and for more than a std::size_t counts
    CellGrid2D(std::size_t columns, std::size_t rows);

    [[nodiscard]] std::size_t GetColumns() const { return m_columns; }
    [[nodiscard]] std::size_t GetRows() const { return m_rows; }
    [[nodiscard]] std::size_t GetSize() const { return m_columns * m_rows; }

    [[nodiscard]] std::size_t GetCell(std::size_t column, std::size_t row) const { return row * m_columns + column; }
    [[nodiscard]] std::size_t GetColumn(std::size_t cell) const { return cell % m_columns; }
    [[nodiscard]] std::size_t GetRow(std::size_t cell) const { return cell / m_columns; }

    /// By ascending number. @throws std::out_of_range for a cell that is not there
    [[nodiscard]] std::vector<std::size_t> GetNeighbours(std::size_t cell, ENeighbours which) const;

protected:
    /// @throws std::out_of_range for a cell that is not there
    void requireCell(std::size_t cell) const;

private:
    std::size_t m_columns;
    std::size_t m_rows;
};

} // namespace Zorvan
