// SPDX-License-Identifier: MIT
#include "zorvan/workflow/pairdisputes.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace prereg;

/// Scan 0 with as many others, each of which overlaps 40 more; the last ones refute it.
std::vector<PairStanding> starOf(std::size_t supports, std::size_t refutations)
{
    std::vector<PairStanding> pairs;
    const auto add = [&](ScanPair pair, EEvidence eEvidence) {
        PairStanding standing{pair, {}, {}, true, {}};
        standing.evidence.eEvidence = eEvidence;
        pairs.push_back(standing);
    };
    const std::size_t count = supports + refutations;
    for (std::size_t scan = 1; scan <= count; ++scan) {
        add({0, scan}, scan <= supports ? EEvidence::Supports : EEvidence::Refutes);
        for (std::size_t k = 0; k < 40; ++k) add({scan, 1000 * scan + k}, EEvidence::Supports);
    }
    return pairs;
}

struct Case
{
    std::size_t supports;
    std::size_t refutations;
    std::size_t disputes;
};

TEST(PairDisputes, FewRefutationsOfAScanThatPlentyVouchForAreNone)
{
    for (const auto& [supports, refutations, disputes] :
         {Case{150, 9, 0}, {32, 8, 0}, {32, 9, 9}, {31, 1, 1}, {8, 1, 1}, {0, 2, 2}})
        EXPECT_EQ(FindDisputes(starOf(supports, refutations)).size(), disputes) << supports << ", " << refutations;
}

TEST(PairDisputes, BothScansHaveToBeVouchedFor)
{
    std::vector<PairStanding> pairs = starOf(40, 1);
    std::erase_if(pairs, [](const PairStanding& pair) { return pair.pair.first == 41; }); // 41 is held by nothing
    EXPECT_EQ(FindDisputes(pairs).size(), 1U);
}

} // namespace
