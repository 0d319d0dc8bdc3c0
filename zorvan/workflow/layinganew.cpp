// SPDX-License-Identifier: MIT
#include "zorvan/workflow/layinganew.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using Members = std::vector<std::size_t>;

/// Neighbours that say where a scan may lie: those that match it most.
constexpr std::size_t uiMaxStarts = 5;

/// For one group.
class CLayer
{
public:
    CLayer(const IScanPairs& pairs, const CPlacingWeigher& weigher, const PlacedGroup& present, const PlacedGroup& laid)
        : m_pairs(pairs), m_weigher(weigher), m_present(present), m_laid(laid.members), m_poses(*laid.poses)
    {
    }

    [[nodiscard]] std::vector<CTrafo> Run(const Zorvan::Hooks& hooks)
    {
        Members left;
        std::ranges::set_difference(m_present.members, m_laid, std::back_inserter(left));
        if (left.empty()) return m_poses;
        countMatches();
        hooks.Start("laying anew", 2 * left.size());
        layAll(left, hooks);
        for (const std::size_t scan : left) {
            if (hooks.IsAborted()) break;
            improve(scan);
            hooks.Advance();
        }
        hooks.Finish();
        return m_poses;
    }

private:
    void layAll(Members left, const Zorvan::Hooks& hooks)
    {
        std::map<std::size_t, unsigned> sums; // matches with those that have been laid
        const auto addMatches = [&](std::size_t scan) {
            for (const std::size_t other : left) sums[other] += matches(scan, other);
        };
        for (const std::size_t scan : m_laid) addMatches(scan);
        while (!left.empty() && !hooks.IsAborted()) {
            const std::size_t scan = m_laid.empty() ? firstScan() : nextOf(left, sums);
            if (!m_laid.empty()) lay(scan);
            m_laid.push_back(scan);
            std::erase(left, scan);
            addMatches(scan);
            hooks.Advance();
        }
    }

    /// Of the pairs as they lie now.
    void countMatches()
    {
        std::vector<std::pair<ScanPair, CTrafo>> poses;
        for (const std::size_t a : m_present.members)
            for (const std::size_t b : m_present.members)
                if (a < b && m_pairs.MayMeet({a, b}, between(a, b))) poses.emplace_back(ScanPair{a, b}, between(a, b));
        const std::vector<PairEvidence> said = m_pairs.Weigh(poses);
        for (std::size_t i = 0; i < said.size(); ++i) m_matches[poses[i].first] = said[i].counts.uiMatched;
    }

    /// The present pose of the second scan in the frame of the first one.
    [[nodiscard]] CTrafo between(std::size_t a, std::size_t b) const
    {
        return m_present.PoseOf(a).GetInverse(true) * m_present.PoseOf(b);
    }

    [[nodiscard]] unsigned matches(std::size_t a, std::size_t b) const
    {
        const auto found = m_matches.find({std::min(a, b), std::max(a, b)});
        return found == m_matches.end() ? 0U : found->second;
    }

    /// Of the pair that matches most.
    [[nodiscard]] std::size_t firstScan() const
    {
        const auto most = std::ranges::max_element(m_matches, {}, [](const auto& pair) { return pair.second; });
        return most == m_matches.end() ? m_present.members.front() : most->first.first;
    }

    [[nodiscard]] static std::size_t nextOf(const Members& left, std::map<std::size_t, unsigned>& sums)
    {
        return *std::ranges::max_element(left, {}, [&](std::size_t scan) { return sums[scan]; });
    }

    void lay(std::size_t scan)
    {
        Members near = m_laid;
        std::ranges::stable_sort(near,
                                 [&](std::size_t a, std::size_t b) { return matches(scan, a) > matches(scan, b); });
        near.resize(std::min(near.size(), uiMaxStarts));
        std::vector<CTrafo> starts;
        for (const std::size_t other : near) starts.push_back(m_poses[other] * between(other, scan));
        m_poses[scan] = settle(scan, starts, m_laid);
    }

    /// Where it explains the scans best; the first start where none is any good.
    [[nodiscard]] CTrafo settle(std::size_t scan, const std::vector<CTrafo>& starts, const Members& others) const
    {
        const PlacedGroup group{others, &m_poses};
        const std::vector<PoseAmong> settled = m_pairs.Settle(scan, starts, group.PosesBeside(scan));
        const auto best = std::ranges::max_element(settled, {}, [](const PoseAmong& at) { return at.counts.Score(); });
        return best == settled.end() || !best->pose ? starts.front() : best->pose;
    }

    void improve(std::size_t scan)
    {
        const PlacedGroup group{m_present.members, &m_poses};
        const double before = m_weigher.Score(group, scan);
        const CTrafo settled = settle(scan, {m_poses[scan]}, m_present.members);
        const CTrafo old = std::exchange(m_poses[scan], settled);
        if (m_weigher.Score(group, scan) <= before) m_poses[scan] = old;
    }

    const IScanPairs& m_pairs;
    const CPlacingWeigher& m_weigher;
    PlacedGroup m_present;
    Members m_laid; ///< up to now
    std::vector<CTrafo> m_poses;
    std::map<ScanPair, unsigned> m_matches;
};

bool layGroup(const IScanPairs& pairs, const CPlacingWeigher& weigher, const Members& members, Placing& placing,
              const Zorvan::Hooks& hooks)
{
    const PlacedGroup present{members, &placing.poses};
    const PoseCounts counts = weigher.Counts(present);
    if (!AreFewer({}, counts)) return false;
    const std::vector<CTrafo> poses = LaidPoses(pairs, weigher, present, {{}, present.poses}, hooks);
    if (hooks.IsAborted()) return false;
    const PoseCounts laid = weigher.Counts({members, &poses});
    if (!AreFewer(laid, counts) || laid.Score() < counts.Score()) return false;
    for (const std::size_t scan : members) placing.poses[scan] = poses[scan];
    return true;
}

} // namespace

std::vector<CTrafo> LaidPoses(const IScanPairs& pairs, const CPlacingWeigher& weigher, const PlacedGroup& group,
                              const PlacedGroup& laid, const Zorvan::Hooks& hooks)
{
    return CLayer(pairs, weigher, group, laid).Run(hooks);
}

bool LayAnew(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    constexpr std::size_t uiLeast = 3; // two have been judged by themselves
    const CPlacingWeigher weigher(pairs, placing);
    bool isAny = false;
    for (const std::size_t name : placing.Names()) {
        const Members members = placing.MembersOf(name);
        if (hooks.IsAborted() || members.size() < uiLeast) continue;
        isAny = layGroup(pairs, weigher, members, placing, hooks) || isAny;
    }
    return isAny;
}

bool RefineGroups(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks)
{
    const CPlacingWeigher weigher(pairs, placing);
    bool isAny = false;
    for (const std::size_t name : placing.Names()) {
        const Members members = placing.MembersOf(name);
        if (hooks.IsAborted() || members.size() < 2) continue;
        std::vector<std::pair<std::size_t, CTrafo>> scans;
        for (const std::size_t scan : members) scans.emplace_back(scan, placing.poses[scan]);
        const std::vector<CTrafo> refined = pairs.RefineJointly(scans);
        std::vector<CTrafo> poses = placing.poses;
        for (std::size_t k = 0; k < members.size(); ++k) poses[members[k]] = refined[k];
        if (AreFewer(weigher.Counts({members, &placing.poses}), weigher.Counts({members, &poses}))) continue;
        placing.poses = poses;
        isAny = true;
    }
    return isAny;
}

} // namespace prereg
