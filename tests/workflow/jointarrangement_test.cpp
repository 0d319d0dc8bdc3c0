// SPDX-License-Identifier: MIT
#include "puzzle.h"
#include "zorvan/workflow/jointarrangement.h"
#include "zorvan/workflow/placinggroups.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

using namespace prereg;

/// Views of a box, two sides of which look alike: each pair finds itself here and there, and can tell neither; what is
/// wrong lies elsewhere for each pair.
/// @param slide  each second pair finds itself so far off, the others as far to the other side
CPuzzle boxOf(std::size_t numScans, float slide = 0.0F)
{
    std::vector<float> truth;
    for (std::size_t scan = 0; scan < numScans; ++scan) truth.push_back(static_cast<float>(scan * scan));
    CPuzzle puzzle(truth);
    float apart = 50.0F;
    for (std::size_t b = 1; b < numScans; ++b) {
        for (std::size_t a = 0; a < b; ++a) {
            const float wrong = puzzle.Apart({a, b}) + (apart += 7.0F);
            puzzle.Find(a, b, {wrong, puzzle.Apart({a, b}) + ((a + b) % 2 == 0 ? slide : -slide)});
            puzzle.Confuse(a, b, wrong);
        }
    }
    return puzzle;
}

/// All scans where they belong, with what a search has found of them.
Placing allTogether(const CPuzzle& puzzle)
{
    Placing all = Placing::Apart(puzzle.GetNumScans());
    for (const auto& [pair, finding] : puzzle.GetFindings()) {
        all.searched.push_back(pair);
        all.findings.push_back(finding);
    }
    for (std::size_t scan = 0; scan < puzzle.GetNumScans(); ++scan) {
        all.group[scan] = 0;
        all.poses[scan] = CPuzzle::At(puzzle.Apart({0, scan}));
        all.places[scan] = {EPlace::Placed};
    }
    return all;
}

/// The last scan fits elsewhere as well, as all pairs with it say, though none found that by itself but one.
void letLastFitAt(float elsewhere, std::size_t last, CPuzzle& puzzle)
{
    for (std::size_t scan = 0; scan < last; ++scan) puzzle.Confuse(scan, last, elsewhere + puzzle.Apart({scan, 0}));
    puzzle.Find(0, last, {elsewhere});
}

/// A line of scans and its mirror image: all of them fit both ways.
CPuzzle mirrored(std::size_t numScans)
{
    std::vector<float> truth;
    for (std::size_t scan = 0; scan < numScans; ++scan) truth.push_back(static_cast<float>(scan));
    CPuzzle puzzle(truth);
    for (std::size_t b = 1; b < numScans; ++b) {
        for (std::size_t a = 0; a < b; ++a) {
            const float apart = puzzle.Apart({a, b});
            puzzle.Find(a, b, {apart, -apart});
            puzzle.Confuse(a, b, -apart);
        }
    }
    return puzzle;
}

Placing placed(CPuzzle& puzzle)
{
    return PlaceScans(puzzle, Placing::Apart(puzzle.GetNumScans()), Zorvan::Hooks::None());
}

/// Members of the group of the first scan that lie where they should beside it.
std::size_t numRight(const Placing& placing, const CPuzzle& puzzle)
{
    const std::vector<std::size_t> members = placing.MembersOf(placing.group[0]);
    return static_cast<std::size_t>(std::ranges::count_if(members, [&](std::size_t scan) {
        const float x = placing.poses[scan].GetTranslation().x - placing.poses[0].GetTranslation().x;
        return std::abs(x - puzzle.Apart({0, scan})) < 0.1F;
    }));
}

TEST(StartingJointly, FindsWhatNoPairIsSureOf)
{
    CPuzzle puzzle = boxOf(6);
    Placing placing = placed(puzzle);
    ASSERT_EQ(placing.MembersOf(placing.group[0]).size(), 1U) << "pairs tell";
    ASSERT_TRUE(StartJointly(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(numRight(placing, puzzle), 6U);

    const Placing after = PlaceScans(puzzle, placing, Zorvan::Hooks::None());
    EXPECT_EQ(numRight(after, puzzle), 6U) << "does not hold";
}

TEST(StartingJointly, LeavesApartWhatLooksAlikeAltogether)
{
    CPuzzle puzzle = mirrored(5);
    Placing placing = placed(puzzle);
    EXPECT_FALSE(StartJointly(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(placing.MembersOf(placing.group[0]).size(), 1U);
}

TEST(StartingJointly, AgreesOnWhereScansAreThatSlide)
{
    CPuzzle puzzle = boxOf(6, 0.12F);
    puzzle.LetPairsSlide(0.4F);
    Placing placing = placed(puzzle);
    ASSERT_EQ(placing.MembersOf(placing.group[0]).size(), 1U) << "pairs tell";
    ASSERT_TRUE(StartJointly(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(numRight(placing, puzzle), 6U);
}

TEST(TakingOutUnsure, TakesWhatLiesElsewhereInAnArrangementAsGood)
{
    CPuzzle puzzle = boxOf(6);
    Placing placing = allTogether(puzzle);
    EXPECT_FALSE(TakeOutUnsure(puzzle, placing, Zorvan::Hooks::None())) << "nothing is as good";

    CPuzzle twofold = boxOf(6);
    letLastFitAt(400.0F, 5, twofold);
    Placing all = allTogether(twofold);
    ASSERT_TRUE(TakeOutUnsure(twofold, all, Zorvan::Hooks::None()));
    EXPECT_EQ(all.MembersOf(0).size(), 5U);
    EXPECT_EQ(all.places[5].ePlace, EPlace::Ambiguous);
    EXPECT_EQ(all.places[4].ePlace, EPlace::Placed);
}

TEST(TakingOutUnsure, ComparesWhatPairsSayThatLieOtherwise)
{
    CPuzzle puzzle = boxOf(7);
    letLastFitAt(400.0F, 6, puzzle);
    puzzle.Count(1, 6, 400.0F + puzzle.Apart({1, 0}), 1000, 60);
    puzzle.Count(0, 1, puzzle.Apart({0, 1}), 1000, 90); // here as there
    Placing placing = allTogether(puzzle);
    EXPECT_FALSE(TakeOutUnsure(puzzle, placing, Zorvan::Hooks::None()));
}

TEST(TakingOutUnsure, LeavesWhatAnArrangementHasNotPlaced)
{
    CPuzzle puzzle = boxOf(7);
    const float elsewhere = 400.0F;
    letLastFitAt(elsewhere, 4, puzzle);
    // The next one knows its place from that one alone.
    for (std::size_t scan = 0; scan < 5; ++scan) puzzle.Forget(scan, 5);
    puzzle.Forget(5, 6);
    puzzle.FindTrue(4, 5);
    for (const std::size_t scan : {5U, 6U}) puzzle.Confuse(4, scan, puzzle.Apart({0, scan}) - elsewhere);
    Placing placing = allTogether(puzzle);
    placing.group[6] = 6;
    ASSERT_TRUE(TakeOutUnsure(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(placing.MembersOf(0), (std::vector<std::size_t>{0, 1, 2, 3, 5}));
}

TEST(StartingJointly, TakesOutWhatIsDisputed)
{
    CPuzzle puzzle = mirrored(5);
    Placing placing = placed(puzzle);
    placing.group[1] = 0;
    placing.poses[1] = CPuzzle::At(1.0F);
    ASSERT_TRUE(StartJointly(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(placing.MembersOf(placing.group[0]).size(), 1U);
}

TEST(StartingJointly, TakesFromWhatItPullsApartOnlyWhatIsSure)
{
    CPuzzle puzzle = boxOf(6);
    Placing placing = placed(puzzle);
    // Two were put together where they do not belong.
    placing.group[5] = placing.group[4];
    placing.poses[5] = CPuzzle::At(300.0F);
    ASSERT_TRUE(StartJointly(puzzle, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(numRight(placing, puzzle), 6U);
}

TEST(StartingJointly, IsForAFewScansWithoutAGroup)
{
    CPuzzle some = boxOf(6);
    Placing placing = placed(some);
    for (std::size_t scan = 0; scan < 4; ++scan) placing.group[scan] = 0;
    const std::vector<std::size_t> before = placing.group;
    EXPECT_FALSE(StartJointly(some, placing, Zorvan::Hooks::None())) << "most are in a group";
    EXPECT_EQ(placing.group, before);

    CPuzzle many = boxOf(33);
    Placing apart = Placing::Apart(33);
    EXPECT_FALSE(StartJointly(many, apart, Zorvan::Hooks::None())) << "too many";

    Placing stopped = placed(some);
    EXPECT_FALSE(StartJointly(some, stopped, Zorvan::Hooks([] { return true; })));
}

TEST(RuledOut, IsWhatMoreContradictsByAMarginOrHalfAsMuchMatches)
{
    const auto counts = [](unsigned matched, unsigned contradictions) {
        PoseCounts sum;
        sum.uiMatched = matched;
        sum.uiInFront = contradictions;
        return sum;
    };
    EXPECT_TRUE(AreRuledOut(counts(3000, 40), counts(2000, 5)));
    EXPECT_FALSE(AreRuledOut(counts(3000, 30), counts(2000, 5))) << "by chance";
    EXPECT_FALSE(AreRuledOut(counts(3000, 150), counts(2000, 80))) << "both are doubtful";
    EXPECT_FALSE(AreRuledOut(counts(3000, 40), counts(1000, 5))) << "scans apart have no contradictions";
    EXPECT_TRUE(AreRuledOut(counts(900, 0), counts(2000, 5)));
    EXPECT_FALSE(AreRuledOut(counts(900, 0), counts(2000, 5), false)) << "matches are no measure";
    EXPECT_FALSE(AreRuledOut(counts(900, 0), counts(2000, 40)));
}

} // namespace
