// SPDX-License-Identifier: MIT
#include "puzzle.h"
#include "zorvan/workflow/placingtogether.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace {

using namespace prereg;

/// Scans 0 to 3 hold each other; others come after them.
CPuzzle withFaces(std::size_t numFaces)
{
    std::vector<float> truth;
    for (std::size_t scan = 0; scan < 4 + numFaces; ++scan) truth.push_back(static_cast<float>(scan));
    CPuzzle puzzle(truth);
    for (const auto& [a, b] : {ScanPair{0, 1}, {1, 2}, {2, 3}}) puzzle.FindTrue(a, b);
    return puzzle;
}

/// Where a scan lies beside the first one, before and after.
struct Found
{
    std::optional<float> before;
    std::optional<float> after;
    EPlace ePlace;
};

Found placeOf(std::size_t scan, CPuzzle& puzzle)
{
    const auto in = [&](const Placing& placing) -> std::optional<float> {
        if (placing.group[scan] != placing.group[0]) return {};
        return placing.poses[scan].GetTranslation().x - placing.poses[0].GetTranslation().x;
    };
    const Placing alone = PlaceScans(puzzle, Placing::Apart(puzzle.GetNumScans()), Zorvan::Hooks::None());
    const Placing together = PlaceTogether(puzzle, alone, Zorvan::Hooks::None());
    return {in(alone), in(together), together.places[scan].ePlace};
}

TEST(PlacingTogether, PutsInWhatOnlyAllPairsHold)
{
    CPuzzle puzzle = withFaces(2);
    puzzle.FindLoose(1, 4, 3.05F);
    puzzle.FindLoose(4, 5, 1.05F); // beside a scan that has no place before
    const Found first = placeOf(4, puzzle);
    EXPECT_FALSE(first.before);
    EXPECT_EQ(first.after, 4.0F);
    EXPECT_EQ(first.ePlace, EPlace::Placed);
    EXPECT_EQ(placeOf(5, puzzle).after, 5.0F);
}

TEST(PlacingTogether, LeavesOutWhatMayBeElsewhere)
{
    CPuzzle sliding = withFaces(1);
    sliding.FindLoose(1, 4, 3.05F);
    sliding.LetSlide(4);
    EXPECT_FALSE(placeOf(4, sliding).after) << "slides over all together";

    CPuzzle twofold = withFaces(1);
    twofold.FindLoose(1, 4, 3.05F);
    twofold.FindLoose(1, 4, 7.05F);
    for (std::size_t scan = 0; scan < 4; ++scan) twofold.Confuse(scan, 4, 8.0F - static_cast<float>(scan));
    const Found found = placeOf(4, twofold);
    EXPECT_FALSE(found.after) << "fits in two places";
    EXPECT_EQ(found.ePlace, EPlace::Ambiguous);

    CPuzzle half = twofold;
    for (std::size_t scan = 0; scan < 4; ++scan) half.Count(scan, 4, 8.0F - static_cast<float>(scan), 400, 0);
    EXPECT_FALSE(placeOf(4, half).after) << "nothing contradicts the second place, where it shares less surface";

    CPuzzle turned = withFaces(1);
    turned.FindLoose(1, 4, 3.05F);
    for (std::size_t scan = 0; scan < 4; ++scan) turned.Confuse(scan, 4, 8.0F - static_cast<float>(scan));
    EXPECT_TRUE(placeOf(4, turned).after);
    turned.LetFitMoved(4.05F);
    EXPECT_FALSE(placeOf(4, turned).after) << "fits in a second place that no pair lists";

    CPuzzle refuted = withFaces(1);
    refuted.FindLoose(1, 4, 6.05F);
    for (const std::size_t scan : {0U, 1U, 2U}) refuted.Confuse(scan, 4, 7.0F - static_cast<float>(scan));
    EXPECT_FALSE(placeOf(4, refuted).after) << "one of the four refutes it";

    CPuzzle lonely = withFaces(1);
    lonely.FindLoose(1, 4, 3.05F);
    for (const std::size_t scan : {2U, 3U}) lonely.Part(scan, 4);
    EXPECT_FALSE(placeOf(4, lonely).after) << "two pairs alone support it";
}

TEST(PlacingTogether, PutsInWhatLiesInASmallGroup)
{
    CPuzzle puzzle = withFaces(3);
    puzzle.FindLoose(1, 4, 3.05F);
    puzzle.FindTrue(4, 5);
    puzzle.FindTrue(4, 6);
    const Found found = placeOf(4, puzzle);
    EXPECT_FALSE(found.before);
    EXPECT_EQ(found.after, 4.0F);
    EXPECT_EQ(placeOf(6, puzzle).after, 6.0F);
}

TEST(PlacingTogether, TakesOutWhatFitsElsewhereAsWellAndWhatHangsOnIt)
{
    CPuzzle puzzle({0, 1, 2, 3, 4});
    for (const auto& [a, b] : {ScanPair{0, 1}, {1, 2}, {2, 3}, {3, 4}}) puzzle.FindTrue(a, b);
    for (std::size_t scan = 0; scan < 3; ++scan) puzzle.Part(scan, 4);
    puzzle.LetFitMoved(-6); // no pair has found that
    EXPECT_EQ(placeOf(3, puzzle).after, 3.0F) << "the others refute it";
    for (std::size_t scan = 0; scan < 3; ++scan) puzzle.Confuse(scan, 3, -3.0F - static_cast<float>(scan));
    puzzle.Confuse(3, 4, 7);
    const Found found = placeOf(3, puzzle);
    EXPECT_EQ(found.before, 3.0F);
    EXPECT_FALSE(found.after);
    EXPECT_EQ(found.ePlace, EPlace::Ambiguous);
    EXPECT_EQ(placeOf(2, puzzle).after, 2.0F);
    EXPECT_EQ(placeOf(4, puzzle).before, 4.0F);
    EXPECT_EQ(placeOf(4, puzzle).ePlace, EPlace::Alone);
}

TEST(PlacingTogether, AsksNoGroupOfAFew)
{
    CPuzzle puzzle = withFaces(4);
    puzzle.FindLoose(1, 4, 3.05F);
    EXPECT_FALSE(placeOf(4, puzzle).after) << "four of eight";
}

} // namespace
