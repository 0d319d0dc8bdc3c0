// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/cellgrid2d.h"
#include "zorvan/raster/pixelcoords.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Zorvan {

/// A rectangle of pixels cut into cells of whole pixels, so that each pixel lies in one of them.
///
///     const auto tiles = CIntegerPartition2D::IntoCellsOf(64, 64, {0, 0, width - 1, height - 1});
///     for (std::size_t cell = 0; cell < tiles.GetSize(); ++cell) work(tiles.GetRect(cell));
///
/// Nothing is stored for a cell: each question costs a division. All pixels of an int are allowed.
class ZORVAN_API CIntegerPartition2D : public CellGrid2D
{
public:
    /// Cells of one size; those at the right and at the bottom have what is left.
    /// @throws std::invalid_argument  for an empty rectangle, or a size below 1
    [[nodiscard]] static CIntegerPartition2D IntoCellsOf(int width, int height, const PixelRect& rect);
    /// So many cells, whose widths differ by a pixel at most, and so do their heights.
    /// @throws std::invalid_argument  for an empty rectangle, a number below 1, or more cells than pixels along a side
    [[nodiscard]] static CIntegerPartition2D IntoParts(int columns, int rows, const PixelRect& rect);

    /// The cell of a pixel; none outside of the rectangle.
    [[nodiscard]] std::optional<std::size_t> FindCell(const PixelCoords& pixel) const;
    /// The cells that have a pixel in common with a rectangle.
    [[nodiscard]] Block FindCells(const PixelRect& rect) const;
    /// @throws std::out_of_range for a cell that is not there
    [[nodiscard]] PixelRect GetRect(std::size_t cell) const;

private:
    /// Cell i of a row or column begins at the whole part of i * stride / divisor.
    struct Axis
    {
        int first;
        int last;
        std::uint64_t stride;
        std::uint64_t divisor;

        [[nodiscard]] std::size_t CellOf(int coordinate) const;
        [[nodiscard]] std::size_t Count() const { return CellOf(last) + 1; }
        [[nodiscard]] int FirstOf(std::size_t cell) const;
        [[nodiscard]] int LastOf(std::size_t cell) const;
    };

    CIntegerPartition2D(const Axis& x, const Axis& y) : CellGrid2D(x.Count(), y.Count()), m_x(x), m_y(y) {}

    Axis m_x;
    Axis m_y;
};

} // namespace Zorvan
