// SPDX-License-Identifier: MIT
#include "zorvan/workflow/pairdisputes.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>

namespace prereg {

namespace {

constexpr std::size_t uiPlenty = 32; ///< pairs of a scan that support its pose
/// Of these, for each that refutes it: as placing asks for.
constexpr std::size_t uiSupportsPerRefutation = 4;

struct Votes
{
    std::size_t uiSupports = 0;
    std::size_t uiRefutations = 0;

    [[nodiscard]] bool AreForIt() const
    {
        return uiSupports >= uiPlenty && uiRefutations * uiSupportsPerRefutation <= uiSupports;
    }
};

} // namespace

std::vector<PairStanding> FindDisputes(std::span<const PairStanding> pairs)
{
    std::map<std::size_t, Votes> votes;
    for (const PairStanding& pair : pairs) {
        if (!pair.isTogether) continue;
        for (const std::size_t scan : {pair.pair.first, pair.pair.second}) {
            votes[scan].uiSupports += pair.evidence.eEvidence == EEvidence::Supports;
            votes[scan].uiRefutations += pair.evidence.eEvidence == EEvidence::Refutes;
        }
    }
    std::vector<PairStanding> disputes;
    std::ranges::copy_if(pairs, std::back_inserter(disputes), [&](const PairStanding& pair) {
        return pair.isTogether && pair.evidence.eEvidence == EEvidence::Refutes &&
               !(votes[pair.pair.first].AreForIt() && votes[pair.pair.second].AreForIt());
    });
    return disputes;
}

} // namespace prereg
