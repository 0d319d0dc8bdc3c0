// SPDX-License-Identifier: MIT
#include "zorvan/features/cdirtymap.h"

#include <gtest/gtest.h>

namespace {

using prereg::CDirtyMap;

TEST(CDirtyMap, TellsCellsWhoseNumberOfPointsChanged)
{
    CDirtyMap map(2.0);
    const auto insert = [&map](float x, int times) {
        for (int i = 0; i < times; ++i) map.insert({x, 0, 0});
    };
    insert(0.9F, 2); // cell 0, from -1 to 1
    insert(4.2F, 1); // cell 2, from 3 to 5
    auto boxes = map.dirty();
    ASSERT_EQ(boxes.size(), 2U);
    EXPECT_EQ(boxes[0].low, (kdtree::Vector<3>(-1, -1, -1)));
    EXPECT_EQ(boxes[1].high, (kdtree::Vector<3>(5, 1, 1)));

    insert(-0.5F, 2); // moved inside its cell: not seen
    insert(4.2F, 1);
    EXPECT_TRUE(map.dirty().empty());
    EXPECT_EQ(map.cells(), 2U);

    insert(0.0F, 3); // one more, and the other cell vanished
    EXPECT_EQ(map.dirty().size(), 2U);
    EXPECT_EQ(map.cells(), 1U);
    insert(0.0F, 3);
    insert(4.2F, 1);
    boxes = map.dirty();
    ASSERT_EQ(boxes.size(), 1U) << "the vanished cell came back";
    EXPECT_EQ(boxes[0].low.x, 3);

    map.reset();
    EXPECT_EQ(map.cells(), 0U);
    EXPECT_TRUE(map.dirty().empty());
}

TEST(CDirtyMap, KeepsManyCellsApart)
{
    CDirtyMap map(1.0);
    for (int round = 0; round < 2; ++round) {
        for (int x = -20; x < 20; ++x) {
            for (int y = -20; y < 20; ++y) {
                for (int z = -3; z < 3; ++z) {
                    map.insert({static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)});
                }
            }
        }
        EXPECT_EQ(map.cells(), 9600U);
        EXPECT_EQ(map.dirty().size(), round == 0 ? 9600U : 0U);
    }
}

} // namespace
