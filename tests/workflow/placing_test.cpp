// SPDX-License-Identifier: MIT
#include "puzzle.h"
#include "zorvan/workflow/placinggroups.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
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
    EXPECT_EQ(PlaceWords(placing.places[2], ""), "ambiguous: fits equally well in two places");
    EXPECT_EQ(placing.places[3].ePlace, EPlace::Alone);
}

std::ptrdiff_t pairsOf(const Placing& placing, std::size_t scan)
{
    return std::ranges::count_if(placing.settled,
                                 [&](const ScanPair& pair) { return pair.first == scan || pair.second == scan; });
}

TEST(Placing, SearchesEachOfManyLonersWithSomeOthersAndSaysSo)
{
    CPuzzle few(std::vector<float>(32));
    Placing placing = place(few);
    EXPECT_EQ(placing.settled.size(), 32U * 31 / 2);
    EXPECT_EQ(PlaceWords(placing.places[3], ""), "alone");

    CPuzzle many(std::vector<float>(100));
    placing = place(many);
    EXPECT_LE(placing.settled.size(), 100U * 31);
    for (std::size_t scan = 0; scan < 100; ++scan) {
        EXPECT_GE(pairsOf(placing, scan), 31) << scan;
        EXPECT_EQ(pairsOf(placing, scan) + static_cast<std::ptrdiff_t>(placing.places[scan].uiUntried), 99) << scan;
    }
    const std::size_t untried = placing.places[50].uiUntried;
    EXPECT_EQ(PlaceWords(placing.places[50], ""), "alone, not tried with " + std::to_string(untried) + " others");
    // Asked again, it says the same without a search.
    const std::size_t searched = placing.searched.size();
    placing = place(many, placing);
    EXPECT_EQ(placing.searched.size(), searched);
    EXPECT_EQ(placing.places[50].uiUntried, untried);
}

TEST(Placing, GlancesAtSomeOfManyForThoseThatAreLeftOver)
{
    for (const std::size_t left : {1U, 2U}) {
        for (const std::size_t others : {30U, 99U}) {
            CPuzzle puzzle(std::vector<float>(others + left));
            Placing start = Placing::Apart(others + left);
            std::fill_n(start.group.begin(), others, 0U);
            std::fill_n(start.group.begin() + static_cast<std::ptrdiff_t>(others), left, others);
            const Placing placing = PlaceScans(puzzle, start, Zorvan::Hooks::None(), EPairEffort::Glances);
            EXPECT_EQ(placing.searched.size(), left * std::min<std::size_t>(others, 31)) << others;
        }
    }
}

TEST(Placing, SearchesManyWhereTheyAreLikelyToMeet)
{
    constexpr std::size_t uiLoner = 5;
    constexpr std::size_t uiNeighbour = 90; // far away in the list
    for (const EPairEffort eEffort : {EPairEffort::Glances, EPairEffort::All}) {
        for (const bool isSuggested : {false, true}) {
            CPuzzle puzzle(std::vector<float>(100));
            puzzle.FindTrue(uiLoner, uiNeighbour);
            for (std::size_t other = 40; other < 80; ++other) puzzle.Suggest(uiLoner, other, 2.0);
            if (isSuggested) puzzle.Suggest(uiLoner, uiNeighbour, 3.0);
            Placing start = Placing::Apart(100);
            std::ranges::fill(start.group, 0U);
            start.group[uiLoner] = uiLoner;
            const Placing placing = PlaceScans(puzzle, start, Zorvan::Hooks::None(), eEffort);
            const bool isFound = isSuggested || eEffort == EPairEffort::All;
            EXPECT_EQ(placing.group[uiLoner] == 0, isFound);
            if (!isSuggested) continue;
            const ScanPair first = placing.searched.front();
            EXPECT_TRUE(first == ScanPair(uiLoner, uiNeighbour)) << first.first << " and " << first.second;
        }
    }
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

TEST(Placing, WeighsNoPairThatCannotMeet)
{
    CPuzzle puzzle({0, 1, 2, 3, 4});
    for (std::size_t a = 0; a + 1 < 5; ++a) puzzle.FindTrue(a, a + 1);
    for (std::size_t a = 0; a < 5; ++a)
        for (std::size_t b = a + 2; b < 5; ++b) puzzle.PutFar(a, b);
    const Placing placing = place(puzzle);
    for (std::size_t scan = 1; scan < 5; ++scan) EXPECT_EQ(placing.group[scan], placing.group[0]);
    EXPECT_EQ(puzzle.GetNumFarWeighed(), 0U);
    for (const PairStanding& pair : WeighPairs(puzzle, placing))
        EXPECT_TRUE(pair.finding || pair.pair.second == pair.pair.first + 1);
    EXPECT_LE(puzzle.GetNumFarWeighed(), placing.searched.size()) << "only those that were searched";
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

// The loner's number may be the smaller one of the two.
TEST(Placing, AContradictedScanNamesAnotherOne)
{
    CPuzzle puzzle({0, 1, 2, 3});
    for (const auto& [a, b] : {ScanPair{1, 2}, {1, 3}, {2, 3}}) puzzle.FindTrue(a, b);
    puzzle.Find(0, 3, {9});
    puzzle.Confuse(0, 3, 9);
    const Placing placing = place(puzzle);
    ASSERT_EQ(placing.places[0].ePlace, EPlace::Contradicted);
    EXPECT_NE(placing.places[0].uiRefuter, 0U);
}

TEST(Placing, APlaceThatIsNotSureIsOne)
{
    CPuzzle puzzle({0, 1});
    puzzle.FindOpen(0, 1, 1); // two scans, neither aligned nor held
    const Placing placing = place(puzzle);
    ASSERT_EQ(placing.places[1].ePlace, EPlace::Ambiguous);
    EXPECT_EQ(PlaceWords(placing.places[1], ""), "ambiguous: fits in one place, but not for sure");
}

/// The third scan shows a side that looks like one of the first two: it fits there, and where it belongs, `twin` away
/// from the second, it shares nothing with them. So it stays out.
template <typename Puzzle>
void expectThatTheTwinKeepsItOut(float twin)
{
    Puzzle puzzle({0, 1, 6});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {2});
    puzzle.FindOpen(1, 2, twin);
    puzzle.Confuse(1, 2, 2);
    puzzle.Confuse(0, 2, 3);
    puzzle.Part(1, 2);
    puzzle.Part(0, 2);
    const Placing placing = place(puzzle);
    EXPECT_EQ(placing.group[1], placing.group[0]);
    EXPECT_EQ(placing.places[2].ePlace, EPlace::Ambiguous);
}

TEST(Placing, PutsNoScanWhereItsTwinIsContradictedAsLittle) { expectThatTheTwinKeepsItOut<CPuzzle>(5); }

/// Half a step off, the first scan sees the third one, and that it does not quite fit.
class CLoosePuzzle : public CPuzzle
{
public:
    using CPuzzle::CPuzzle;

    [[nodiscard]] std::vector<PairEvidence> Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const override
    {
        std::vector<PairEvidence> all = CPuzzle::Weigh(poses);
        for (std::size_t i = 0; i < all.size(); ++i) {
            const float off = std::abs(poses[i].second.GetTranslation().x - Apart(poses[i].first));
            if (off < 0.1F || off > 0.6F) continue;
            all[i] = {};
            if (poses[i].first != ScanPair(0, 2)) continue;
            all[i] = {EEvidence::Supports, {}, At(Apart({0, 2}))};
            all[i].counts.uiMatched = 1000;
            all[i].counts.uiInFront = 60;
        }
        return all;
    }
};

TEST(Placing, ATwinThatIsKnownRoughlyIsWeighedWhereOtherScansMeet) { expectThatTheTwinKeepsItOut<CLoosePuzzle>(5.5F); }

// A chain of poses may be off by as much, so the two are one place, and the wrong one of them comes first.
TEST(Placing, APlaceBesideAWrongOneIsWeighedToo)
{
    CPuzzle puzzle({0, 1, 6});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {5.15F, 5.06F});
    const Placing placing = place(puzzle);
    ASSERT_EQ(placing.places[2].ePlace, EPlace::Placed);
    EXPECT_NEAR(between(placing, 0, 2), 6.06F, 1e-4F);
}

/// Two sides of a box, three scans of each, folded onto each other: all but one pair agree with that.
CPuzzle twoSides()
{
    CPuzzle puzzle({0, 1, 2, 20, 21, 22});
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t k = 3; k < 6; ++k) {
            if (i == 0 && k == 3) continue;
            puzzle.Confuse(i, k, puzzle.Apart({i, k}) - 15.0F);
            puzzle.Part(i, k);
        }
    }
    return puzzle;
}

Placing foldedSides(const std::vector<float>& found)
{
    CPuzzle puzzle = twoSides();
    puzzle.Find(0, 3, found);
    Placing start = Placing::Apart(6);
    start.group.assign(6, 0);
    for (std::size_t i = 0; i < 6; ++i) start.poses[i] = CPuzzle::At(puzzle.Apart({0, i}) - (i < 3 ? 0.0F : 15.0F));
    start.searched = {{0, 3}};
    start.findings = {puzzle.GetFindings().at({0, 3})};
    return place(puzzle, start);
}

TEST(Placing, UnfoldsScansThatHoldEachOtherInAWrongPlace)
{
    const Placing placing = foldedSides({11, 20}); // no aligned pair leads there
    for (std::size_t scan = 3; scan < 6; ++scan) {
        EXPECT_EQ(placing.group[scan], placing.group[0]);
        EXPECT_NEAR(between(placing, 0, scan), 17.0F + static_cast<float>(scan), 1e-4F);
    }
}

// The fold matches more, as eight pairs fit there.
TEST(Placing, AreBetterWhereLessContradictsThem)
{
    const auto countsOf = [](unsigned matched, unsigned inFront) {
        PoseCounts counts;
        counts.uiMatched = matched;
        counts.uiInFront = inFront;
        return counts;
    };
    const PoseCounts fold = countsOf(14000, 300);
    EXPECT_TRUE(AreBetter(countsOf(8000, 20), fold));
    EXPECT_FALSE(AreBetter(fold, countsOf(8000, 20)));
    EXPECT_FALSE(AreBetter(countsOf(5000, 0), fold)) << "scans apart are not better";
    EXPECT_TRUE(AreBetter(countsOf(9000, 20), countsOf(8000, 0))) << "within the margin matches count";
}

/// A puzzle whose scans are turned, each in another way.
class CTurnedPuzzle : public CPuzzle
{
public:
    using CPuzzle::CPuzzle;

    [[nodiscard]] static CTrafo Turn(std::size_t scan)
    {
        const auto angle = static_cast<float>(scan);
        return {CPuzzle::At(0).GetTranslation() + kdtree::Vector<3>(0.6F, 0.8F, 0), angle, {0, 0, 0}};
    }
    std::vector<PairFinding> Search(std::span<const ScanPair> pairs, bool isThorough,
                                    const Zorvan::Hooks& hooks) override
    {
        std::vector<PairFinding> found = CPuzzle::Search(pairs, isThorough, hooks);
        for (std::size_t i = 0; i < found.size(); ++i)
            for (auto& place : found[i].places)
                place.pose = Turn(pairs[i].first).GetInverse(true) * place.pose * Turn(pairs[i].second);
        return found;
    }
    [[nodiscard]] std::vector<PairEvidence> Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const override
    {
        std::vector<std::pair<ScanPair, CTrafo>> straight;
        for (const auto& [pair, pose] : poses)
            straight.emplace_back(pair, Turn(pair.first) * pose * Turn(pair.second).GetInverse(true));
        return CPuzzle::Weigh(straight);
    }
};

TEST(Placing, PosesStayRotationsHoweverManyJoinsTheyComeFrom)
{
    std::vector<float> truth(100);
    std::iota(truth.begin(), truth.end(), 0.0F);
    CTurnedPuzzle puzzle(truth);
    for (std::size_t scan = 1; scan < truth.size(); ++scan) puzzle.FindTrue(scan - 1, scan);
    const Placing placing = place(puzzle);
    for (std::size_t scan = 0; scan < truth.size(); ++scan) {
        ASSERT_EQ(placing.group[scan], 0U);
        const CTrafo rest = placing.poses[scan] * placing.poses[scan].GetInverse(true);
        for (unsigned row = 0; row < 3; ++row)
            for (unsigned column = 0; column < 3; ++column)
                EXPECT_NEAR(rest(row, column), row == column ? 1.0F : 0.0F, 1e-6F) << scan;
    }
}

} // namespace
