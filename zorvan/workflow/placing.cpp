// SPDX-License-Identifier: MIT
#include "zorvan/workflow/placing.h"

#include "zorvan/workflow/placinggroups.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// One call of PlaceScans.
class CPlacer
{
public:
    CPlacer(IScanPairs& pairs, Placing start, const Zorvan::Hooks& hooks)
        : m_pairs(pairs), m_hooks(hooks), m_state(std::move(start)), m_weigher(pairs)
    {
        for (std::size_t i = 0; i < m_state.searched.size(); ++i)
            m_weigher.AddFinding(m_state.searched[i], m_state.findings[i]);
    }

    Placing Run()
    {
        m_hooks.Start("registering", std::max<std::size_t>(m_state.group.size(), 1) - 1);
        takeOutRefuted();
        while (!m_hooks.IsAborted() && (joinBest() || searchMore() || reviseOne() || recheckOne())) {
        }
        m_hooks.Finish();
        sayWhatBecame();
        return std::move(m_state);
    }

private:
    [[nodiscard]] Members names() const
    {
        std::set<std::size_t> all(m_state.group.begin(), m_state.group.end());
        return {all.begin(), all.end()};
    }

    [[nodiscard]] PlacedGroup groupOf(std::size_t name) const { return {m_state.MembersOf(name), &m_state.poses}; }

    // Joining -------------------------------------------------------------------------------------------------------

    /// The best of all joins that stand. @return whether there was one
    bool joinBest()
    {
        std::optional<std::pair<ScanPair, JoinDecision>> best;
        const Members all = names();
        for (const std::size_t b : all) {
            for (const std::size_t a : all) {
                if (a >= b) break;
                const JoinDecision& decision = decide(a, b);
                if (!decision || (best && best->second.dScore >= decision.dScore)) continue;
                best = {{a, b}, decision};
            }
        }
        if (!best) return false;
        join(best->first.first, best->first.second, best->second.pose);
        m_hooks.Advance();
        return true;
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
            m_state.poses[scan] = pose * m_state.poses[scan];
            m_state.group[scan] = a;
        }
    }

    void takeOut(std::size_t scan)
    {
        Members rest = m_state.MembersOf(m_state.group[scan]);
        std::erase(rest, scan);
        for (const std::size_t other : rest) m_state.group[other] = rest.front();
        m_state.group[scan] = scan;
        m_decisions.clear(); // poses within groups of the same members may be others from now on
    }

    // Searching -----------------------------------------------------------------------------------------------------

    /// The next few pairs: neighbours in the list first, all cheaply before any thoroughly; none that would say no more
    /// than another one of the batch. The size does not depend on the threads, so that neither does the result.
    bool searchMore()
    {
        constexpr std::size_t uiBatch = 8;
        for (const bool isThorough : {false, true}) {
            std::vector<ScanPair> batch;
            Members linked = m_state.group;
            for (std::size_t step = 1; step < linked.size() && batch.size() < uiBatch; ++step) {
                for (std::size_t a = 0; a + step < linked.size() && batch.size() < uiBatch; ++a) {
                    const ScanPair pair{a, a + step};
                    if (linked[pair.first] == linked[pair.second] || !isOpen(pair, isThorough)) continue;
                    std::replace(linked.begin(), linked.end(), std::size_t{linked[pair.second]},
                                 std::size_t{linked[pair.first]});
                    batch.push_back(pair);
                }
            }
            if (batch.empty()) continue;
            search(batch, isThorough);
            return true;
        }
        return false;
    }

    [[nodiscard]] bool isOpen(ScanPair pair, bool isThorough) const
    {
        const auto effort = m_searched.find(pair);
        if (effort == m_searched.end()) return isThorough || m_pairs.IsWorthAGlance(pair);
        return isThorough && !effort->second;
    }

    void search(const std::vector<ScanPair>& batch, bool isThorough)
    {
        const std::vector<PairFinding> found = m_pairs.Search(batch, isThorough, m_hooks);
        for (std::size_t i = 0; i < found.size(); ++i) {
            m_searched[batch[i]] = isThorough || found[i].IsAligned();
            m_weigher.AddFinding(batch[i], found[i]);
            m_state.searched.push_back(batch[i]);
            m_state.findings.push_back(found[i]);
        }
    }

    // Undoing -------------------------------------------------------------------------------------------------------

    /// Takes out what the others refute, the worst first.
    void takeOutRefuted()
    {
        for (const std::size_t name : names()) {
            Members members = m_state.MembersOf(name);
            while (members.size() > 1) {
                const auto worst = m_weigher.FindRefuted({members, &m_state.poses});
                if (!worst) break;
                takeOut(*worst);
                std::erase(members, *worst);
            }
        }
    }

    /// A group that some members of another one refute, though an aligned pair links them: tries it without these, and
    /// keeps what all pairs together say more for.
    bool reviseOne()
    {
        const Members all = names();
        for (const std::size_t a : all) {
            for (const std::size_t b : all) {
                if (a == b) continue;
                const auto key = std::pair{m_state.MembersOf(a), m_state.MembersOf(b)};
                if (!m_revised.insert(key).second) continue;
                for (const Hypothesis& hypothesis : m_weigher.Hypotheses(groupOf(a), groupOf(b)))
                    if (hypothesis.isAligned && !hypothesis.refuters.empty() && revise(a, b, hypothesis)) return true;
            }
        }
        return false;
    }

    bool revise(std::size_t a, std::size_t b, const Hypothesis& hypothesis)
    {
        const Members first = m_state.MembersOf(a);
        if (hypothesis.refuters.size() >= first.size()) return false;
        const Placing before = m_state;
        const double scoreBefore = score();
        const std::size_t joined = m_state.group[b];
        for (const std::size_t refuter : hypothesis.refuters) takeOut(refuter);
        Members rest = first;
        for (const std::size_t refuter : hypothesis.refuters) std::erase(rest, refuter);
        join(rest.front(), joined, hypothesis.pose);
        takeOutRefuted();
        while (joinBest()) {
        }
        if (score() > scoreBefore && numAlone(m_state) <= numAlone(before)) return true;
        m_state = before;
        m_decisions.clear();
        return false;
    }

    [[nodiscard]] static std::size_t numAlone(const Placing& placing)
    {
        std::size_t alone = 0;
        for (const std::size_t name : placing.group)
            alone += std::count(placing.group.begin(), placing.group.end(), name) == 1;
        return alone;
    }

    /// What all pairs that lie in a common frame say, matches against contradictions.
    [[nodiscard]] double score() const
    {
        double sum = 0.0;
        for (const std::size_t name : names()) sum += m_weigher.Score(groupOf(name));
        return sum;
    }

    /// Asks of each scan whether the others would put it where it is. One that they would put elsewhere moves there;
    /// one that has several places is taken out, as it came in when less was known. @return whether any moved
    bool recheckOne()
    {
        for (std::size_t scan = 0; scan < m_state.group.size(); ++scan) {
            Members rest = m_state.MembersOf(m_state.group[scan]);
            if (rest.size() < 3 || !m_rechecked.insert({scan, rest}).second) continue;
            std::erase(rest, scan);
            const JoinDecision decision = m_weigher.Decide({rest, &m_state.poses}, {{scan}, &m_state.poses}, CTrafo());
            if (decision && !m_pairs.AreDistinct(scan, decision.pose * m_state.poses[scan], m_state.poses[scan]))
                continue;
            if (!decision && decision.place.ePlace != EPlace::Ambiguous) continue;
            takeOut(scan);
            if (!decision) continue;
            m_state.poses[scan] = decision.pose * m_state.poses[scan];
            m_state.group[scan] = std::min(scan, rest.front());
            for (const std::size_t other : rest) m_state.group[other] = m_state.group[scan];
            return true;
        }
        return false;
    }

    // Saying --------------------------------------------------------------------------------------------------------

    void sayWhatBecame()
    {
        m_state.places.assign(m_state.group.size(), {});
        for (const std::size_t name : names()) {
            const Members members = m_state.MembersOf(name);
            if (members.size() > 1) {
                for (const std::size_t scan : members) m_state.places[scan].ePlace = EPlace::Placed;
                continue;
            }
            m_state.places[name] = placeOfLoner(name);
        }
    }

    /// Against the largest group that says something.
    [[nodiscard]] ScanPlace placeOfLoner(std::size_t scan)
    {
        ScanPlace said;
        std::size_t size = 0;
        for (const std::size_t name : names()) {
            const Members members = m_state.MembersOf(name);
            if (name == scan || members.size() <= size) continue;
            const ScanPlace place = decide(std::min(name, scan), std::max(name, scan)).place;
            if (place.ePlace != EPlace::Ambiguous && place.ePlace != EPlace::Contradicted) continue;
            said = place;
            size = members.size();
        }
        return said;
    }

    IScanPairs& m_pairs;
    const Zorvan::Hooks& m_hooks;
    Placing m_state;
    CPlacingWeigher m_weigher;
    std::map<ScanPair, bool> m_searched; ///< whether it is done with
    std::map<std::pair<Members, Members>, std::pair<std::size_t, JoinDecision>> m_decisions;
    std::set<std::pair<Members, Members>> m_revised;
    std::set<std::pair<std::size_t, Members>> m_rechecked;
};

} // namespace

IScanPairs::~IScanPairs() = default;

Placing Placing::Apart(std::size_t numScans)
{
    Placing apart;
    for (std::size_t i = 0; i < numScans; ++i) apart.group.push_back(i);
    apart.poses.resize(numScans);
    apart.places.resize(numScans);
    return apart;
}

std::vector<std::size_t> Placing::MembersOf(std::size_t name) const
{
    Members members;
    for (std::size_t i = 0; i < group.size(); ++i)
        if (group[i] == name) members.push_back(i);
    return members;
}

Placing PlaceScans(IScanPairs& pairs, Placing start, const Zorvan::Hooks& hooks)
{
    return CPlacer(pairs, std::move(start), hooks).Run();
}

std::string PlaceWords(const ScanPlace& place, const std::string& refuter)
{
    constexpr std::array<const char*, 6> numbers{"no", "one", "two", "three", "four", "five"};
    switch (place.ePlace) {
    case EPlace::Placed:
        return "placed";
    case EPlace::Ambiguous:
        return "ambiguous: " +
               (place.uiPlaces < numbers.size() ? numbers.at(place.uiPlaces) : std::to_string(place.uiPlaces)) +
               std::string(" places");
    case EPlace::Contradicted:
        return "contradicted by " + refuter;
    case EPlace::Alone:
        return "alone";
    }
    return "";
}

} // namespace prereg
