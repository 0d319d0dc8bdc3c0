// SPDX-License-Identifier: MIT
#include "zorvan/raster/crangepartition2d.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

/// Of a range for each breakpoint but the last. @throws std::invalid_argument
std::size_t countRanges(const std::vector<double>& breakpoints)
{
    // No comparison with NaN holds, so there is none among them.
    const bool isAscending =
        std::adjacent_find(breakpoints.begin(), breakpoints.end(), std::not_fn(std::less<>())) == breakpoints.end();
    if (breakpoints.size() < 2 || !isAscending)
        throw std::invalid_argument("breakpoints are two or more, each above the one before");
    return breakpoints.size() - 1;
}

std::optional<std::size_t> findRange(const std::vector<double>& breakpoints, double value)
{
    if (!(value >= breakpoints.front() && value < breakpoints.back())) return std::nullopt;
    const auto behind = std::upper_bound(breakpoints.begin(), breakpoints.end(), value);
    return static_cast<std::size_t>(behind - breakpoints.begin()) - 1;
}

/// The first and the last range that have a number of [from, to) in common.
std::optional<std::pair<std::size_t, std::size_t>> findRanges(const std::vector<double>& breakpoints, double from,
                                                              double to)
{
    const double begin = std::max(from, breakpoints.front());
    const double end = std::min(to, breakpoints.back());
    if (!(from < to && begin < end)) return std::nullopt;
    const auto last = std::lower_bound(breakpoints.begin(), breakpoints.end(), end);
    return std::pair(*findRange(breakpoints, begin), static_cast<std::size_t>(last - breakpoints.begin()) - 1);
}

} // namespace

CRangePartition2D::CRangePartition2D(std::vector<double> x, std::vector<double> y)
    : CellGrid2D(countRanges(x), countRanges(y)), m_x(std::move(x)), m_y(std::move(y))
{
}

std::optional<std::size_t> CRangePartition2D::FindCell(const PlanePoint& p) const
{
    const auto column = findRange(m_x, p.x);
    const auto row = findRange(m_y, p.y);
    if (!column || !row) return std::nullopt;
    return GetCell(*column, *row);
}

CellGrid2D::Block CRangePartition2D::FindCells(const Box& box) const
{
    const auto columns = findRanges(m_x, box.xmin, box.xmax);
    const auto rows = findRanges(m_y, box.ymin, box.ymax);
    if (!columns || !rows) return {};
    return {columns->first, rows->first, columns->second, rows->second};
}

CRangePartition2D::Box CRangePartition2D::GetBox(std::size_t cell) const
{
    requireCell(cell);
    const std::size_t column = GetColumn(cell);
    const std::size_t row = GetRow(cell);
    return {m_x[column], m_y[row], m_x[column + 1], m_y[row + 1]};
}

} // namespace Zorvan
