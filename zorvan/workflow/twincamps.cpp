// SPDX-License-Identifier: MIT
#include "zorvan/workflow/twincamps.h"

#include "zorvan/graphs/cdisjointsets.h"

#include <algorithm>

namespace prereg {

namespace {

/// As for pairs that refute a pose against those that support it.
constexpr std::size_t uiMuchLarger = 4;

/// What a scan says of a spot.
enum class ECamp : unsigned char
{
    None,
    Unclear,
    Showing,
    Lacking
};

using Camps = std::vector<ECamp>; ///< of all scans, for one spot

bool isSaid(ECamp eCamp) { return eCamp == ECamp::Showing || eCamp == ECamp::Lacking; }

bool isLopsided(const DisputedSpot& spot)
{
    const std::size_t fewer = std::min(spot.showing.size(), spot.lacking.size());
    return fewer * uiMuchLarger <= std::max(spot.showing.size(), spot.lacking.size());
}

Camps campsOf(const DisputedSpot& spot, std::size_t numScans)
{
    Camps camps(numScans, ECamp::None);
    for (const std::size_t scan : spot.unclear) camps[scan] = ECamp::Unclear;
    for (const std::size_t scan : spot.showing) camps[scan] = ECamp::Showing;
    for (const std::size_t scan : spot.lacking) camps[scan] = ECamp::Lacking;
    return camps;
}

/// Scans that see nothing of any spot, or of this one, go with its larger side.
void addTheRest(std::span<const DisputedSpot> spots, std::vector<Camps>& all)
{
    const auto isUnclear = [&](std::size_t scan) {
        return std::ranges::any_of(all, [&](const Camps& camps) { return camps[scan] == ECamp::Unclear; });
    };
    for (std::size_t scan = 0; scan < all.front().size(); ++scan) {
        if (isUnclear(scan)) continue;
        for (std::size_t k = 0; k < spots.size(); ++k) {
            const bool isShown = spots[k].showing.size() > spots[k].lacking.size();
            if (all[k][scan] == ECamp::None) all[k][scan] = isShown ? ECamp::Showing : ECamp::Lacking;
        }
    }
}

bool areOpposed(std::span<const Camps> spots, std::size_t a, std::size_t b)
{
    return std::ranges::any_of(
        spots, [&](const Camps& camps) { return isSaid(camps[a]) && isSaid(camps[b]) && camps[a] != camps[b]; });
}

/// Both are on one side of a spot, and of none on different ones.
bool areTogether(std::span<const Camps> spots, std::size_t a, std::size_t b)
{
    return !areOpposed(spots, a, b) &&
           std::ranges::any_of(spots, [&](const Camps& camps) { return isSaid(camps[a]) && camps[a] == camps[b]; });
}

/// Scans that come together along others may be opposed where there are three objects: those leave, the most opposed
/// first.
void takeOutOpposed(std::span<const Camps> spots, std::vector<std::size_t>& members)
{
    while (true) {
        std::size_t most = 0;
        std::size_t worst = 0;
        for (const std::size_t scan : members) {
            const auto count = static_cast<std::size_t>(
                std::ranges::count_if(members, [&](std::size_t other) { return areOpposed(spots, scan, other); }));
            if (count == 0 || count < most) continue;
            most = count;
            worst = scan;
        }
        if (most == 0) return;
        std::erase(members, worst);
    }
}

} // namespace

std::vector<std::optional<std::size_t>> DivideByCamps(std::span<const DisputedSpot> spots, std::size_t numScans)
{
    if (spots.empty()) return std::vector<std::optional<std::size_t>>(numScans, std::size_t{0});
    std::vector<Camps> camps;
    for (const DisputedSpot& spot : spots) camps.push_back(campsOf(spot, numScans));
    if (std::ranges::all_of(spots, isLopsided)) addTheRest(spots, camps);
    Zorvan::CDisjointSets groups(static_cast<unsigned>(numScans));
    for (unsigned a = 0; a < numScans; ++a)
        for (unsigned b = 0; b < a; ++b)
            if (areTogether(camps, a, b)) groups.Unify(b, a);
    std::vector<std::optional<std::size_t>> answer(numScans);
    for (const auto& group : groups) {
        std::vector<std::size_t> members(group.begin(), group.end());
        takeOutOpposed(camps, members);
        if (members.size() < 2) continue;
        for (const std::size_t scan : members) answer[scan] = members.front();
    }
    return answer;
}

} // namespace prereg
