// SPDX-License-Identifier: MIT
#include "zorvan/raster/cintegerpartition2d.h"

#include <algorithm>
#include <stdexcept>

namespace Zorvan {

namespace {

std::uint64_t distance(int from, int to) { return static_cast<std::uint64_t>(std::int64_t{to} - from); }

void require(bool holds, const char* what)
{
    if (!holds) throw std::invalid_argument(what);
}

} // namespace

CIntegerPartition2D CIntegerPartition2D::IntoCellsOf(int width, int height, const PixelRect& rect)
{
    require(!rect.IsEmpty(), "the rectangle has no pixel");
    require(width > 0 && height > 0, "a cell needs a width and a height");
    return {Axis{rect.xmin, rect.xmax, static_cast<std::uint64_t>(width), 1},
            Axis{rect.ymin, rect.ymax, static_cast<std::uint64_t>(height), 1}};
}

CIntegerPartition2D CIntegerPartition2D::IntoParts(int columns, int rows, const PixelRect& rect)
{
    require(!rect.IsEmpty(), "the rectangle has no pixel");
    const auto axis = [](int first, int last, int parts) {
        const Axis cut{first, last, distance(first, last) + 1, static_cast<std::uint64_t>(std::max(parts, 1))};
        require(parts > 0 && cut.divisor <= cut.stride, "each part needs a pixel");
        return cut;
    };
    return {axis(rect.xmin, rect.xmax, columns), axis(rect.ymin, rect.ymax, rows)};
}

/// The last cell that begins at the coordinate or before it.
std::size_t CIntegerPartition2D::Axis::CellOf(int coordinate) const
{
    return ((distance(first, coordinate) + 1) * divisor - 1) / stride;
}

int CIntegerPartition2D::Axis::FirstOf(std::size_t cell) const
{
    return static_cast<int>(first + static_cast<std::int64_t>(cell * stride / divisor));
}

int CIntegerPartition2D::Axis::LastOf(std::size_t cell) const
{
    const std::int64_t behind = first + static_cast<std::int64_t>((cell + 1) * stride / divisor);
    return static_cast<int>(std::min<std::int64_t>(behind - 1, last));
}

std::optional<std::size_t> CIntegerPartition2D::FindCell(const PixelCoords& pixel) const
{
    if (!PixelRect{m_x.first, m_y.first, m_x.last, m_y.last}.Contains(pixel)) return std::nullopt;
    return GetCell(m_x.CellOf(pixel.x), m_y.CellOf(pixel.y));
}

CellGrid2D::Block CIntegerPartition2D::FindCells(const PixelRect& rect) const
{
    const PixelRect common{std::max(rect.xmin, m_x.first), std::max(rect.ymin, m_y.first),
                           std::min(rect.xmax, m_x.last), std::min(rect.ymax, m_y.last)};
    if (common.IsEmpty()) return {};
    return {m_x.CellOf(common.xmin), m_y.CellOf(common.ymin), m_x.CellOf(common.xmax), m_y.CellOf(common.ymax)};
}

PixelRect CIntegerPartition2D::GetRect(std::size_t cell) const
{
    requireCell(cell);
    const std::size_t column = GetColumn(cell);
    const std::size_t row = GetRow(cell);
    return {m_x.FirstOf(column), m_y.FirstOf(row), m_x.LastOf(column), m_y.LastOf(row)};
}

} // namespace Zorvan
