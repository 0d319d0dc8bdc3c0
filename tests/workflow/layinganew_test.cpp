// SPDX-License-Identifier: MIT
#include "puzzle.h"
#include "zorvan/workflow/layinganew.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

namespace {

using namespace prereg;

Placing inOneGroup(const std::vector<float>& at)
{
    Placing placing = Placing::Apart(at.size());
    for (std::size_t scan = 0; scan < at.size(); ++scan) {
        placing.group[scan] = 0;
        placing.poses[scan] = CPuzzle::At(at[scan]);
        placing.places[scan] = {EPlace::Placed};
    }
    return placing;
}

float between(const Placing& placing, std::size_t a, std::size_t b)
{
    return placing.poses[b].GetTranslation().x - placing.poses[a].GetTranslation().x;
}

TEST(LayingAnew, BringsBackWhatSlidesBesideTheOthers)
{
    CPuzzle puzzle({0.0F, 3.0F, 5.0F, 9.0F});
    Placing placing = inOneGroup({0.0F, 3.3F, 4.8F, 9.2F});
    ASSERT_TRUE(LayAnew(puzzle, placing, Zorvan::Hooks::None()));
    for (std::size_t scan = 1; scan < 4; ++scan) EXPECT_EQ(between(placing, 0, scan), puzzle.Apart({0, scan}));
}

TEST(LayingAnew, LeavesWhatItWouldNotMakeBetter)
{
    CPuzzle puzzle({0.0F, 3.0F, 5.0F, 9.0F});
    Placing right = inOneGroup({0.0F, 3.04F, 5.02F, 8.98F});
    EXPECT_FALSE(LayAnew(puzzle, right, Zorvan::Hooks::None())) << "nothing contradicts it";
    EXPECT_EQ(between(right, 0, 1), 3.04F);

    CPuzzle between5And6({0.0F, 3.0F, 5.5F, 9.0F}); // scans settle on whole numbers
    Placing worse = inOneGroup({0.0F, 3.0F, 5.5F, 9.3F});
    EXPECT_FALSE(LayAnew(between5And6, worse, Zorvan::Hooks::None())) << "more contradicts where they settle";
    EXPECT_EQ(between(worse, 0, 3), 9.3F);

    Placing few = inOneGroup({0.0F, 3.3F, 4.8F, 9.2F});
    few.group = {0, 0, 2, 3};
    EXPECT_FALSE(LayAnew(puzzle, few, Zorvan::Hooks::None())) << "two scans have been judged by themselves";

    Placing stopped = inOneGroup({0.0F, 3.3F, 4.8F, 9.2F});
    EXPECT_FALSE(LayAnew(puzzle, stopped, Zorvan::Hooks([] { return true; })));
    EXPECT_EQ(between(stopped, 0, 1), 3.3F);
}

/// Refines by moving all but the first scan so far.
class CRefinedPuzzle : public CPuzzle
{
public:
    CRefinedPuzzle(std::vector<float> truth, float by) : CPuzzle(std::move(truth)), m_by(by) {}

    [[nodiscard]] std::vector<CTrafo>
    RefineJointly(std::span<const std::pair<std::size_t, CTrafo>> scans) const override
    {
        std::vector<CTrafo> poses;
        for (const auto& [scan, pose] : scans) poses.push_back(poses.empty() ? pose : At(m_by) * pose);
        return poses;
    }

private:
    float m_by;
};

TEST(RefineGroups, TakesOverWhatNothingContradicts)
{
    Placing placing = inOneGroup({0.0F, 2.98F, 4.98F});
    CRefinedPuzzle better({0.0F, 3.0F, 5.0F}, 0.02F);
    EXPECT_TRUE(RefineGroups(better, placing, Zorvan::Hooks::None()));
    EXPECT_EQ(between(placing, 0, 1), 3.0F);
    EXPECT_EQ(between(placing, 0, 2), 5.0F);

    CRefinedPuzzle worse({0.0F, 3.0F, 5.0F}, 1.0F);
    EXPECT_FALSE(RefineGroups(worse, placing, Zorvan::Hooks::None()));
    EXPECT_FALSE(RefineGroups(better, placing, Zorvan::Hooks([] { return true; }))) << "stopped";
    EXPECT_EQ(between(placing, 0, 1), 3.0F);

    Placing apart = Placing::Apart(3);
    EXPECT_FALSE(RefineGroups(better, apart, Zorvan::Hooks::None()));
}

} // namespace
