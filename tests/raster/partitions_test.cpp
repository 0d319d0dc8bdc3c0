// SPDX-License-Identifier: MIT
#include "zorvan/raster/cintegerpartition2d.h"
#include "zorvan/raster/crangepartition2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using namespace Zorvan;

constexpr int iMin = std::numeric_limits<int>::min();
constexpr int iMax = std::numeric_limits<int>::max();

bool isIn(const CellGrid2D::Block& block, std::size_t column, std::size_t row)
{
    return column >= block.firstColumn && column <= block.lastColumn && row >= block.firstRow && row <= block.lastRow;
}

bool meet(const PixelRect& a, const PixelRect& b)
{
    return a.xmin <= b.xmax && b.xmin <= a.xmax && a.ymin <= b.ymax && b.ymin <= a.ymax;
}

/// The only cell whose rectangle has the pixel.
std::optional<std::size_t> searchCell(const CIntegerPartition2D& partition, const PixelCoords& pixel)
{
    std::optional<std::size_t> found;
    for (std::size_t cell = 0; cell < partition.GetSize(); ++cell)
        if (partition.GetRect(cell).Contains(pixel)) {
            EXPECT_FALSE(found) << "two cells have (" << pixel.x << ", " << pixel.y << ")";
            found = cell;
        }
    return found;
}

void expectAgreesWithSearch(const CIntegerPartition2D& partition, const PixelRect& rect)
{
    for (int y = rect.ymin - 1; y <= rect.ymax + 1; ++y)
        for (int x = rect.xmin - 1; x <= rect.xmax + 1; ++x) {
            ASSERT_EQ(partition.FindCell({x, y}), searchCell(partition, {x, y}));
            ASSERT_EQ(partition.FindCell({x, y}).has_value(), rect.Contains({x, y}));
        }
    for (std::size_t a = 0; a < partition.GetSize(); ++a) {
        const PixelRect r = partition.GetRect(a);
        std::vector<std::size_t> sides;
        std::vector<std::size_t> corners;
        for (std::size_t b = 0; b < partition.GetSize(); ++b) {
            const PixelRect o = partition.GetRect(b);
            const bool isSide =
                meet({r.xmin - 1, r.ymin, r.xmax + 1, r.ymax}, o) || meet({r.xmin, r.ymin - 1, r.xmax, r.ymax + 1}, o);
            if (a != b && isSide) sides.push_back(b);
            if (a != b && meet({r.xmin - 1, r.ymin - 1, r.xmax + 1, r.ymax + 1}, o)) corners.push_back(b);
            const PixelRect wide{r.xmin - 2, r.ymin - 1, r.xmax + 3, r.ymax};
            ASSERT_EQ(isIn(partition.FindCells(wide), partition.GetColumn(b), partition.GetRow(b)), meet(wide, o));
        }
        ASSERT_EQ(partition.GetNeighbours(a, CellGrid2D::eSides), sides);
        ASSERT_EQ(partition.GetNeighbours(a, CellGrid2D::eCorners), corners);
    }
}

TEST(CIntegerPartition2D, AgreesWithLookingAtEveryCell)
{
    std::mt19937 engine(47110815);
    const auto draw = [&engine](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(engine); };
    for (int i = 0; i < 150; ++i) {
        const PixelRect rect{draw(-20, 0), draw(-20, 5), draw(0, 12), draw(5, 9)};
        const int width = draw(1, 8);
        const int height = draw(3, 40);
        const auto tiles = CIntegerPartition2D::IntoCellsOf(width, height, rect);
        expectAgreesWithSearch(tiles, rect);
        EXPECT_EQ(tiles.GetRect(0).xmax, std::min(rect.xmin + width - 1, rect.xmax));

        const int columns = draw(1, rect.xmax - rect.xmin + 1);
        const auto parts = CIntegerPartition2D::IntoParts(columns, 1, rect);
        expectAgreesWithSearch(parts, rect);
        ASSERT_EQ(parts.GetColumns(), static_cast<std::size_t>(columns));
        for (std::size_t cell = 0; cell < parts.GetSize(); ++cell) {
            const int pixels = parts.GetRect(cell).xmax - parts.GetRect(cell).xmin + 1;
            const int least = (rect.xmax - rect.xmin + 1) / columns;
            EXPECT_TRUE(pixels == least || pixels == least + 1);
        }
    }
}

TEST(CIntegerPartition2D, CutsAllPixelsOfAnInt)
{
    const PixelRect all{iMin, iMin, iMax, iMax};
    for (const auto& partition :
         {CIntegerPartition2D::IntoCellsOf(iMax, 7, all), CIntegerPartition2D::IntoParts(iMax, 3, all)}) {
        const std::size_t last = partition.GetSize() - 1;
        for (const std::size_t cell : {std::size_t{0}, last / 2, last}) {
            const PixelRect rect = partition.GetRect(cell);
            EXPECT_EQ(partition.FindCell({rect.xmin, rect.ymin}), cell);
            EXPECT_EQ(partition.FindCell({rect.xmax, rect.ymax}), cell);
        }
        EXPECT_EQ(partition.FindCell({iMax, iMax}), last);
    }
    EXPECT_THROW((void)CIntegerPartition2D::IntoCellsOf(1, 1, all), std::invalid_argument);
    EXPECT_THROW((void)CIntegerPartition2D::IntoParts(10, 1, {1, 0, 9, 0}), std::invalid_argument);
    EXPECT_THROW((void)CIntegerPartition2D::IntoParts(1, 1, {1, 0, 0, 0}), std::invalid_argument);
}

TEST(CRangePartition2D, AgreesWithLookingAtEveryCell)
{
    const std::vector<double> values{-HUGE_VAL, -3.0, -1.0, -0.5, 0.0, 0.25, 0.5, 1.0, 8.0, HUGE_VAL, std::nan("")};
    const auto between = [](double lo, double hi, double v) { return lo <= v && v < hi; };
    for (const bool isBounded : {true, false}) {
        const std::vector<double> x = isBounded ? std::vector{-3.0, 0.0, 0.25, 1.0} : std::vector{-HUGE_VAL, HUGE_VAL};
        const CRangePartition2D partition(x, {-0.5, 1.0, HUGE_VAL});
        for (const double px : values)
            for (const double py : values) {
                std::optional<std::size_t> found;
                const CellGrid2D::Block block = partition.FindCells({px, py, px + 1.0, py + 0.5});
                for (std::size_t cell = 0; cell < partition.GetSize(); ++cell) {
                    const auto [xmin, ymin, xmax, ymax] = partition.GetBox(cell);
                    if (between(xmin, xmax, px) && between(ymin, ymax, py)) found = cell;
                    const bool isMet = std::max(xmin, px) < std::min(xmax, px + 1.0) && px < px + 1.0 &&
                                       std::max(ymin, py) < std::min(ymax, py + 0.5) && py < py + 0.5;
                    EXPECT_EQ(isIn(block, partition.GetColumn(cell), partition.GetRow(cell)), isMet) << px << " " << py;
                }
                EXPECT_EQ(partition.FindCell({px, py}), found) << px << " " << py;
            }
    }
    for (const std::vector<double>& odd : {std::vector<double>{}, {1.0}, {1.0, 1.0}, {0.0, std::nan(""), 1.0}})
        EXPECT_THROW(CRangePartition2D({0.0, 1.0}, odd), std::invalid_argument);
}

} // namespace
