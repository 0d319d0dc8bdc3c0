// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placinggroups.h"

#include <algorithm>

namespace prereg {

namespace {

bool contains(const std::vector<std::size_t>& scans, std::size_t scan)
{
    return std::ranges::find(scans, scan) != scans.end();
}

} // namespace

PairEvidence CPlacingWeigher::weighPair(std::size_t i, const CTrafo& poseI, std::size_t k, const CTrafo& poseK) const
{
    if (i > k) return weighPair(k, poseK, i, poseI);
    const CTrafo pose = poseI.GetInverse(true) * poseK;
    if (!m_pairs.MayMeet({i, k}, pose)) return {};
    const std::vector<std::pair<ScanPair, CTrafo>> asked{{{i, k}, pose}};
    return m_pairs.Weigh(asked).front();
}

std::vector<std::size_t> CPlacingWeigher::PartThatGoes(const PlacedGroup& group, std::size_t stays, std::size_t goes,
                                                       const CTrafo& motion) const
{
    std::vector<std::size_t> part{goes};
    const auto poseOf = [&](std::size_t scan) {
        return contains(part, scan) ? motion * group.PoseOf(scan) : group.PoseOf(scan);
    };
    const auto isRefutedByPart = [&](std::size_t scan) {
        return std::ranges::any_of(part, [&](std::size_t other) {
            return weighPair(scan, group.PoseOf(scan), other, poseOf(other)).eEvidence == EEvidence::Refutes;
        });
    };
    for (bool isMore = true; isMore;) {
        std::vector<std::size_t> asked;
        for (const std::size_t scan : group.members)
            if (scan != stays && !contains(part, scan) && isRefutedByPart(scan)) asked.push_back(scan);
        // Others that are asked to go will, or will not: they say nothing yet.
        const auto contradictionsAt = [&](std::size_t scan, const CTrafo& pose) {
            unsigned sum = 0;
            for (const std::size_t other : group.members)
                if (!contains(asked, other)) sum += weighPair(scan, pose, other, poseOf(other)).counts.Contradictions();
            return sum;
        };
        unsigned most = 0;
        std::size_t best = 0;
        for (const std::size_t scan : asked) {
            const unsigned staying = contradictionsAt(scan, group.PoseOf(scan));
            const unsigned going = contradictionsAt(scan, motion * group.PoseOf(scan));
            if (staying <= going + most) continue;
            most = staying - going;
            best = scan;
        }
        isMore = most > 0;
        if (isMore) part.push_back(best);
    }
    std::ranges::sort(part);
    return part;
}

} // namespace prereg
