// SPDX-License-Identifier: MIT
// Which clusters belong together, told by two scans of theirs.

#include "zorvan/workflow/mergeblocks.h"
#include "zorvan/workflow/sidebyside.h"

#include <algorithm>
#include <map>
#include <utility>

namespace prereg {

namespace {

using Trafos = CClusterRegistration::Trafos;

constexpr std::size_t uiBatch = 8; ///< does not depend on the threads, so that neither does the result
/// Searches in vain between two clusters. Nine of ten pairs with the most votes of their scans do overlap.
constexpr std::size_t uiMaxTries = 8;

/// One call of LinkLikely.
class CLinker
{
public:
    CLinker(std::span<const Trafos> clusters, std::span<const LooseScan> scans, const LikelyScans& likely)
        : m_scans(scans), m_cluster(scans.size()), m_poses(scans.size())
    {
        for (std::size_t i = 0; i < scans.size(); ++i) {
            m_cluster[i] = clusters.size() + i;
            for (std::size_t k = 0; k < clusters.size(); ++k) {
                const auto member = clusters[k].find(scans[i].id);
                if (member == clusters[k].end()) continue;
                m_cluster[i] = k;
                m_poses[i] = member->second;
            }
        }
        for (std::size_t i = 0; i < likely.size(); ++i)
            for (const auto& [other, votes] : likely[i])
                if (i < other) m_open.push_back({votes, i, other});
        std::ranges::stable_sort(m_open, std::ranges::greater{}, &Candidate::dVotes);
    }

    void Run(const ScanSearch& search, const CSession::Group& group, const Zorvan::Hooks& hooks)
    {
        while (!hooks.IsAborted()) {
            const std::vector<Candidate> batch = nextBatch();
            if (batch.empty()) return;
            const std::vector<CTrafo> found = searchAll(batch, search, group, hooks);
            for (std::size_t k = 0; k < batch.size(); ++k) {
                const auto [votes, a, b] = batch[k];
                if (found[k])
                    join(a, b, found[k]);
                else
                    ++m_tries[clustersOf(batch[k])];
            }
        }
    }

    [[nodiscard]] std::vector<Trafos> Clusters() const
    {
        std::map<std::size_t, Trafos> clusters;
        for (std::size_t i = 0; i < m_scans.size(); ++i) clusters[m_cluster[i]][m_scans[i].id] = m_poses[i];
        std::vector<Trafos> several;
        for (auto& [name, cluster] : clusters)
            if (cluster.size() > 1) several.push_back(std::move(cluster));
        return several;
    }

private:
    struct Candidate
    {
        double dVotes;
        std::size_t a;
        std::size_t b;
    };

    [[nodiscard]] std::pair<std::size_t, std::size_t> clustersOf(const Candidate& pair) const
    {
        return std::minmax({m_cluster[pair.a], m_cluster[pair.b]});
    }

    /// The likeliest pairs of different clusters, none that another one of the batch would make needless.
    std::vector<Candidate> nextBatch()
    {
        std::vector<Candidate> batch;
        std::vector<std::size_t> linked = m_cluster;
        std::erase_if(m_open, [&](const Candidate& pair) {
            if (m_cluster[pair.a] == m_cluster[pair.b]) return true;
            if (batch.size() == uiBatch || linked[pair.a] == linked[pair.b]) return false;
            if (const auto tries = m_tries.find(clustersOf(pair));
                tries != m_tries.end() && tries->second >= uiMaxTries)
                return false;
            std::ranges::replace(linked, std::size_t{linked[pair.b]}, std::size_t{linked[pair.a]});
            batch.push_back(pair);
            return true;
        });
        return batch;
    }

    [[nodiscard]] std::vector<CTrafo> searchAll(std::span<const Candidate> batch, const ScanSearch& search,
                                                const CSession::Group& group, const Zorvan::Hooks& hooks) const
    {
        std::vector<CTrafo> found(batch.size(), CTrafo::Invalid());
        std::vector<Work> work;
        for (std::size_t k = 0; k < batch.size(); ++k)
            work.emplace_back([&, k](const Zorvan::Hooks& jobHooks) {
                found[k] = search(m_scans[batch[k].a], m_scans[batch[k].b], jobHooks);
            });
        // Nobody waits for a number of searches.
        RunSideBySide(work, group, Zorvan::Hooks([&hooks] { return hooks.IsAborted(); }));
        return found;
    }

    /// @param pose  of b in the frame of a
    void join(std::size_t a, std::size_t b, const CTrafo& pose)
    {
        const CTrafo frame = m_poses[a] * pose * m_poses[b].GetInverse(true);
        const std::size_t from = m_cluster[b];
        const std::size_t into = m_cluster[a];
        for (std::size_t i = 0; i < m_scans.size(); ++i) {
            if (m_cluster[i] != from) continue;
            const CTrafo moved = frame * m_poses[i];
            // A product of products is no rotation any more.
            m_poses[i] = {moved.GetQuaternion(), moved.GetTranslation()};
            m_cluster[i] = into;
        }
        // What comes with it makes other pairs of these clusters worth a try.
        std::erase_if(m_tries, [&](const auto& tries) {
            const auto [first, second] = tries.first;
            return first == from || second == from || first == into || second == into;
        });
    }

    std::span<const LooseScan> m_scans;
    std::vector<std::size_t> m_cluster; ///< of each scan
    std::vector<CTrafo> m_poses;        ///< of each scan in its cluster
    std::vector<Candidate> m_open;
    std::map<std::pair<std::size_t, std::size_t>, std::size_t> m_tries; ///< by clusters, in vain
};

} // namespace

std::vector<Trafos> LinkLikely(std::span<const Trafos> clusters, std::span<const LooseScan> scans,
                               const LikelyScans& likely, const ScanSearch& search, const CSession::Group& group,
                               const Zorvan::Hooks& hooks)
{
    CLinker linker(clusters, scans, likely);
    linker.Run(search, group, hooks);
    return linker.Clusters();
}

} // namespace prereg
