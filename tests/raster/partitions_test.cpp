// SPDX-License-Identifier: MIT
#include "zorvan/raster/cintegerpartition2d.h"
#include "zorvan/raster/crangepartition2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <vector>

namespace {

using namespace Zorvan;

constexpr int iMin = std::numeric_limits<int>::min();
constexpr int iMax = std::numeric_limits<int>::max();

bool isIn(const CellGrid2D::Block& block, const CellGrid2D& grid, std::size_t cell)
{
    const std::size_t column = grid.GetColumn(cell);
    const std::size_t row = grid.GetRow(cell);
    return column >= block.firstColumn && column <= block.lastColumn && row >= block.firstRow && row <= block.lastRow;
}

/// Cells by looking at all rectangles, and neighbours as cells of neighbouring pixels.
void expectAgreesWithSearch(const CIntegerPartition2D& partition, const PixelRect& rect)
{
    std::vector<std::set<std::size_t>> sides(partition.GetSize());
    std::vector<std::set<std::size_t>> corners(partition.GetSize());
    for (int y = rect.ymin - 1; y <= rect.ymax + 1; ++y)
        for (int x = rect.xmin - 1; x <= rect.xmax + 1; ++x) {
            const auto cell = partition.FindCell({x, y});
            const CellGrid2D::Block block = partition.FindCells({x - 3, y, x, y + 2});
            ASSERT_EQ(cell.has_value(), rect.Contains({x, y}));
            for (std::size_t k = 0; k < partition.GetSize(); ++k) {
                const PixelRect r = partition.GetRect(k);
                ASSERT_EQ(cell == k, r.Contains({x, y}));
                ASSERT_EQ(isIn(block, partition, k), r.xmin <= x && r.xmax >= x - 3 && r.ymin <= y + 2 && r.ymax >= y);
            }
            for (int i = 0; i < 9 && cell; ++i) {
                const auto other = partition.FindCell({x + i % 3 - 1, y + i / 3 - 1});
                if (!other || other == cell) continue;
                corners[*cell].insert(*other);
                if (i % 2 == 1) sides[*cell].insert(*other);
            }
        }
    for (std::size_t k = 0; k < partition.GetSize(); ++k)
        for (const auto which : {CellGrid2D::eSides, CellGrid2D::eCorners}) {
            const auto& expected = which == CellGrid2D::eSides ? sides[k] : corners[k];
            ASSERT_EQ(partition.GetNeighbours(k, which), std::vector(expected.begin(), expected.end()));
        }
}

TEST(CIntegerPartition2D, AgreesWithLookingAtEveryCell)
{
    std::mt19937 engine(47110815);
    const auto draw = [&engine](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); };
    for (int i = 0; i < 150; ++i) {
        const PixelRect rect{draw(-20, 0), draw(-20, 5), draw(0, 12), draw(5, 9)};
        const int width = draw(1, 8);
        const auto tiles = CIntegerPartition2D::IntoCellsOf(width, draw(3, 40), rect);
        expectAgreesWithSearch(tiles, rect);
        EXPECT_EQ(tiles.GetRect(0).xmax, std::min(rect.xmin + width - 1, rect.xmax));

        const int columns = draw(1, rect.xmax - rect.xmin + 1);
        const auto parts = CIntegerPartition2D::IntoParts(columns, 1, rect);
        expectAgreesWithSearch(parts, rect);
        ASSERT_EQ(parts.GetColumns(), static_cast<std::size_t>(columns));
        for (std::size_t cell = 0; cell < parts.GetSize(); ++cell) {
            const int more =
                parts.GetRect(cell).xmax - parts.GetRect(cell).xmin + 1 - (rect.xmax - rect.xmin + 1) / columns;
            EXPECT_TRUE(more == 0 || more == 1);
        }
    }
}

TEST(CIntegerPartition2D, CutsAllPixelsOfAnInt)
{
    const PixelRect all{iMin, iMin, iMax, iMax};
    for (const auto& cut :
         {CIntegerPartition2D::IntoCellsOf(iMax, 7, all), CIntegerPartition2D::IntoParts(iMax, 3, all)})
        for (const std::size_t cell : {std::size_t{0}, cut.GetSize() / 2, cut.GetSize() - 1}) {
            const PixelRect rect = cut.GetRect(cell);
            EXPECT_EQ(cut.FindCell({rect.xmin, rect.ymin}), cell);
            EXPECT_EQ(cut.FindCell({rect.xmax, rect.ymax}), cell);
        }
    EXPECT_THROW((void)CIntegerPartition2D::IntoCellsOf(1, 1, all), std::invalid_argument);
    EXPECT_THROW((void)CIntegerPartition2D::IntoParts(10, 1, {1, 0, 9, 0}), std::invalid_argument);
}

TEST(CRangePartition2D, AgreesWithLookingAtEveryCell)
{
    const double values[] = {-HUGE_VAL, -3.0, -1.0, -0.5, 0.0, 0.25, 0.5, 1.0, 8.0, HUGE_VAL, std::nan("")};
    const CRangePartition2D partition({-3.0, 0.0, 0.25, 1.0}, {-0.5, 1.0, HUGE_VAL});
    for (const double px : values)
        for (const double py : values) {
            std::optional<std::size_t> found;
            const CRangePartition2D::Box box{px, py, px + 1.0, py + 0.5};
            for (std::size_t cell = 0; cell < partition.GetSize(); ++cell) {
                const auto [xmin, ymin, xmax, ymax] = partition.GetBox(cell);
                if (xmin <= px && px < xmax && ymin <= py && py < ymax) found = cell;
                const bool isMet = std::max(xmin, px) < std::min(xmax, box.xmax) && px < box.xmax &&
                                   std::max(ymin, py) < std::min(ymax, box.ymax) && py < box.ymax;
                EXPECT_EQ(isIn(partition.FindCells(box), partition, cell), isMet) << px << " " << py;
            }
            EXPECT_EQ(partition.FindCell({px, py}), found) << px << " " << py;
        }
    for (const std::vector<double>& odd : {std::vector<double>{}, {1.0, 1.0}, {0.0, std::nan(""), 1.0}})
        EXPECT_THROW(CRangePartition2D({0.0, 1.0}, odd), std::invalid_argument);
}

} // namespace
