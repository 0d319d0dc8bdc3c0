// SPDX-License-Identifier: MIT
#include "zorvan/workflow/scancopies.h"

#include <gtest/gtest.h>

namespace {

using Points = std::vector<kdtree::Vector<3>>;

TEST(ScanCopies, AreThoseThatDifferInNothing)
{
    const Points points{{1, 2, 3}, {4, 5, 6}};
    const Points longer{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    const Points noisy{{1, 2, 3}, {4, 5, 6.001F}};
    const Points normals{{0, 0, 1}, {0, 1, 0}};
    const Points turned{{0, 0, 1}, {1, 0, 0}};
    const auto copies = prereg::FindCopies(std::vector<prereg::ScanToCompare>{{{}, {}, {}},
                                                                              {points, normals, {}},
                                                                              {noisy, normals, {}},
                                                                              {points, turned, {}},
                                                                              {longer, normals, {}},
                                                                              {points, normals, {0, 0, 1000}},
                                                                              {{}, {}, {}},
                                                                              {points, normals, {}},
                                                                              {noisy, normals, {}},
                                                                              {points, normals, {}}});
    for (std::size_t i = 0; i < 7; ++i) EXPECT_FALSE(copies[i]) << i;
    EXPECT_EQ(copies[7], 1U);
    EXPECT_EQ(copies[8], 2U);
    EXPECT_EQ(copies[9], 1U);
}

} // namespace
