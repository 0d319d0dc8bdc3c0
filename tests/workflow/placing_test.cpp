// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

namespace {

using namespace prereg;

CTrafo at(float x) { return {kdtree::Vector<3>(1, 0, 0), {0, 1, 0}, {0, 0, 1}, {x, 0, 0}}; }

/// Scans on a line, `truth` apart. A pair supports its true pose and refutes all others.
class CPuzzle : public IScanPairs
{
public:
    explicit CPuzzle(std::vector<float> truth) : m_truth(std::move(truth)) {}

    /// The pose of b in the frame of a; several make the pair ambiguous.
    void Find(std::size_t a, std::size_t b, const std::vector<float>& places)
    {
        PairFinding& finding = m_findings[{a, b}];
        finding.eVerdict = places.size() == 1 ? EPairVerdict::Aligned : EPairVerdict::Ambiguous;
        for (const float x : places) finding.places.push_back({at(x), counts(true), true});
    }
    void FindTrue(std::size_t a, std::size_t b) { Find(a, b, {m_truth[b] - m_truth[a]}); }
    /// Scans that cannot tell two poses of the pair apart.
    void Confuse(std::size_t a, std::size_t b, float x) { m_alsoRight[{a, b}] = x; }

    [[nodiscard]] std::size_t GetNumScans() const override { return m_truth.size(); }
    [[nodiscard]] bool IsWorthAGlance(ScanPair) const override { return true; }
    [[nodiscard]] std::vector<PairFinding> Search(std::span<const ScanPair> pairs, bool, const Zorvan::Hooks&) override
    {
        std::vector<PairFinding> found;
        for (const ScanPair& pair : pairs) found.push_back(m_findings[pair]);
        return found;
    }
    [[nodiscard]] std::vector<PairEvidence> Weigh(std::span<const std::pair<ScanPair, CTrafo>> poses) const override
    {
        std::vector<PairEvidence> all;
        for (const auto& [pair, pose] : poses) {
            const float x = pose.GetTranslation().x;
            const auto also = m_alsoRight.find(pair);
            const bool isRight = std::abs(x - (m_truth[pair.second] - m_truth[pair.first])) < 0.1F ||
                                 (also != m_alsoRight.end() && std::abs(x - also->second) < 0.1F);
            all.push_back({isRight ? EEvidence::Supports : EEvidence::Refutes, counts(isRight)});
        }
        return all;
    }
    [[nodiscard]] bool AreDistinct(std::size_t, const CTrafo& a, const CTrafo& b) const override
    {
        return (a.GetTranslation() - b.GetTranslation()).Length() > 0.1F;
    }

private:
    static PoseCounts counts(bool isRight)
    {
        PoseCounts counts;
        counts.uiSamples = 2000;
        counts.uiMatched = 1000;
        counts.uiInFront = isRight ? 0 : 500;
        return counts;
    }

    std::vector<float> m_truth;
    std::map<ScanPair, PairFinding> m_findings;
    std::map<ScanPair, float> m_alsoRight;
};

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
    CPuzzle puzzle({0, 1, 2});
    puzzle.FindTrue(0, 1);
    puzzle.Find(1, 2, {9}); // a stranger that fits one scan by chance
    puzzle.Confuse(1, 2, 9);
    const Placing placing = place(puzzle);
    EXPECT_EQ(placing.group[1], placing.group[0]);
    ASSERT_EQ(placing.places[2].ePlace, EPlace::Contradicted);
    EXPECT_EQ(placing.places[2].uiRefuter, 0U);
}

TEST(Placing, NoticesAWrongMergeAndPutsItRight)
{
    CPuzzle puzzle({0, 1, 2, 3});
    for (const auto& [a, b] : {ScanPair{0, 1}, {1, 2}, {2, 3}}) puzzle.FindTrue(a, b);
    Placing start = Placing::Apart(4);
    start.group.assign(4, 0);
    start.poses = {at(0), at(1), at(2), at(8)};
    const Placing placing = place(puzzle, start);
    EXPECT_EQ(placing.places[3].ePlace, EPlace::Placed);
    EXPECT_NEAR(between(placing, 0, 3), 3.0F, 1e-4F);
}

} // namespace
