// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/raster/cellgrid2d.h"
#include "zorvan/raster/pixelcoords.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Zorvan {

/// A plane cut along x and along y at breakpoints, into cells of any widths and heights.
///
///     const CRangePartition2D bands({0.0, 0.5, 2.0, 10.0}, {-1.0, 0.0, 1.0});
///     if (const auto cell = bands.FindCell({0.7, -0.2})) ++counts[*cell];
///
/// A range begins at its breakpoint and ends before the next, so a point lies in one cell, or in none: before the first
/// breakpoint, at the last or behind it. Breakpoints at the infinities cover the plane.
class ZORVAN_API CRangePartition2D : public CellGrid2D
{
public:
    /// From one corner up to the other, which is no part of it.
    struct Box
    {
        double xmin;
        double ymin;
        double xmax;
        double ymax;
    };

    /// @param x, y  two or more each, ascending, without equal ones
    /// @throws std::invalid_argument  for others
    CRangePartition2D(std::vector<double> x, std::vector<double> y);

    /// The cell of a point; none outside, nor for a coordinate that is not a number. Logarithmic.
    [[nodiscard]] std::optional<std::size_t> FindCell(const PlanePoint& p) const;
    /// The cells that have a point in common with a box.
    [[nodiscard]] Block FindCells(const Box& box) const;
    /// @throws std::out_of_range for a cell that is not there
    [[nodiscard]] Box GetBox(std::size_t cell) const;

    [[nodiscard]] std::span<const double> GetBreakpointsX() const { return m_x; }
    [[nodiscard]] std::span<const double> GetBreakpointsY() const { return m_y; }

private:
    std::vector<double> m_x;
    std::vector<double> m_y;
};

} // namespace Zorvan
