// SPDX-License-Identifier: MIT
#include "puzzle.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace prereg;

Placing place(CPuzzle& puzzle, Placing start) { return PlaceScans(puzzle, std::move(start), Zorvan::Hooks::None()); }
Placing place(CPuzzle& puzzle) { return place(puzzle, Placing::Apart(puzzle.GetNumScans())); }

float between(const Placing& placing, std::size_t a, std::size_t b)
{
    return placing.poses[b].GetTranslation().x - placing.poses[a].GetTranslation().x;
}

TEST(Placing, LetsAWrongPairLoseAgainstTheOthers)
{
    CPuzzle puzzle({0, 1, 2, 3});
    puzzle.Find(0, 1, {7}); // comes first, and two scans cannot know
    puzzle.Confuse(0, 1, 7);
    for (const auto& [a, b] : {ScanPair{1, 2}, {2, 3}, {0, 2}, {1, 3}}) puzzle.FindTrue(a, b);
    const Placing placing = place(puzzle);
    for (std::size_t scan = 1; scan < 4; ++scan) {
        EXPECT_EQ(placing.group[scan], placing.group[0]);
        EXPECT_NEAR(between(placing, 0, scan), static_cast<float>(scan), 1e-4F);
    }
}

TEST(Placing, LetsTheThirdScanDecideBetweenTwoPlaces)
{
    CPuzzle puzzle({0, 1, 2});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {5, 1});
    puzzle.Confuse(1, 2, 5);
    const Placing placing = place(puzzle);
    ASSERT_EQ(placing.places[2].ePlace, EPlace::Placed);
    EXPECT_NEAR(between(placing, 0, 2), 2.0F, 1e-4F);
}

TEST(Placing, LeavesOutWhatHasTwoPlacesOrNone)
{
    CPuzzle puzzle({0, 1, 2, 3});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {5, 1}); // nobody can tell
    puzzle.Confuse(1, 2, 5);
    puzzle.Confuse(0, 2, 6);
    const Placing placing = place(puzzle);
    EXPECT_EQ(placing.group[1], placing.group[0]);
    EXPECT_EQ(placing.places[2].ePlace, EPlace::Ambiguous);
    EXPECT_EQ(PlaceWords(placing.places[2], ""), "ambiguous: two places");
    EXPECT_EQ(placing.places[3].ePlace, EPlace::Alone);
}

TEST(Placing, NeverPutsInAScanThatTheOthersContradict)
{
    CPuzzle puzzle({0, 1, 2, 3});
    for (const auto& [a, b] : {ScanPair{0, 1}, {0, 2}, {1, 2}}) puzzle.FindTrue(a, b);
    puzzle.Find(2, 3, {9}); // a stranger that fits one scan by chance
    puzzle.Confuse(2, 3, 9);
    const Placing placing = place(puzzle);
    EXPECT_EQ(placing.group[2], placing.group[0]);
    ASSERT_EQ(placing.places[3].ePlace, EPlace::Contradicted);
    EXPECT_EQ(placing.places[3].uiRefuter, 0U);

    const std::vector<PairStanding> pairs = WeighPairs(puzzle, placing);
    ASSERT_EQ(pairs.size(), 6U);
    EXPECT_TRUE(pairs[2].pair == ScanPair(0, 3) && !pairs[2].isTogether);
    EXPECT_TRUE(pairs[5].pair == ScanPair(2, 3) && pairs[5].finding && !pairs[5].kept) << "found and refuted";
    EXPECT_EQ(pairs[0].evidence.eEvidence, EEvidence::Supports);
    EXPECT_EQ(CountLoops(pairs, 4), 1U);
}

// Whichever of two pairs came first would win.
TEST(Placing, LetsNobodyDecideBetweenTwoPairsThatContradictEachOther)
{
    CPuzzle puzzle({0, 1, 2});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {9});
    puzzle.Confuse(1, 2, 9);
    const Placing placing = place(puzzle);
    EXPECT_NE(placing.group[1], placing.group[0]);
    EXPECT_NE(placing.group[1], placing.group[2]);
    EXPECT_EQ(placing.places[1].ePlace, EPlace::Contradicted);
}

TEST(Placing, NoticesAWrongMergeAndPutsItRight)
{
    CPuzzle puzzle({0, 1, 2, 3});
    for (const auto& [a, b] : {ScanPair{0, 1}, {1, 2}, {2, 3}}) puzzle.FindTrue(a, b);
    Placing start = Placing::Apart(4);
    start.group.assign(4, 0);
    start.poses = {CPuzzle::At(0), CPuzzle::At(1), CPuzzle::At(2), CPuzzle::At(8)};
    const Placing placing = place(puzzle, start);
    EXPECT_EQ(placing.places[3].ePlace, EPlace::Placed);
    EXPECT_NEAR(between(placing, 0, 3), 3.0F, 1e-4F);
}

} // namespace
