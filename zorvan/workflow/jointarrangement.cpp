// SPDX-License-Identifier: MIT
#include "zorvan/workflow/jointarrangement.h"

#include "zorvan/core/rigid.h"
#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/arrangement.h"

#include <algorithm>
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
/// Places of a scan in all arrangements: settling in one takes a tenth of a second.
constexpr std::size_t uiMaxSettled = 64;
/// Of scans that wait: the first few match most and tell most.
constexpr std::size_t uiMostWaiting = 3;
/// Starts that bring more than half of the scans together.
constexpr std::size_t uiEnoughStarts = 3;

/// Where scans that come in are put.
enum class EGrowth
{
    AsFound, ///< as the pairs say: quick, but what slides is soon ruled out
    Exactly  ///< where each fits all that are in
};

/// Looks for arrangements that explain all scans.
class CJointSearch
{
public:
    CJointSearch(IScanPairs& pairs, const Placing& placing, EGrowth eGrowth, const Zorvan::Hooks& hooks)
        : m_pairs(pairs),
          m_hooks(hooks),
          m_eGrowth(eGrowth),
          m_numScans(placing.group.size()),
          m_weigher(pairs, placing),
          m_compare(pairs, m_weigher)
    {
    }

    [[nodiscard]] const CPlacingWeigher& GetWeigher() const { return m_weigher; }
    [[nodiscard]] const CArrangementWeigher& Compare() const { return m_compare; }

    /// What is left of known arrangements and of those that starts from some pairs bring about. None after a stop.
    /// @param uiLeast  scans that an arrangement has to place: one that finds no place for many explains little
    [[nodiscard]] Arrangements Find(Arrangements pool, std::size_t uiLeast) const
    {
        const std::vector<ScanPair> starts = startPairs();
        std::size_t numDone = 0;
        m_hooks.Start("arranging", starts.size());
        for (const ScanPair& pair : starts) {
            if (numDone == uiEnoughStarts || m_hooks.IsAborted()) break;
            Arrangements grown = growFrom(pair, pool, uiLeast);
            m_hooks.Advance();
            std::erase_if(grown, [&](const Arrangement& one) { return one.members.size() < uiLeast; });
            if (grown.empty()) continue;
            ++numDone;
            pool.insert(pool.end(), grown.begin(), grown.end());
            pool = m_compare.WithoutRuledOut(pool, EStage::Final);
        }
        m_hooks.Finish();
        pool = m_compare.LaidAnew(pool, m_hooks);
        return m_hooks.IsAborted() ? Arrangements() : pool;
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

    /// @param pool  what is known already: what its best one rules out is followed no further
    [[nodiscard]] Arrangements growFrom(ScanPair pair, const Arrangements& pool, std::size_t uiLeast) const
    {
        const Arrangement first{{pair.first}, std::vector<CTrafo>(m_numScans), {}};
        Arrangements arrangements = withScan({first}, pair.second);
        Members left;
        for (std::size_t scan = 0; scan < m_numScans; ++scan)
            if (scan != pair.first && scan != pair.second) left.push_back(scan);
        const auto isOfNoUse = [&](const Arrangement& arrangement) {
            return arrangement.members.size() + left.size() < uiLeast ||
                   (!pool.empty() && m_compare.IsRuledOut(arrangement, pool.front(), false));
        };
        while (!arrangements.empty() && !m_hooks.IsAborted() && addOne(arrangements, left))
            std::erase_if(arrangements, isOfNoUse);
        return arrangements;
    }

    /// The scan that matches the best arrangement most, if it does not leave too many, or one of the next.
    bool addOne(Arrangements& arrangements, Members& left) const
    {
        for (const std::size_t scan : nextFor(arrangements, left)) {
            Arrangements more = withScan(arrangements, scan);
            if (more.empty() || more.size() > uiMaxArrangements) continue;
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
        order.resize(std::min(order.size(), uiMostWaiting));
        Members next;
        for (const auto& [score, scan] : order) next.push_back(scan);
        return next;
    }

    /// With a scan in each place that it may have in each; one that has no place for it stays as it is. Nothing where
    /// there are too many places to settle in: of a flange each arrangement has six turns for each scan.
    [[nodiscard]] Arrangements withScan(const Arrangements& arrangements, std::size_t scan) const
    {
        std::vector<std::vector<Hypothesis>> places;
        std::size_t total = 0;
        for (const Arrangement& arrangement : arrangements) {
            places.push_back(m_weigher.StandingPlaces(arrangement.Group(), {{scan}, &arrangement.poses}));
            total += places.back().size();
            if (m_eGrowth == EGrowth::Exactly && total > uiMaxSettled) return {};
        }
        Arrangements more;
        for (std::size_t i = 0; i < arrangements.size(); ++i) {
            const std::size_t before = more.size();
            addPlaced(arrangements[i], scan, places[i], more);
            if (more.size() == before) more.push_back(arrangements[i]);
        }
        return m_compare.EachOnce(m_compare.WithoutRuledOut(more, EStage::Growing));
    }

    void addPlaced(const Arrangement& arrangement, std::size_t scan, const std::vector<Hypothesis>& places,
                   Arrangements& more) const
    {
        std::vector<CTrafo> starts;
        for (const Hypothesis& place : places) {
            const bool isApart = place.isOpen && place.uiSupports == 0; // nothing is there to settle beside
            if (m_eGrowth == EGrowth::AsFound || isApart)
                more.push_back(arrangement.With(scan, place));
            else
                starts.push_back(place.pose * arrangement.poses[scan]);
        }
        if (starts.empty()) return;
        for (const PoseAmong& settled : m_pairs.Settle(scan, starts, arrangement.Group().PosesBeside(scan))) {
            Arrangement with = arrangement.With(scan, Rigid(settled.pose));
            with.counts += m_weigher.Counts(with.Group(), arrangement.members);
            more.push_back(std::move(with));
        }
    }

    IScanPairs& m_pairs;
    const Zorvan::Hooks& m_hooks;
    EGrowth m_eGrowth;
    std::size_t m_numScans;
    CPlacingWeigher m_weigher;
    CArrangementWeigher m_compare;
};

std::size_t moreThanHalf(const Placing& placing) { return placing.group.size() / 2 + 1; }

/// Puts all scans of the groups that some scans are in apart, but these, as far as pairs hold them together.
void keepOnly(const Arrangement& sure, const CPlacingWeigher& weigher, Placing& placing)
{
    std::set<std::size_t> names;
    for (const std::size_t scan : sure.members) names.insert(placing.group[scan]);
    for (std::size_t scan = 0; scan < placing.group.size(); ++scan) {
        if (!names.contains(placing.group[scan])) continue;
        placing.group[scan] = scan;
        placing.places[scan] = {EPlace::Ambiguous, 2};
    }
    for (const std::size_t scan : sure.members) placing.poses[scan] = sure.poses[scan];
    weigher.PutInParts(sure.Group(), placing);
}

/// Takes those scans out of small groups that some arrangement has elsewhere. @return whether there were any
bool takeOutDisputed(const Arrangements& arrangements, const CJointSearch& search, Placing& placing)
{
    if (arrangements.empty()) return false;
    bool isAny = false;
    for (const std::size_t name : placing.Names()) {
        const Members members = placing.MembersOf(name);
        if (members.size() < 2) continue;
        const Arrangement sure = search.Compare().Undisputed({members, placing.poses, {}}, arrangements);
        if (sure.members == members) continue;
        keepOnly(sure, search.GetWeigher(), placing);
        isAny = true;
    }
    return isAny;
}

} // namespace

bool StartJointly(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    const std::size_t least = moreThanHalf(placing);
    if (placing.group.size() > uiMaxScans || placing.LargestGroup().size() >= least) return false;
    const CJointSearch search(pairs, placing, EGrowth::Exactly, hooks);
    const Arrangements all = search.Find({}, least);
    const Arrangement sure = search.Compare().Agreed(all);
    if (sure.members.size() < least) return takeOutDisputed(all, search, placing);
    keepOnly(sure, search.GetWeigher(), placing);
    return true;
}

bool TakeOutUnsure(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    const Members members = placing.LargestGroup();
    if (placing.group.size() > uiMaxScans || members.size() < moreThanHalf(placing)) return false;
    const CJointSearch search(pairs, placing, EGrowth::AsFound, hooks);
    Arrangement present{members, placing.poses, {}, false, true};
    present.counts = search.GetWeigher().Counts(present.Group());
    // Scans that still slide contradict each other by so much that others slid elsewhere seem as good.
    if (present.counts.Contradiction() > verdict::dTwinContradiction) return false;
    Arrangements all = search.Find({present}, members.size());
    if (all.empty()) return false;
    all.insert(all.begin(), present); // what is better may have ruled it out
    const Arrangement sure = search.Compare().Agreed(all);
    if (sure.members == members) return false;
    keepOnly(sure, search.GetWeigher(), placing);
    return true;
}

} // namespace prereg
