// SPDX-License-Identifier: MIT
#include "zorvan/workflow/twincamps.h"

#include <gtest/gtest.h>

#include <optional>
#include <utility>
#include <vector>

namespace {

using namespace prereg;
using Numbers = std::vector<std::size_t>;
using Groups = std::vector<std::optional<std::size_t>>;

constexpr std::nullopt_t none = std::nullopt;

DisputedSpot spot(Numbers showing, Numbers lacking, Numbers unclear = {})
{
    return {{}, 6.0, std::move(showing), std::move(lacking), std::move(unclear), 0.0};
}

TEST(TwinCamps, ComeApartAndLeaveOutWhoSeesNeither)
{
    const std::vector<DisputedSpot> spots{spot({0, 2, 4}, {1, 3}, {5, 6})};
    EXPECT_EQ(DivideByCamps(spots, 9), (Groups{0, 1, 0, 1, 0, none, none, none, none}));
}

TEST(TwinCamps, OfTwoSpotsGoTogetherWhereAScanSeesBoth)
{
    // Of spots on either side of an object nobody knows which camps are of the same one.
    EXPECT_EQ(DivideByCamps(std::vector{spot({0, 1}, {2, 3}), spot({4, 5}, {6, 7})}, 8),
              (Groups{0, 0, 2, 2, 4, 4, 6, 6}));
    EXPECT_EQ(DivideByCamps(std::vector{spot({0, 1}, {2, 3}), spot({1, 4}, {3, 5})}, 6), (Groups{0, 0, 2, 2, 0, 2}));
    // Each object has a hole where the other has none.
    EXPECT_EQ(DivideByCamps(std::vector{spot({0, 1}, {2, 3}), spot({2, 3}, {0, 1})}, 4), (Groups{0, 0, 2, 2}));
}

TEST(TwinCamps, OfAFewAmongManyKeepTheRestTogether)
{
    // Ten that see nothing of it stay with the eight, one that cannot tell does not.
    const std::vector<DisputedSpot> spots{spot({0, 1, 2, 3, 4, 5, 6, 7}, {8, 9}, {10})};
    const Groups groups = DivideByCamps(spots, 20);
    EXPECT_EQ(groups[8], 8U);
    EXPECT_EQ(groups[9], 8U);
    EXPECT_EQ(groups[10], none);
    for (const std::size_t scan : {0U, 7U, 11U, 19U}) EXPECT_EQ(groups[scan], 0U) << scan;
    // Nor does one that cannot tell of one spot and sees nothing of another.
    EXPECT_EQ(DivideByCamps(std::vector{spots.front(), spot({0, 1, 2, 3, 4, 5, 6, 7}, {11, 12})}, 20)[10], none);
    // Of another spot no side is the smaller one.
    EXPECT_EQ(DivideByCamps(std::vector{spots.front(), spot({0, 1, 2}, {3, 4, 5})}, 20)[19], none);
}

TEST(TwinCamps, LeaveOutWhoIsOpposedToMostOfItsGroup)
{
    // 3 is with 4, which is with 0, 1 and 2, and so comes 5.
    const auto groups =
        DivideByCamps(std::vector{spot({0, 1, 2, 4}, {8, 9}), spot({0, 1, 2}, {3, 5}), spot({3, 4}, {6, 7})}, 10);
    EXPECT_EQ(groups, (Groups{0, 0, 0, none, 0, none, 6, 6, 8, 8}));
}

TEST(TwinCamps, OfOneSpotAreNotJoinedByAnother)
{
    // By the second one 0 goes with 3 and 1 with 4; the first has them on different sides.
    EXPECT_EQ(DivideByCamps(std::vector{spot({0, 1, 2}, {3, 4, 5}), spot({0, 3}, {1, 4})}, 6),
              (Groups{0, none, 0, 3, none, 3}));
}

TEST(TwinCamps, NeverHoldScansThatAreOpposed)
{
    // Of three objects: 1 is with 0 and with 2, which are opposed to each other.
    const Groups groups =
        DivideByCamps(std::vector{spot({0, 1}, {5, 6}), spot({1, 2}, {5, 6}), spot({0, 3}, {2, 4})}, 7);
    EXPECT_TRUE(!groups[0] || !groups[2] || groups[0] != groups[2]);
    EXPECT_EQ(groups[5], groups[6]);
}

} // namespace
