// SPDX-License-Identifier: MIT
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/workflow/placing.h"

#include <algorithm>
#include <map>

namespace prereg {

namespace {

/// Which of the places that a search found the poses agree with.
std::optional<std::size_t> keptPlace(const IScanPairs& pairs, ScanPair pair, const PairFinding& finding,
                                     const CTrafo& pose)
{
    for (std::size_t i = 0; i < finding.places.size(); ++i)
        if (!pairs.AreDistinct(pair.second, finding.places[i].pose, pose)) return i;
    return std::nullopt;
}

bool isSilent(const PairStanding& standing)
{
    return !standing.finding && standing.evidence.eEvidence == EEvidence::Silent &&
           standing.evidence.counts.uiMatched == 0;
}

} // namespace

std::vector<PairStanding> WeighPairs(const IScanPairs& pairs, const Placing& placing)
{
    std::map<ScanPair, PairStanding> all;
    for (std::size_t i = 0; i < placing.searched.size(); ++i) all[placing.searched[i]].finding = placing.findings[i];
    std::vector<std::pair<ScanPair, CTrafo>> together;
    for (std::size_t b = 0; b < placing.group.size(); ++b) {
        for (std::size_t a = 0; a < b; ++a) {
            if (placing.group[a] != placing.group[b]) continue;
            const CTrafo pose = placing.poses[a].GetInverse(true) * placing.poses[b];
            // A pair that was searched is told of in any case.
            if (pairs.MayMeet({a, b}, pose) || all.contains({a, b})) together.emplace_back(ScanPair{a, b}, pose);
        }
    }
    const std::vector<PairEvidence> evidence = pairs.Weigh(together);
    for (std::size_t i = 0; i < together.size(); ++i) {
        const auto& [pair, pose] = together[i];
        PairStanding& standing = all[pair];
        standing.isTogether = true;
        standing.evidence = evidence[i];
        if (standing.finding) standing.kept = keptPlace(pairs, pair, *standing.finding, pose);
    }
    std::vector<PairStanding> standings;
    for (auto& [pair, standing] : all) {
        if (isSilent(standing)) continue;
        standing.pair = pair;
        standings.push_back(std::move(standing));
    }
    return standings;
}

std::size_t CountLoops(std::span<const PairStanding> pairs, std::size_t numScans)
{
    Zorvan::CDisjointSets linked(static_cast<unsigned>(numScans));
    std::size_t loops = 0;
    for (const PairStanding& standing : pairs) {
        if (!standing.isTogether || standing.evidence.eEvidence != EEvidence::Supports) continue;
        const auto a = static_cast<unsigned>(standing.pair.first);
        const auto b = static_cast<unsigned>(standing.pair.second);
        if (linked.SameClass(a, b))
            ++loops;
        else
            linked.Unify(a, b);
    }
    return loops;
}

} // namespace prereg
