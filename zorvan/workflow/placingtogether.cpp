// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placingtogether.h"

#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <set>
#include <vector>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// The first of several.
Members largestGroup(const Placing& placing)
{
    Members largest;
    for (const std::size_t name : std::set<std::size_t>(placing.group.begin(), placing.group.end()))
        if (Members members = placing.MembersOf(name); members.size() > largest.size()) largest = std::move(members);
    return largest;
}

Members lonersOf(const Placing& placing)
{
    Members loners;
    for (std::size_t scan = 0; scan < placing.group.size(); ++scan)
        if (std::ranges::count(placing.group, placing.group[scan]) == 1) loners.push_back(scan);
    return loners;
}

void put(std::size_t scan, const CTrafo& pose, const Members& group, Placing& placing)
{
    placing.poses[scan] = CTrafo(pose.GetQuaternion(), pose.GetTranslation()); // a product of many is no rotation
    placing.places[scan] = {EPlace::Placed};
    placing.group[scan] = std::min(scan, group.front());
    for (const std::size_t member : group) placing.group[member] = placing.group[scan];
}

/// Asks each scan that is left once. @return whether some were put in
bool putSome(const CPlacingWeigher& weigher, Placing& placing, const Zorvan::Hooks& hooks)
{
    const Members loners = lonersOf(placing);
    bool isMore = false;
    hooks.Start("settling", loners.size());
    for (const std::size_t scan : loners) {
        const Members group = largestGroup(placing);
        if (hooks.IsAborted() || 2 * group.size() <= placing.group.size()) break;
        const JoinDecision decision = weigher.DecideTogether({group, &placing.poses}, scan);
        if (decision) put(scan, decision.pose * placing.poses[scan], group, placing);
        isMore = isMore || decision;
        hooks.Advance();
    }
    hooks.Finish();
    return isMore;
}

} // namespace

Placing PlaceTogether(IScanPairs& pairs, Placing placing, const Zorvan::Hooks& hooks)
{
    CPlacingWeigher weigher(pairs);
    for (std::size_t i = 0; i < placing.searched.size(); ++i)
        weigher.AddFinding(placing.searched[i], placing.findings[i]);
    while (!hooks.IsAborted() && putSome(weigher, placing, hooks)) {
    }
    return placing;
}

} // namespace prereg
