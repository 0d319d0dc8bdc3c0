// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placing.h"

#include "zorvan/core/rigid.h"
#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// Searches of a scan that finds no place, thorough ones or cheap ones: with all others of 32 scans. One with each of a
/// thousand takes minutes, and for all of them days.
constexpr std::size_t uiMaxSearches = 31;

/// One call of PlaceScans.
class CPlacer
{
public:
    CPlacer(IScanPairs& pairs, Placing start, const Zorvan::Hooks& hooks, EPairEffort eEffort)
        : m_pairs(pairs), m_hooks(hooks), m_eEffort(eEffort), m_state(std::move(start)), m_weigher(pairs)
    {
        for (std::size_t i = 0; i < m_state.searched.size(); ++i) note(m_state.searched[i], m_state.findings[i]);
        for (const ScanPair& pair : m_state.settled) countSettled(pair);
    }

    Placing Run()
    {
        m_hooks.Start("registering", std::max<std::size_t>(m_state.group.size(), 1) - 1);
        takeOutRefuted();
        while (!m_hooks.IsAborted() && (joinBest() || searchMore() || reviseOne() || moveOne() || recheckAny())) {
        }
        takeOutDoubtful();
        takeOutOutvoted();
        m_hooks.Finish();
        sayWhatBecame();
        return std::move(m_state);
    }

private:
    [[nodiscard]] PlacedGroup groupOf(std::size_t name) const { return {m_state.MembersOf(name), &m_state.poses}; }

    // Joining -------------------------------------------------------------------------------------------------------

    /// The best of all joins that stand. @return whether there was one
    bool joinBest()
    {
        std::optional<std::pair<ScanPair, JoinDecision>> best;
        for (const auto& [b, a] : groupsWithPlaces()) {
            const JoinDecision& decision = decide(a, b);
            if (!decision || (best && best->second.dScore >= decision.dScore)) continue;
            best = {{a, b}, decision};
        }
        if (!best) return false;
        join(best->first.first, best->first.second, best->second.pose);
        m_hooks.Advance();
        return true;
    }

    /// Two groups, the later name first, that some pair has places for: of others there is nothing to decide.
    [[nodiscard]] std::set<ScanPair> groupsWithPlaces() const
    {
        std::set<ScanPair> groups;
        for (const auto& [pair, finding] : m_weigher.GetFindings()) {
            const std::size_t a = m_state.group[pair.first];
            const std::size_t b = m_state.group[pair.second];
            if (a != b && !finding.places.empty()) groups.emplace(std::max(a, b), std::min(a, b));
        }
        return groups;
    }

    /// Of two groups as they are; asked for often, weighed once.
    const JoinDecision& decide(std::size_t a, std::size_t b)
    {
        const auto key = std::pair{m_state.MembersOf(a), m_state.MembersOf(b)};
        auto& [numFindings, decision] = m_decisions[key];
        if (numFindings != m_weigher.GetNumFindings(key.first, key.second) + 1) {
            numFindings = m_weigher.GetNumFindings(key.first, key.second) + 1;
            decision = m_weigher.Decide(groupOf(a), groupOf(b));
        }
        return decision;
    }

    void join(std::size_t a, std::size_t b, const CTrafo& pose)
    {
        for (const std::size_t scan : m_state.MembersOf(b)) {
            m_state.poses[scan] = Rigid(pose * m_state.poses[scan]);
            m_state.group[scan] = a;
        }
    }

    void takeOut(std::size_t scan)
    {
        Members rest = m_state.MembersOf(m_state.group[scan]);
        std::erase(rest, scan);
        m_state.group[scan] = scan;
        regroup(rest);
    }

    /// What no pair holds together any more falls apart.
    void regroup(const Members& members)
    {
        for (const Members& part : m_weigher.SupportedParts({members, &m_state.poses}))
            for (const std::size_t scan : part) m_state.group[scan] = part.front();
        m_decisions.clear(); // poses within groups of the same members may be others from now on
    }

    // Searching -----------------------------------------------------------------------------------------------------

    /// The next few pairs, all cheaply before any thoroughly. @return whether there was one
    bool searchMore()
    {
        for (const bool isThorough : {false, true}) {
            if (isThorough && m_eEffort == EPairEffort::Glances) break;
            const std::vector<ScanPair> batch = nextPairs(isThorough);
            if (batch.empty()) continue;
            search(batch, isThorough);
            return true;
        }
        return false;
    }

    /// The likely ones first, then neighbours in the list; none that would say no more than another one of the batch.
    /// The size does not depend on the threads, so that neither does the result.
    [[nodiscard]] std::vector<ScanPair> nextPairs(bool isThorough)
    {
        constexpr std::size_t uiBatch = 8;
        std::vector<ScanPair> batch;
        Members linked = m_state.group;
        const auto consider = [&](ScanPair pair) {
            if (linked[pair.first] == linked[pair.second] || !isOpen(pair, isThorough)) return;
            std::replace(linked.begin(), linked.end(), std::size_t{linked[pair.second]},
                         std::size_t{linked[pair.first]});
            batch.push_back(pair);
        };
        for (const ScanPair& pair : likelyPairs()) {
            if (batch.size() == uiBatch) return batch;
            consider(pair);
        }
        for (std::size_t step = 1; step < linked.size(); ++step) {
            for (std::size_t a = 0; a + step < linked.size(); ++a) {
                if (batch.size() == uiBatch) return batch;
                consider({a, a + step});
            }
        }
        return batch;
    }

    /// By what speaks for them, then by their distance in the list. None where each scan can be searched with all
    /// others: then the order hardly matters.
    const std::vector<ScanPair>& likelyPairs()
    {
        const bool isOfUse = m_state.group.size() > uiMaxSearches + 1 && m_state.Names().size() > 1;
        if (!m_likely.empty() || !isOfUse) return m_likely;
        std::vector<std::tuple<double, std::size_t, ScanPair>> order;
        const LikelyScans likely = m_pairs.FindLikely();
        for (std::size_t a = 0; a < likely.size(); ++a)
            for (const auto& [b, votes] : likely[a])
                if (a < b) order.emplace_back(-votes, b - a, ScanPair{a, b});
        std::ranges::sort(order);
        for (const auto& entry : order) m_likely.push_back(std::get<ScanPair>(entry));
        return m_likely;
    }

    [[nodiscard]] bool isOpen(ScanPair pair, bool isThorough) const
    {
        if (m_state.settled.contains(pair)) return false;
        if (isThorough) return least(m_settled, pair) < uiMaxSearches;
        return !m_weigher.GetFindings().contains(pair) && m_pairs.IsWorthAGlance(pair) && isAffordable(pair);
    }

    /// Of two scans the one that was looked at less may need a place. One of a smaller group needs a place among the
    /// others, and has met enough of these before each of hundreds has been looked at.
    [[nodiscard]] bool isAffordable(ScanPair pair) const
    {
        constexpr std::size_t uiMaxGlances = 8;
        if (m_eEffort == EPairEffort::All) return true;
        if (least(m_looks, pair) >= uiMaxGlances) return false;
        const auto isWithin = [&](std::size_t scan, std::size_t other) {
            return count(m_looks, scan) < uiMaxSearches || sizeOf(scan) > sizeOf(other);
        };
        return isWithin(pair.first, pair.second) && isWithin(pair.second, pair.first);
    }

    /// Of the group of a scan.
    [[nodiscard]] std::ptrdiff_t sizeOf(std::size_t scan) const
    {
        return std::ranges::count(m_state.group, m_state.group[scan]);
    }

    [[nodiscard]] static std::size_t count(const std::map<std::size_t, std::size_t>& counts, std::size_t scan)
    {
        const auto found = counts.find(scan);
        return found == counts.end() ? std::size_t{0} : found->second;
    }

    [[nodiscard]] static std::size_t least(const std::map<std::size_t, std::size_t>& counts, ScanPair pair)
    {
        return std::min(count(counts, pair.first), count(counts, pair.second));
    }

    void countSettled(ScanPair pair)
    {
        ++m_settled[pair.first];
        ++m_settled[pair.second];
    }

    void note(ScanPair pair, const PairFinding& finding)
    {
        ++m_looks[pair.first];
        ++m_looks[pair.second];
        m_weigher.AddFinding(pair, finding);
    }

    void search(const std::vector<ScanPair>& batch, bool isThorough)
    {
        const std::vector<PairFinding> found = m_pairs.Search(batch, isThorough, m_hooks);
        for (std::size_t i = 0; i < found.size(); ++i) {
            if ((isThorough || found[i].IsAligned()) && m_state.settled.insert(batch[i]).second) countSettled(batch[i]);
            note(batch[i], found[i]);
            m_state.searched.push_back(batch[i]);
            m_state.findings.push_back(found[i]);
        }
    }

    // Undoing -------------------------------------------------------------------------------------------------------

    /// Takes out what the others refute, the worst first.
    void takeOutRefuted()
    {
        while (const auto worst = findRefuted()) takeOut(*worst);
    }

    [[nodiscard]] std::optional<std::size_t> findRefuted() const
    {
        for (const std::size_t name : m_state.Names())
            if (const auto worst = m_weigher.FindRefuted(groupOf(name))) return worst;
        return std::nullopt;
    }

    /// An aligned pair that the groups do not agree with: builds its groups anew from that pair, and keeps what all
    /// pairs together say more for. That undoes several joins at once, where each of them holds the others.
    bool reviseOne()
    {
        for (const auto& [pair, finding] : m_weigher.GetFindings()) {
            if (!finding.IsAligned() || isAsFound(pair, finding)) continue;
            const Members first = m_state.MembersOf(m_state.group[pair.first]);
            const Members second = m_state.MembersOf(m_state.group[pair.second]);
            if (!m_revised.insert({pair, first, second}).second) continue;
            if (rebuildFrom(pair, finding.places.front().pose)) return true;
        }
        return false;
    }

    [[nodiscard]] bool isAsFound(ScanPair pair, const PairFinding& finding) const
    {
        const auto [a, b] = pair;
        return m_state.group[a] == m_state.group[b] &&
               !m_pairs.AreDistinct(b, finding.places.front().pose,
                                    m_state.poses[a].GetInverse(true) * m_state.poses[b]);
    }

    /// @return whether it is better than what was there, which stays otherwise
    bool rebuildFrom(ScanPair pair, const CTrafo& pose)
    {
        const auto [a, b] = pair;
        const Placing before = m_state;
        const PoseCounts countsBefore = counts();
        for (std::size_t scan = 0; scan < before.group.size(); ++scan)
            if (before.group[scan] == before.group[a] || before.group[scan] == before.group[b])
                m_state.group[scan] = scan;
        m_decisions.clear();
        join(a, b, m_state.poses[a] * pose * m_state.poses[b].GetInverse(true));
        while (joinBest()) {
        }
        takeOutRefuted();
        if (AreBetter(counts(), countsBefore)) return true;
        m_state = before;
        m_decisions.clear();
        return false;
    }

    /// A scan that another group says more for than its own does goes there. @return whether there was one
    bool moveOne()
    {
        for (std::size_t scan = 0; scan < m_state.group.size(); ++scan) {
            const Members own = m_state.MembersOf(m_state.group[scan]);
            if (own.size() < 2) continue;
            const double held = m_weigher.Score({own, &m_state.poses}, scan);
            for (const std::size_t name : m_state.Names()) {
                const Members others = m_state.MembersOf(name);
                if (name == own.front() || !m_moved.insert({scan, own, others}).second) continue;
                const JoinDecision decision = m_weigher.Decide(groupOf(name), {{scan}, &m_state.poses});
                if (!decision || decision.dScore <= held) continue;
                takeOut(scan);
                join(std::min(name, scan), std::max(name, scan),
                     name < scan ? decision.pose : decision.pose.GetInverse(true));
                return true;
            }
        }
        return false;
    }

    /// What all pairs that lie in a common frame say.
    [[nodiscard]] PoseCounts counts() const
    {
        PoseCounts sum;
        for (const std::size_t name : m_state.Names()) sum += m_weigher.Counts(groupOf(name));
        return sum;
    }

    /// What becomes of scans that the others would put elsewhere.
    enum class ERemedy
    {
        Move,   ///< they go there, or out where they have several places: they came in when less was known
        TakeOut ///< they go out
    };

    /// Asks of each scan, and of scans that hold each other where they are, whether the others would put them where
    /// they are. @return whether any moved
    bool recheckAny(ERemedy eRemedy = ERemedy::Move)
    {
        for (std::size_t scan = 0; scan < m_state.group.size(); ++scan)
            if (recheck({scan}, m_state.MembersOf(m_state.group[scan]), eRemedy)) return true;
        for (const auto& [pair, finding] : m_weigher.GetFindings())
            if (recheckPart(pair, finding, eRemedy)) return true;
        return false;
    }

    /// A place where a pair was found, other than where it is, shows which scans would go there together. Opposite
    /// sides of a box, folded onto each other, are two such parts.
    bool recheckPart(ScanPair pair, const PairFinding& finding, ERemedy eRemedy)
    {
        constexpr std::size_t uiTwoParts = 4; // a part of one scan has been looked at
        const auto [a, b] = pair;
        const Members members = m_state.MembersOf(m_state.group[a]);
        if (m_state.group[a] != m_state.group[b] || members.size() < uiTwoParts) return false;
        if (!m_parted.insert({pair, members}).second) return false;
        for (const PairFinding::Place& place : finding.places) {
            const CTrafo there = m_state.poses[a] * place.pose;
            const bool isKnown = place.isHeld || place.isOpen;
            if (!isKnown || !m_pairs.AreDistinct(b, there, m_state.poses[b])) continue;
            const CTrafo motion = there * m_state.poses[b].GetInverse(true);
            Members part = m_weigher.PartThatGoes({members, &m_state.poses}, a, b, motion);
            if (2 * part.size() > members.size()) part = without(members, part);
            if (part.size() > 1 && recheck(part, members, eRemedy)) return true;
        }
        return false;
    }

    [[nodiscard]] static Members without(const Members& members, const Members& part)
    {
        Members rest;
        std::ranges::set_difference(members, part, std::back_inserter(rest));
        return rest;
    }

    /// Of a part of a group.
    bool recheck(const Members& part, const Members& members, ERemedy eRemedy)
    {
        const Members rest = without(members, part);
        if (rest.empty() || !m_rechecked.insert({part, rest}).second) return false;
        const std::size_t scan = part.front();
        const JoinDecision decision = m_weigher.Decide({rest, &m_state.poses}, {part, &m_state.poses}, CTrafo());
        if (decision && !m_pairs.AreDistinct(scan, decision.pose * m_state.poses[scan], m_state.poses[scan]))
            return false;
        if (!decision && decision.place.ePlace != EPlace::Ambiguous) return false;
        regroup(part);
        regroup(rest);
        if (!decision || eRemedy == ERemedy::TakeOut) return true;
        for (const std::size_t moved : part) m_state.poses[moved] = Rigid(decision.pose * m_state.poses[moved]);
        regroup(members);
        return true;
    }

    /// At the end: what has been rechecked once may have come in again another way. As nothing moves any more, what
    /// stands among the same scans stands.
    void takeOutDoubtful()
    {
        m_rechecked.clear();
        m_parted.clear();
        while (!m_hooks.IsAborted() && recheckAny(ERemedy::TakeOut)) {
        }
    }

    /// Takes out each scan that one pair alone holds where it is, when another one that found it elsewhere says about
    /// as much for that: nobody is left to decide between them. Also where scans around that other place
    /// refute it: on the 400 puzzles of the tests 14 pairs lie wrong otherwise, against 12 at most.
    void takeOutOutvoted()
    {
        for (const auto& [pair, finding] : m_weigher.GetFindings()) {
            if (!finding.IsAligned() || isAsFound(pair, finding)) continue;
            const double rival = finding.places.front().counts.Score();
            for (const auto& [scan, other] : {pair, ScanPair{pair.second, pair.first}}) {
                const PlacedGroup group = groupOf(m_state.group[scan]);
                if (group.members.size() < 2 || m_weigher.CountSupports(group, scan) > 1) continue;
                if (rival >= verdict::dRivalShare * m_weigher.Score(group, scan)) m_outvoted[scan] = other;
            }
        }
        for (const auto& [scan, other] : m_outvoted)
            if (m_state.MembersOf(m_state.group[scan]).size() > 1) takeOut(scan);
    }

    // Saying --------------------------------------------------------------------------------------------------------

    void sayWhatBecame()
    {
        m_state.places.assign(m_state.group.size(), {});
        for (const std::size_t name : m_state.Names()) {
            const Members members = m_state.MembersOf(name);
            if (members.size() > 1) {
                for (const std::size_t scan : members) m_state.places[scan].ePlace = EPlace::Placed;
                continue;
            }
            const auto outvoted = m_outvoted.find(name);
            m_state.places[name] = outvoted == m_outvoted.end() ? placeOfLoner(name)
                                                                : ScanPlace{EPlace::Contradicted, 0, outvoted->second};
            m_state.places[name].uiUntried = numUntried(name);
        }
    }

    /// Where thorough searches have reached their limit.
    [[nodiscard]] std::size_t numUntried(std::size_t scan) const
    {
        if (m_eEffort == EPairEffort::Glances || m_hooks.IsAborted()) return 0;
        const auto settled = m_settled.find(scan);
        if (settled == m_settled.end() || settled->second < uiMaxSearches) return 0;
        return m_state.group.size() - 1 - settled->second;
    }

    /// Against the largest group that says something.
    [[nodiscard]] ScanPlace placeOfLoner(std::size_t scan)
    {
        ScanPlace said;
        std::size_t size = 0;
        for (const auto& [b, a] : groupsWithPlaces()) {
            if (a != scan && b != scan) continue;
            const Members members = m_state.MembersOf(a == scan ? b : a);
            if (members.size() <= size) continue;
            const JoinDecision& decision = decide(a, b);
            const EPlace ePlace = decision.place.ePlace;
            if (ePlace != EPlace::Ambiguous && ePlace != EPlace::Contradicted) continue;
            said = decision.place;
            if (a == scan) said.uiRefuter = decision.uiRefuted;
            size = members.size();
        }
        return said;
    }

    IScanPairs& m_pairs;
    const Zorvan::Hooks& m_hooks;
    EPairEffort m_eEffort;
    Placing m_state;
    CPlacingWeigher m_weigher;
    std::vector<ScanPair> m_likely;               ///< once it was asked for
    std::map<std::size_t, std::size_t> m_looks;   ///< searches of each scan
    std::map<std::size_t, std::size_t> m_settled; ///< pairs of each scan that no search would say more of
    std::map<std::pair<Members, Members>, std::pair<std::size_t, JoinDecision>> m_decisions;
    std::set<std::tuple<ScanPair, Members, Members>> m_revised;
    std::set<std::tuple<std::size_t, Members, Members>> m_moved;
    std::set<std::pair<Members, Members>> m_rechecked;
    std::set<std::pair<ScanPair, Members>> m_parted; ///< pairs whose places have shown the parts of their group
    std::map<std::size_t, std::size_t> m_outvoted;   ///< scans, each with one that found another place for it
};

std::string placesInWords(std::size_t count)
{
    if (count == 1) return "fits in one place, but not for sure";
    constexpr std::array<const char*, 6> numbers{"no", "one", "two", "three", "four", "five"};
    return "fits equally well in " + (count < numbers.size() ? numbers.at(count) : std::to_string(count)) + " places";
}

} // namespace

IScanPairs::~IScanPairs() = default;

std::vector<CTrafo> IScanPairs::Turns(std::size_t) const { return {}; }

std::vector<PoseAmong> IScanPairs::Settle(std::size_t, std::span<const CTrafo> poses,
                                          std::span<const std::pair<std::size_t, CTrafo>>) const
{
    return std::vector<PoseAmong>(poses.size());
}

std::vector<CTrafo> IScanPairs::RefineJointly(std::span<const std::pair<std::size_t, CTrafo>> scans) const
{
    std::vector<CTrafo> poses;
    for (const auto& [scan, pose] : scans) poses.push_back(pose);
    return poses;
}

Placing Placing::Apart(std::size_t numScans)
{
    Placing apart;
    for (std::size_t i = 0; i < numScans; ++i) apart.group.push_back(i);
    apart.poses.resize(numScans);
    apart.places.resize(numScans);
    return apart;
}

std::set<std::size_t> Placing::Names() const { return {group.begin(), group.end()}; }

std::vector<std::size_t> Placing::MembersOf(std::size_t name) const
{
    Members members;
    for (std::size_t i = 0; i < group.size(); ++i)
        if (group[i] == name) members.push_back(i);
    return members;
}

std::vector<std::size_t> Placing::LargestGroup() const
{
    Members largest;
    for (const std::size_t name : Names())
        if (Members members = MembersOf(name); members.size() > largest.size()) largest = std::move(members);
    return largest;
}

Placing PlaceScans(IScanPairs& pairs, Placing start, const Zorvan::Hooks& hooks, EPairEffort eEffort)
{
    return CPlacer(pairs, std::move(start), hooks, eEffort).Run();
}

std::string PlaceWords(const ScanPlace& place, const std::string& refuter)
{
    switch (place.ePlace) {
    case EPlace::Placed:
        return "registered";
    case EPlace::Ambiguous:
        if (place.isOfEither) return "ambiguous: shows too little of where the others differ";
        return "ambiguous: " + placesInWords(place.uiPlaces);
    case EPlace::Contradicted:
        return "contradicted by " + refuter;
    case EPlace::Alone:
        return place.uiUntried == 0 ? "alone" : "alone, not tried with " + std::to_string(place.uiUntried) + " others";
    }
    return "";
}

} // namespace prereg
