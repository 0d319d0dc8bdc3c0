// SPDX-License-Identifier: MIT
#include "zorvan/workflow/jointarrangement.h"

#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/layinganew.h"
#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <functional>
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

    /// Without what is said of it.
    [[nodiscard]] Arrangement With(std::size_t scan, const CTrafo& pose) const
    {
        Arrangement more = *this;
        more.members.insert(std::ranges::lower_bound(more.members, scan), scan);
        more.poses[scan] = pose;
        more.isLaid = false;
        return more;
    }

    [[nodiscard]] Arrangement With(std::size_t scan, const Hypothesis& place) const
    {
        Arrangement more = With(scan, Rigid(place.pose * poses[scan]));
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
          m_weigher(pairs, placing)
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
    [[nodiscard]] Arrangement Agreed(const Arrangements& arrangements) const
    {
        if (arrangements.empty()) return {};
        Arrangement largest = arrangements.front();
        largest.members.clear();
        for (const std::size_t scan : arrangements.front().members) {
            Members members = agreedWith(scan, arrangements);
            if (members.size() > largest.members.size()) largest.members = std::move(members);
        }
        return largest;
    }

    /// The largest part, as far as a start with each scan tells, of which no other one has two scans otherwise.
    [[nodiscard]] Arrangement Undisputed(Arrangement group, const Arrangements& others) const
    {
        const auto isDisputed = [&](std::size_t scan, std::size_t with) {
            return std::ranges::any_of(others, [&](const Arrangement& other) {
                return other.Has(scan) && other.Has(with) && !areAlike(scan, with, group, other);
            });
        };
        Members largest;
        for (const std::size_t first : group.members) {
            Members part{first};
            for (const std::size_t scan : group.members) {
                const auto isWith = [&](std::size_t with) { return with == scan || isDisputed(scan, with); };
                if (std::ranges::none_of(part, isWith)) part.push_back(scan);
            }
            if (part.size() > largest.size()) largest = std::move(part);
        }
        std::ranges::sort(largest);
        group.members = std::move(largest);
        return group;
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
            const std::size_t before = more.size();
            addPlaced(arrangement, scan, more);
            if (more.size() == before) more.push_back(arrangement);
        }
        return eachOnce(withoutRuledOut(more, EStage::Growing));
    }

    void addPlaced(const Arrangement& arrangement, std::size_t scan, Arrangements& more) const
    {
        std::vector<CTrafo> starts;
        for (const Hypothesis& place : m_weigher.StandingPlaces(arrangement.Group(), {{scan}, &arrangement.poses})) {
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

    /// Without what lies as an earlier one: a scan that settles from two sides stops here and there.
    [[nodiscard]] Arrangements eachOnce(const Arrangements& all) const
    {
        Arrangements once;
        for (const Arrangement& arrangement : all) {
            const auto isSame = [&](const Arrangement& other) {
                return other.members == arrangement.members && Agreed({other, arrangement}).members == other.members;
            };
            if (std::ranges::none_of(once, isSame)) once.push_back(arrangement);
        }
        return once;
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
    [[nodiscard]] Arrangements laidAnew(Arrangements pool) const
    {
        if (pool.size() < 2) return pool;
        // What has placed most says where others may have what they lack.
        std::ranges::stable_sort(pool, std::greater(), [](const Arrangement& one) { return one.members.size(); });
        Arrangements laid;
        std::ranges::copy_if(pool, std::back_inserter(laid), &Arrangement::isLaid);
        for (const Arrangement& arrangement : pool)
            if (!arrangement.isLaid && !m_hooks.IsAborted()) laid.push_back(laidAnew(arrangement, laid));
        return eachOnce(leftOf(laid, [&](const Arrangement& arrangement, const Arrangement& beside) {
            return isRuledOut(arrangement, beside, true) || isRuledOutWhereTheyDiffer(arrangement, beside);
        }));
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
            Arrangement more = arrangement.With(scan, like.poses[scan]);
            more.isLaid = true;
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
    [[nodiscard]] Members agreedWith(std::size_t scan, const Arrangements& arrangements) const
    {
        const Arrangement& best = arrangements.front();
        Members members;
        for (const std::size_t other : best.members) {
            const auto isSame = [&](const Arrangement& arrangement) {
                return arrangement.Has(scan) && arrangement.Has(other) && areAlike(scan, other, best, arrangement);
            };
            if (std::ranges::all_of(arrangements, isSame)) members.push_back(other);
        }
        return members;
    }

    /// Whether two scans lie the same way beside each other.
    [[nodiscard]] bool areAlike(std::size_t scan, std::size_t other, const Arrangement& a, const Arrangement& b) const
    {
        const CTrafo onto = a.poses[scan] * b.poses[scan].GetInverse(true);
        return !m_pairs.AreDistinct(other, onto * b.poses[other], a.poses[other]);
    }

    IScanPairs& m_pairs;
    const Zorvan::Hooks& m_hooks;
    EGrowth m_eGrowth;
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
        const Arrangement sure = search.Undisputed({members, placing.poses, {}}, arrangements);
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
    const Arrangement sure = search.Agreed(all);
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
    const Arrangement sure = search.Agreed(all);
    if (sure.members == members) return false;
    keepOnly(sure, search.GetWeigher(), placing);
    return true;
}

} // namespace prereg
