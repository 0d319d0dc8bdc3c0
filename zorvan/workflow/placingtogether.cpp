// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placingtogether.h"

#include "zorvan/core/rigid.h"
#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <set>
#include <vector>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// In a smaller group few have met a scan, and a wrong one among them weighs much.
bool isAsked(const Members& group, const Placing& placing) { return 2 * group.size() > placing.group.size(); }

Members othersThan(const Members& group, const Placing& placing)
{
    Members others;
    for (std::size_t scan = 0; scan < placing.group.size(); ++scan)
        if (placing.group[scan] != placing.group[group.front()]) others.push_back(scan);
    return others;
}

void put(std::size_t scan, const CTrafo& pose, const Members& group, const CPlacingWeigher& weigher, Placing& placing)
{
    Members without = placing.MembersOf(placing.group[scan]);
    std::erase(without, scan);
    if (!without.empty()) weigher.PutInParts({without, &placing.poses}, placing);
    placing.poses[scan] = Rigid(pose);
    placing.places[scan] = {EPlace::Placed};
    placing.group[scan] = std::min(scan, group.front());
    for (const std::size_t member : group) placing.group[member] = placing.group[scan];
}

/// What it alone has held goes out with it.
void takeOut(std::size_t scan, std::size_t uiPlaces, const Members& others, const CPlacingWeigher& weigher,
             Placing& placing)
{
    placing.group[scan] = scan;
    placing.places[scan] = {EPlace::Ambiguous, uiPlaces};
    weigher.PutInParts({others, &placing.poses}, placing);
}

/// Takes out scans that all others together would have in another place as well.
void takeOutRivalled(const CPlacingWeigher& weigher, Placing& placing, const Zorvan::Hooks& hooks)
{
    const Members members = placing.LargestGroup();
    hooks.Start("checking", members.size());
    for (const std::size_t scan : members) {
        Members others = placing.MembersOf(placing.group[scan]);
        std::erase(others, scan);
        if (hooks.IsAborted() || !isAsked(others, placing)) break;
        const std::size_t rivals = weigher.CountRivals({others, &placing.poses}, scan);
        if (rivals > 0) takeOut(scan, 1 + rivals, others, weigher, placing);
        hooks.Advance();
    }
    hooks.Finish();
}

/// Asks each scan that is left once. @return whether some were put in
bool putSome(const CPlacingWeigher& weigher, Placing& placing, const Zorvan::Hooks& hooks)
{
    const Members left = othersThan(placing.LargestGroup(), placing);
    bool isMore = false;
    hooks.Start("settling", left.size());
    for (const std::size_t scan : left) {
        const Members group = placing.LargestGroup();
        if (hooks.IsAborted() || !isAsked(group, placing)) break;
        const CTrafo pose = weigher.FindTogether({group, &placing.poses}, scan);
        if (pose) put(scan, pose, group, weigher, placing);
        isMore = isMore || pose;
        hooks.Advance();
    }
    hooks.Finish();
    return isMore;
}

} // namespace

Placing PlaceTogether(IScanPairs& pairs, Placing placing, const Zorvan::Hooks& hooks)
{
    const CPlacingWeigher weigher(pairs, placing);
    takeOutRivalled(weigher, placing, hooks);
    while (!hooks.IsAborted() && putSome(weigher, placing, hooks)) {
    }
    return placing;
}

} // namespace prereg
