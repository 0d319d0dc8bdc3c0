// SPDX-License-Identifier: MIT
#include "zorvan/workflow/jointstart.h"

#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// More scans have not been searched with each other.
constexpr std::size_t uiMaxScans = 32;
/// A scan that leaves more of them waits until others are in.
constexpr std::size_t uiMaxArrangements = 32;
/// Of scans that wait: the first few match most and tell most.
constexpr std::size_t uiMaxTries = 3;
/// Starts that bring more than half of the scans together.
constexpr std::size_t uiEnoughStarts = 3;

/// Scans where they may lie together.
struct Arrangement
{
    Members members;           ///< ascending
    std::vector<CTrafo> poses; ///< of all scans; those of the members count
    PoseCounts counts;         ///< of all pairs
    bool isOpen = false;       ///< some scan need not share surface with those before it: matches are no measure

    [[nodiscard]] PlacedGroup Group() const { return {members, &poses}; }
    [[nodiscard]] bool Has(std::size_t scan) const { return std::ranges::binary_search(members, scan); }

    [[nodiscard]] Arrangement With(std::size_t scan, const Hypothesis& place) const
    {
        Arrangement more = *this;
        more.members.insert(std::ranges::lower_bound(more.members, scan), scan);
        const CTrafo pose = place.pose * poses[scan];
        more.poses[scan] = CTrafo(pose.GetQuaternion(), pose.GetTranslation()); // a product of many is no rotation
        more.counts += place.counts;
        more.isOpen = isOpen || (place.isOpen && place.uiSupports == 0);
        return more;
    }
};

using Arrangements = std::vector<Arrangement>;

/// While scans come in, matches are no measure for those that are open; in the end half of the matches are missing
/// where half of the scans find no place.
enum class EStage
{
    Growing,
    Final
};

/// One call of StartJointly.
class CJointStart
{
public:
    CJointStart(const IScanPairs& pairs, const CPlacingWeigher& weigher, std::size_t numScans,
                const Zorvan::Hooks& hooks)
        : m_pairs(pairs), m_weigher(weigher), m_numScans(numScans), m_hooks(hooks)
    {
    }

    /// @return what is sure; without members where nothing is
    [[nodiscard]] Arrangement Find() const
    {
        Arrangements pool;
        const std::vector<ScanPair> starts = startPairs();
        std::size_t numComplete = 0;
        m_hooks.Start("starting", starts.size());
        for (const ScanPair& pair : starts) {
            if (numComplete == uiEnoughStarts || m_hooks.IsAborted()) break;
            const Arrangements grown = growFrom(pair, pool);
            m_hooks.Advance();
            if (grown.empty() || 2 * grown.front().members.size() <= m_numScans) continue;
            ++numComplete;
            pool.insert(pool.end(), grown.begin(), grown.end());
            pool = withoutRuledOut(pool, EStage::Final);
        }
        m_hooks.Finish();
        if (m_hooks.IsAborted() || pool.empty()) return {};
        return agreed(pool);
    }

private:
    /// Those that match most first, each scan once.
    [[nodiscard]] std::vector<ScanPair> startPairs() const
    {
        std::vector<std::pair<double, ScanPair>> order;
        for (const auto& [pair, finding] : m_weigher.GetFindings())
            if (!finding.places.empty()) order.emplace_back(-finding.places.front().counts.Score(), pair);
        std::ranges::sort(order);
        std::vector<ScanPair> starts;
        std::set<std::size_t> used;
        for (const auto& [score, pair] : order) {
            if (used.contains(pair.first) || used.contains(pair.second)) continue;
            used.insert({pair.first, pair.second});
            starts.push_back(pair);
        }
        return starts;
    }

    /// @param pool  of earlier starts: what they rule out is followed no further
    [[nodiscard]] Arrangements growFrom(ScanPair pair, const Arrangements& pool) const
    {
        const Arrangement first{{pair.first}, std::vector<CTrafo>(m_numScans), {}, false};
        Arrangements arrangements = withScan({first}, pair.second);
        Members left;
        for (std::size_t scan = 0; scan < m_numScans; ++scan)
            if (scan != pair.first && scan != pair.second) left.push_back(scan);
        while (!arrangements.empty() && !m_hooks.IsAborted() && addOne(arrangements, left)) {
            if (pool.empty()) continue;
            std::erase_if(arrangements,
                          [&](const Arrangement& arrangement) { return isRuledOut(arrangement, pool.front(), false); });
        }
        return arrangements;
    }

    /// The scan that matches the best arrangement most, if it does not leave too many, or one of the next.
    bool addOne(Arrangements& arrangements, Members& left) const
    {
        for (const std::size_t scan : nextFor(arrangements, left)) {
            Arrangements more = withScan(arrangements, scan);
            if (more.size() > uiMaxArrangements) continue;
            arrangements = std::move(more);
            std::erase(left, scan);
            return true;
        }
        return false;
    }

    /// Scans that have places in the best arrangement that leaves any, those that match most first.
    [[nodiscard]] Members nextFor(const Arrangements& arrangements, const Members& scans) const
    {
        std::vector<std::pair<double, std::size_t>> order;
        for (auto at = arrangements.begin(); at != arrangements.end() && order.empty(); ++at) {
            for (const std::size_t scan : scans) {
                const auto places = m_weigher.StandingPlaces(at->Group(), {{scan}, &at->poses});
                if (!places.empty()) order.emplace_back(-places.front().counts.Score(), scan);
            }
        }
        std::ranges::sort(order);
        order.resize(std::min(order.size(), uiMaxTries));
        Members next;
        for (const auto& [score, scan] : order) next.push_back(scan);
        return next;
    }

    /// With a scan in each place that it may have in each; one that has no place for it stays as it is.
    [[nodiscard]] Arrangements withScan(const Arrangements& arrangements, std::size_t scan) const
    {
        Arrangements more;
        for (const Arrangement& arrangement : arrangements) {
            const auto places = m_weigher.StandingPlaces(arrangement.Group(), {{scan}, &arrangement.poses});
            for (const Hypothesis& place : places) more.push_back(arrangement.With(scan, place));
            if (places.empty()) more.push_back(arrangement);
        }
        return withoutRuledOut(more, EStage::Growing);
    }

    /// Those that none of the others rules out, the ones with the fewest contradictions first.
    [[nodiscard]] Arrangements withoutRuledOut(const Arrangements& all, EStage eStage) const
    {
        Arrangements left;
        for (const Arrangement& arrangement : all) {
            const bool isByMatches = eStage == EStage::Final || !arrangement.isOpen;
            const auto rulesOut = [&](const Arrangement& other) { return isRuledOut(arrangement, other, isByMatches); };
            if (std::ranges::none_of(all, rulesOut)) left.push_back(arrangement);
        }
        std::ranges::stable_sort(left, {},
                                 [](const Arrangement& arrangement) { return arrangement.counts.Contradictions(); });
        return left;
    }

    /// By what is said of all scans, or of those that are in both.
    [[nodiscard]] bool isRuledOut(const Arrangement& arrangement, const Arrangement& beside, bool isByMatches) const
    {
        if (AreRuledOut(arrangement.counts, beside.counts, isByMatches)) return true;
        if (arrangement.members == beside.members) return false;
        Members common;
        std::ranges::set_intersection(arrangement.members, beside.members, std::back_inserter(common));
        return AreRuledOut(m_weigher.Counts({common, &arrangement.poses}), m_weigher.Counts({common, &beside.poses}),
                           isByMatches);
    }

    /// The largest part of the best one that lies the same way in all of them.
    [[nodiscard]] Arrangement agreed(const Arrangements& arrangements) const
    {
        Arrangement largest = arrangements.front();
        largest.members.clear();
        for (const std::size_t scan : arrangements.front().members) {
            Members members = agreedWith(scan, arrangements);
            if (members.size() > largest.members.size()) largest.members = std::move(members);
        }
        return largest;
    }

    /// Scans that lie the same way beside one in all of them.
    [[nodiscard]] Members agreedWith(std::size_t scan, const Arrangements& arrangements) const
    {
        const Arrangement& best = arrangements.front();
        Members members;
        for (const std::size_t other : best.members) {
            const auto isSame = [&](const Arrangement& arrangement) {
                if (!arrangement.Has(scan) || !arrangement.Has(other)) return false;
                const CTrafo onto = best.poses[scan] * arrangement.poses[scan].GetInverse(true);
                return !m_pairs.AreDistinct(other, onto * arrangement.poses[other], best.poses[other]);
            };
            if (std::ranges::all_of(arrangements, isSame)) members.push_back(other);
        }
        return members;
    }

    const IScanPairs& m_pairs;
    const CPlacingWeigher& m_weigher;
    std::size_t m_numScans;
    const Zorvan::Hooks& m_hooks;
};

/// Whether scans are more than half of all.
bool areMost(const Members& members, const Placing& placing) { return 2 * members.size() > placing.group.size(); }

/// What was in a group with these scans falls apart: they may have held it elsewhere.
void put(const Arrangement& found, const CPlacingWeigher& weigher, Placing& placing)
{
    std::set<std::size_t> changed;
    for (const std::size_t scan : found.members) changed.insert(placing.group[scan]);
    for (std::size_t scan = 0; scan < placing.group.size(); ++scan)
        if (changed.contains(placing.group[scan])) placing.group[scan] = scan;
    for (const Members& part : weigher.SupportedParts(found.Group())) {
        for (const std::size_t scan : part) {
            placing.group[scan] = part.front();
            placing.poses[scan] = found.poses[scan];
        }
    }
}

} // namespace

bool StartJointly(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    const std::set<std::size_t> names(placing.group.begin(), placing.group.end());
    const auto isOfMost = [&](std::size_t name) { return areMost(placing.MembersOf(name), placing); };
    if (placing.group.size() > uiMaxScans || std::ranges::any_of(names, isOfMost)) return false;
    CPlacingWeigher weigher(pairs);
    for (std::size_t i = 0; i < placing.searched.size(); ++i)
        weigher.AddFinding(placing.searched[i], placing.findings[i]);
    const Arrangement found = CJointStart(pairs, weigher, placing.group.size(), hooks).Find();
    if (!areMost(found.members, placing)) return false;
    put(found, weigher, placing);
    return true;
}

} // namespace prereg
