// SPDX-License-Identifier: MIT
#include "zorvan/features/latticemap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using prereg::LatticeCell;
using testing::ElementsAre;

TEST(TLatticeMap, KeepsRecordsInTheOrderInWhichCellsWereMet)
{
    for (const std::size_t reserved : {0U, 2U, 100U}) {
        prereg::TLatticeMap<int> map(1.0F);
        map.Reserve(reserved);
        for (const int x : {5, 5, -3, 5, 7, 7, -3}) map.At(LatticeCell{x, 0, 0}) += x;
        EXPECT_THAT(map.Records(), ElementsAre(15, -6, 14)) << "room for " << reserved;
        for (int y = 1; y < 40; ++y) map.At(LatticeCell{0, y, 0}) = y;
        EXPECT_EQ(map.At(LatticeCell{0, 39, 0}), 39);
        EXPECT_EQ(map.Size(), 42U);
    }
}

TEST(TLatticeMap, KnowsNoCellThatWasDropped)
{
    prereg::TLatticeMap<int> map(1.0F);
    const LatticeCell cells[] = {{1, 0, 0}, {2, 0, 0}, {3, 0, 0}};
    for (const LatticeCell& cell : cells) map.At(cell) = cell.x;
    EXPECT_EQ(map.At(cells[1]), 2); // asked for last
    map.Filter([](const LatticeCell& cell, int) { return cell.x != 2; });
    EXPECT_EQ(map.Find(cells[1]), nullptr);
    EXPECT_EQ(map.At(cells[1]), 0);
    EXPECT_THAT(map.Records(), ElementsAre(1, 3, 0));
    EXPECT_EQ(map.At(cells[2]), 3);
    map.Clear();
    EXPECT_EQ(map.At(cells[2]), 0);
    EXPECT_EQ(map.Size(), 1U);
}

} // namespace
