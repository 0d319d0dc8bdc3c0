// SPDX-License-Identifier: MIT
#include "zorvan/raster/cellgrid2d.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace Zorvan {

CellGrid2D::CellGrid2D(std::size_t columns, std::size_t rows) : m_columns(columns), m_rows(rows)
{
    if (columns == 0 || rows == 0 || rows > std::numeric_limits<std::size_t>::max() / columns)
        throw std::invalid_argument("no cell, or too many");
}

void CellGrid2D::requireCell(std::size_t cell) const
{
    if (cell >= GetSize()) throw std::out_of_range("no such cell");
}

std::vector<std::size_t> CellGrid2D::GetNeighbours(std::size_t cell, ENeighbours which) const
{
    requireCell(cell);
    const std::size_t column = GetColumn(cell);
    const std::size_t row = GetRow(cell);
    std::vector<std::size_t> neighbours;
    for (std::size_t r = row > 0 ? row - 1 : 0; r <= std::min(row + 1, m_rows - 1); ++r)
        for (std::size_t c = column > 0 ? column - 1 : 0; c <= std::min(column + 1, m_columns - 1); ++c) {
            const bool isCorner = r != row && c != column;
            const bool isItself = r == row && c == column;
            if (!isItself && (which == eCorners || !isCorner)) neighbours.push_back(GetCell(c, r));
        }
    return neighbours;
}

} // namespace Zorvan
