// SPDX-License-Identifier: MIT
#include "zorvan/workflow/arranger.h"

#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/jointarrangement.h"
#include "zorvan/workflow/layinganew.h"
#include "zorvan/workflow/placingtogether.h"
#include "zorvan/workflow/twincamps.h"

#include <algorithm>
#include <map>
#include <utility>

namespace prereg {

namespace {

using Numbers = std::map<UniversalUniqueID, std::size_t>;

Numbers numbersOf(const std::vector<UniversalUniqueID>& ids)
{
    Numbers numbers;
    for (std::size_t i = 0; i < ids.size(); ++i) numbers[ids[i]] = i;
    return numbers;
}

std::vector<CClusterRegistration::Trafos> posesOfClusters(const CClusterRegistration& registration)
{
    std::vector<CClusterRegistration::Trafos> clusters;
    for (const UniversalUniqueID& id : registration.GetClusterIDs())
        clusters.push_back(registration.GetTrafos(id, false));
    return clusters;
}

} // namespace

CArranger::CArranger(const CSession& session, const CSession::Group& group, EPairEffort eEffort)
    : m_pairs(session, group), m_eEffort(eEffort)
{
    for (const CSession::ScanFile& file : session.GetFiles()) m_ids.push_back(file.id);
    m_placing = Placing::Apart(m_ids.size());
    takeKnown(session.GetKnownPairs());
}

void CArranger::takeKnown(const KnownPairs& known)
{
    const Numbers numbers = numbersOf(m_ids);
    for (const auto& [ids, pair] : known) {
        const auto first = numbers.find(ids.first);
        const auto second = numbers.find(ids.second);
        if (first == numbers.end() || second == numbers.end() || first->second >= second->second) continue;
        const ScanPair scans{first->second, second->second};
        if (m_pairs.HaveStarts(scans)) continue;
        m_placing.searched.push_back(scans);
        m_placing.findings.push_back(pair.finding);
        if (pair.isSettled) m_placing.settled.insert(scans);
    }
    m_numKnown = m_placing.searched.size();
}

KnownPairs CArranger::GetKnownPairs() const
{
    KnownPairs known;
    for (std::size_t i = 0; i < m_placing.searched.size(); ++i) {
        const ScanPair& pair = m_placing.searched[i];
        if (m_pairs.HaveStarts(pair)) continue;
        known.insert_or_assign({m_ids[pair.first], m_ids[pair.second]},
                               KnownPair{m_placing.findings[i], m_placing.settled.contains(pair)});
    }
    return known;
}

std::vector<CClusterRegistration::Trafos> CArranger::Arrange(const CClusterRegistration::ClusterContents& clusters,
                                                             const Zorvan::Hooks& hooks)
{
    std::vector<CClusterRegistration::Trafos> current;
    for (const auto& [id, entities] : clusters) {
        auto& cluster = current.emplace_back();
        for (const auto& [entity, pose, start, set] : entities) cluster[entity] = pose;
    }
    take(current);
    m_placing = PlaceScans(m_pairs, std::move(m_placing), hooks, m_eEffort);
    return clustersOf(m_placing);
}

bool CArranger::ArrangeAnew(CClusterRegistration& registration, const Zorvan::Hooks& hooks)
{
    take(posesOfClusters(registration));
    if (!StartJointly(m_pairs, m_placing, hooks)) return false;
    apply(registration);
    return true;
}

void CArranger::ArrangeTogether(CClusterRegistration& registration, const Zorvan::Hooks& hooks)
{
    take(posesOfClusters(registration));
    const std::vector<std::size_t> before = m_placing.group;
    const bool isLaid = LayAnew(m_pairs, m_placing, hooks);
    m_placing = PlaceTogether(m_pairs, std::move(m_placing), hooks);
    const bool isUnsure = !hooks.IsAborted() && TakeOutUnsure(m_pairs, m_placing, hooks);
    const bool isRefined = RefineGroups(m_pairs, m_placing, hooks);
    if (isLaid || isUnsure || isRefined || m_placing.group != before) apply(registration);
}

bool CArranger::FindsFault(const CClusterRegistration& registration)
{
    const std::vector<CClusterRegistration::Trafos> clusters = posesOfClusters(registration);
    take(clusters);
    const std::vector<PairStanding> pairs = GetPairs();
    const auto isSaid = [](const PairStanding& pair, EEvidence eEvidence) {
        return pair.isTogether && pair.evidence.eEvidence == eEvidence;
    };
    const bool isSupported =
        std::ranges::any_of(pairs, [&](const PairStanding& pair) { return isSaid(pair, EEvidence::Supports); });
    const auto isFault = [&](const PairStanding& pair) {
        const auto meet = [&] {
            const CTrafo toFirst = m_placing.poses[pair.pair.first].GetInverse(true);
            return m_pairs.MeetAt(pair.pair, toFirst * m_placing.poses[pair.pair.second]);
        };
        return isSaid(pair, EEvidence::Refutes) && (isSupported || !meet());
    };
    return clusters.size() > 1 || std::ranges::any_of(pairs, isFault);
}

std::vector<Dispute> CArranger::Divide(CClusterRegistration& registration)
{
    take(posesOfClusters(registration));
    const std::vector<PairStanding> pairs = GetPairs();
    std::vector<Dispute> all;
    for (const std::size_t name : m_placing.Names()) {
        const std::vector<std::size_t> members = m_placing.MembersOf(name);
        if (members.size() < 2 * verdict::uiMinCamp) continue;
        const std::vector<DisputedSpot> spots = m_pairs.FindDisputes(members, m_placing.poses, pairs);
        if (spots.empty()) continue;
        const std::vector<std::size_t> leftOut = divide(members, spots);
        const std::vector<Dispute> disputes = DisputesOf(spots, members, m_placing.poses, leftOut);
        all.insert(all.end(), disputes.begin(), disputes.end());
    }
    if (all.empty()) return all;
    apply(registration);
    return all;
}

std::string CArranger::Words(std::span<const PairStanding> pairs) const
{
    const auto countOf = [&](EEvidence eEvidence) {
        return std::to_string(std::ranges::count_if(
            pairs, [&](const PairStanding& pair) { return pair.isTogether && pair.evidence.eEvidence == eEvidence; }));
    };
    const std::set<ScanPair> now(m_placing.searched.begin() + static_cast<std::ptrdiff_t>(m_numKnown),
                                 m_placing.searched.end());
    const std::set<ScanPair> all(m_placing.searched.begin(), m_placing.searched.end());
    std::string words =
        std::to_string(all.size()) + " of " + std::to_string(m_ids.size() * (m_ids.size() - 1) / 2) + " pairs searched";
    if (all.size() > now.size()) words += ", " + std::to_string(all.size() - now.size()) + " of these in earlier runs";
    return words + "; " + countOf(EEvidence::Supports) + " support the poses, " + countOf(EEvidence::Refutes) +
           " refute them, " + std::to_string(CountLoops(pairs, m_ids.size())) + " loops closed";
}

void CArranger::apply(CClusterRegistration& registration) const
{
    registration.SetArranger([&](const auto&, const Zorvan::Hooks&) { return clustersOf(m_placing); });
    registration.Run();
    registration.SetArranger({});
}

std::vector<CClusterRegistration::Trafos> CArranger::clustersOf(const Placing& placing) const
{
    std::map<std::size_t, CClusterRegistration::Trafos> groups;
    for (std::size_t i = 0; i < m_ids.size(); ++i) groups[placing.group[i]][m_ids[i]] = placing.poses[i];
    std::vector<CClusterRegistration::Trafos> answer;
    answer.reserve(groups.size());
    for (auto& [name, group] : groups) answer.push_back(std::move(group));
    return answer;
}

std::vector<std::size_t> CArranger::divide(const std::vector<std::size_t>& members, std::span<const DisputedSpot> spots)
{
    std::vector<std::size_t> leftOut;
    const auto groups = DivideByCamps(spots, members.size());
    for (std::size_t k = 0; k < members.size(); ++k) {
        m_placing.group[members[k]] = members[groups[k].value_or(k)];
        ScanPlace& place = m_placing.places[members[k]];
        place = {groups[k] ? EPlace::Placed : EPlace::Ambiguous};
        place.isOfEither = !groups[k];
        if (!groups[k]) leftOut.push_back(members[k]);
    }
    return leftOut;
}

void CArranger::take(const std::vector<CClusterRegistration::Trafos>& clusters)
{
    const Numbers numbers = numbersOf(m_ids);
    for (const CClusterRegistration::Trafos& cluster : clusters) {
        std::size_t name = m_ids.size();
        for (const auto& [entity, pose] : cluster) name = std::min(name, numbers.at(entity));
        for (const auto& [entity, pose] : cluster) {
            m_placing.group[numbers.at(entity)] = name;
            m_placing.poses[numbers.at(entity)] = pose;
        }
    }
}

} // namespace prereg
