// SPDX-License-Identifier: MIT
#include "zorvan/workflow/jointarrangement.h"

#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/layinganew.h"
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
constexpr std::size_t uiMostWaiting = 3;
/// Starts that bring more than half of the scans together.
constexpr std::size_t uiEnoughStarts = 3;

/// Scans where they may lie together.
struct Arrangement
{
    Members members;           ///< ascending
    std::vector<CTrafo> poses; ///< of all scans; those of the members count
    PoseCounts counts;         ///< of all pairs
    bool isOpen = false;       ///< some scan need not share surface with those before it: matches are no measure
    bool isLaid = false;       ///< no scan slides any more

    [[nodiscard]] PlacedGroup Group() const { return {members, &poses}; }
    [[nodiscard]] bool Has(std::size_t scan) const { return std::ranges::binary_search(members, scan); }

    [[nodiscard]] Arrangement With(std::size_t scan, const Hypothesis& place) const
    {
        Arrangement more = *this;
        more.members.insert(std::ranges::lower_bound(more.members, scan), scan);
        more.poses[scan] = Rigid(place.pose * poses[scan]);
        more.counts += place.counts;
        more.isLaid = false;
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

/// Looks for arrangements that explain all scans.
class CJointSearch
{
public:
    CJointSearch(IScanPairs& pairs, const Placing& placing, const Zorvan::Hooks& hooks)
        : m_pairs(pairs), m_hooks(hooks), m_numScans(placing.group.size()), m_weigher(pairs, placing)
    {
    }

    [[nodiscard]] const CPlacingWeigher& GetWeigher() const { return m_weigher; }

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
            pool = withoutRuledOut(pool, EStage::Final);
        }
        m_hooks.Finish();
        pool = laidAnew(pool);
        return m_hooks.IsAborted() ? Arrangements() : pool;
    }

    /// The largest part of the first one that lies the same way in all of them.
    /// @param isEachAsked  false: one that has not placed a scan has no say of it
    [[nodiscard]] Arrangement Agreed(const Arrangements& arrangements, bool isEachAsked = true) const
    {
        if (arrangements.empty()) return {};
        Arrangement largest = arrangements.front();
        largest.members.clear();
        for (const std::size_t scan : arrangements.front().members) {
            Members members = agreedWith(scan, arrangements, isEachAsked);
            if (members.size() > largest.members.size()) largest.members = std::move(members);
        }
        return largest;
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
                   (!pool.empty() && isRuledOut(arrangement, pool.front(), false));
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
        order.resize(std::min(order.size(), uiMostWaiting));
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
        return leftOf(all, [&](const Arrangement& arrangement, const Arrangement& beside) {
            return isRuledOut(arrangement, beside, eStage == EStage::Final || !arrangement.isOpen);
        });
    }

    template <class RulesOut>
    [[nodiscard]] static Arrangements leftOf(const Arrangements& all, const RulesOut& isOut)
    {
        Arrangements left;
        for (const Arrangement& arrangement : all) {
            const auto rulesOut = [&](const Arrangement& other) { return isOut(arrangement, other); };
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
        const Members common = commonOf(arrangement, beside);
        return AreRuledOut(m_weigher.Counts({common, &arrangement.poses}), m_weigher.Counts({common, &beside.poses}),
                           isByMatches);
    }

    /// What is left where scans lie exactly: while they slide, the right ones contradict each other by hundreds, and
    /// then hardly at all.
    [[nodiscard]] Arrangements laidAnew(const Arrangements& pool) const
    {
        if (pool.size() < 2) return pool;
        Arrangements laid;
        std::ranges::copy_if(pool, std::back_inserter(laid), &Arrangement::isLaid);
        for (const Arrangement& arrangement : pool)
            if (!arrangement.isLaid && !m_hooks.IsAborted()) laid.push_back(laidAnew(arrangement, laid));
        return leftOf(laid, [&](const Arrangement& arrangement, const Arrangement& beside) {
            return isRuledOut(arrangement, beside, true) || isRuledOutWhereTheyDiffer(arrangement, beside);
        });
    }

    /// @param laid  others that have been: what most scans share with one of them lies as there
    [[nodiscard]] Arrangement laidAnew(const Arrangement& arrangement, const Arrangements& laid) const
    {
        const Arrangement* like = nullptr;
        Members shared;
        for (const Arrangement& other : laid) {
            Members same = Agreed({other, arrangement}).members;
            if (2 * same.size() <= arrangement.members.size() || same.size() <= shared.size()) continue;
            shared = std::move(same);
            like = &other;
        }
        Arrangement anew = arrangement;
        anew.isLaid = true;
        anew.poses = LaidPoses(m_pairs, m_weigher, arrangement.Group(),
                               {shared, like == nullptr ? &arrangement.poses : &like->poses}, m_hooks);
        anew.counts = m_weigher.Counts(anew.Group());
        if (anew.counts.Score() < arrangement.counts.Score()) return arrangement;
        return like == nullptr ? anew : completed(anew, *like);
    }

    /// With scans that only another one has found places for, if nothing speaks against these.
    /// @param like  most scans lie in the same places there
    [[nodiscard]] Arrangement completed(Arrangement arrangement, const Arrangement& like) const
    {
        for (const std::size_t scan : like.members) {
            if (arrangement.Has(scan)) continue;
            Arrangement more = arrangement;
            more.members.insert(std::ranges::lower_bound(more.members, scan), scan);
            more.poses[scan] = like.poses[scan];
            const PoseCounts counts = m_weigher.Counts(more.Group(), arrangement.members);
            if (AreFewer({}, counts)) continue;
            more.counts += counts;
            arrangement = std::move(more);
        }
        return arrangement;
    }

    /// By what pairs say that do not lie the same way in both.
    [[nodiscard]] bool isRuledOutWhereTheyDiffer(const Arrangement& arrangement, const Arrangement& beside) const
    {
        const Members same = Agreed({arrangement, beside}).members;
        const Members common = commonOf(arrangement, beside);
        return AreRuledOut(m_weigher.Counts({common, &arrangement.poses}, same),
                           m_weigher.Counts({common, &beside.poses}, same));
    }

    [[nodiscard]] static Members commonOf(const Arrangement& a, const Arrangement& b)
    {
        Members common;
        std::ranges::set_intersection(a.members, b.members, std::back_inserter(common));
        return common;
    }

    /// Scans that lie the same way beside one in all of them.
    [[nodiscard]] Members agreedWith(std::size_t scan, const Arrangements& arrangements, bool isEachAsked) const
    {
        const Arrangement& best = arrangements.front();
        Members members;
        for (const std::size_t other : best.members) {
            const auto isSame = [&](const Arrangement& arrangement) {
                if (!arrangement.Has(scan) || !arrangement.Has(other)) return !isEachAsked;
                const CTrafo onto = best.poses[scan] * arrangement.poses[scan].GetInverse(true);
                return !m_pairs.AreDistinct(other, onto * arrangement.poses[other], best.poses[other]);
            };
            if (std::ranges::all_of(arrangements, isSame)) members.push_back(other);
        }
        return members;
    }

    IScanPairs& m_pairs;
    const Zorvan::Hooks& m_hooks;
    std::size_t m_numScans;
    CPlacingWeigher m_weigher;
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
    for (const std::size_t name : std::set<std::size_t>(placing.group.begin(), placing.group.end())) {
        const Members members = placing.MembersOf(name);
        if (members.size() < 2) continue;
        Arrangements all{{members, placing.poses, {}}};
        all.insert(all.end(), arrangements.begin(), arrangements.end());
        const Arrangement sure = search.Agreed(all, false);
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
    const CJointSearch search(pairs, placing, hooks);
    const Arrangements all = search.Find({}, least);
    const Arrangement sure = search.Agreed(all);
    if (sure.members.size() < least) return takeOutDisputed(all, search, placing);
    keepOnly(sure, search.GetWeigher(), placing);
    return true;
}

bool TakeOutUnsure(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    const Members members = placing.LargestGroup();
    if (placing.group.size() > uiMaxScans || members.size() < moreThanHalf(placing)) return false;
    const CJointSearch search(pairs, placing, hooks);
    Arrangement present{members, placing.poses, {}, false, true};
    present.counts = search.GetWeigher().Counts(present.Group());
    // Scans that still slide contradict each other by so much that others slid elsewhere seem as good.
    if (present.counts.Contradiction() > verdict::dTwinContradiction) return false;
    Arrangements all = search.Find({present}, members.size());
    if (all.empty()) return false;
    all.insert(all.begin(), present); // what is better may have ruled it out
    const Arrangement sure = search.Agreed(all);
    if (sure.members == members) return false;
    keepOnly(sure, search.GetWeigher(), placing);
    return true;
}

} // namespace prereg
