// SPDX-License-Identifier: MIT
// Bringing the clusters into the order that an arranger says.

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/clusterregistration/cluster.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

namespace prereg {

namespace {

using ID = UniversalUniqueID;
using Trafos = CClusterRegistration::Trafos;
using Clusters = std::map<ID, std::shared_ptr<Cluster>>;

CClusterRegistration::ClusterContents contentsOf(const Clusters& clusters)
{
    CClusterRegistration::ClusterContents contents;
    for (const auto& [id, cluster] : clusters) {
        for (const auto& [entityID, entity] : cluster->entities)
            contents[id].emplace_back(entityID, entity.trafo, entity.preTrafo, entity.GetPointSet());
    }
    return contents;
}

/// Those that the answer leaves out follow, each by itself.
std::vector<Trafos> completed(std::vector<Trafos> groups, const Clusters& clusters)
{
    std::set<ID> known;
    for (const auto& [id, cluster] : clusters)
        for (const auto& [entityID, entity] : cluster->entities) known.insert(entityID);
    std::erase_if(groups, [](const Trafos& group) { return group.empty(); });
    for (const Trafos& group : groups) {
        for (const auto& [id, pose] : group) {
            if (known.erase(id) == 0) throw std::invalid_argument("arrangement: an unknown entity, or one twice");
            if (!pose) throw std::invalid_argument("arrangement: an invalid pose");
        }
    }
    for (const ID& id : known) groups.push_back({{id, CTrafo::Identity()}});
    return groups;
}

std::size_t numShared(const Trafos& group, const Cluster& cluster)
{
    return static_cast<std::size_t>(std::count_if(
        group.begin(), group.end(), [&](const auto& member) { return cluster.entities.contains(member.first); }));
}

/// The free cluster that shares most entities with a group.
std::optional<ID> nearestCluster(const Trafos& group, const Clusters& clusters, const std::set<ID>& taken)
{
    std::optional<ID> nearest;
    std::size_t most = 0;
    for (const auto& [id, cluster] : clusters) {
        const std::size_t shared = taken.contains(id) ? 0 : numShared(group, *cluster);
        if (shared <= most) continue;
        most = shared;
        nearest = id;
    }
    return nearest;
}

/// The old cluster that each group goes on as: the primary one where most of its entities are, then the others, largest
/// groups first; nothing for a group that is new.
std::vector<std::optional<ID>> heirs(const std::vector<Trafos>& groups, const Clusters& clusters, const ID& primary)
{
    std::vector<std::optional<ID>> names(groups.size());
    std::set<ID> taken;
    std::vector<std::size_t> order(groups.size());
    std::iota(order.begin(), order.end(), 0);
    if (const auto place = clusters.find(primary); place != clusters.end()) {
        const auto shares = [&](std::size_t i) { return numShared(groups[i], *place->second); };
        names[*std::max_element(order.begin(), order.end(),
                                [&](std::size_t a, std::size_t b) { return shares(a) < shares(b); })] = primary;
        taken.insert(primary);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return groups[a].size() > groups[b].size(); });
    for (const std::size_t i : order) {
        if (names[i]) continue;
        names[i] = nearestCluster(groups[i], clusters, taken);
        if (names[i]) taken.insert(*names[i]);
    }
    return names;
}

bool isAsItWas(const Trafos& group, const Cluster& cluster)
{
    const auto isSame = [&](const auto& member) {
        const auto found = cluster.entities.find(member.first);
        return found != cluster.entities.end() && (group.size() == 1 || found->second.trafo == member.second);
    };
    return group.size() == cluster.entities.size() && std::all_of(group.begin(), group.end(), isSame);
}

std::map<ID, Entity> allEntities(const Clusters& clusters)
{
    std::map<ID, Entity> all;
    for (const auto& [id, cluster] : clusters) all.insert(cluster->entities.begin(), cluster->entities.end());
    return all;
}

/// @param heir  whose frame the group keeps; null: it floats, or is where the caller said
std::shared_ptr<Cluster> makeCluster(const Trafos& group, const std::map<ID, Entity>& entities, const Cluster* heir)
{
    auto cluster = std::make_shared<Cluster>();
    ID anchor = group.begin()->first;
    CTrafo anchorPose;
    if (heir != nullptr) {
        const auto isOld = [&](const auto& member) { return heir->entities.contains(member.first); };
        anchor = heir->entities.contains(heir->primaryID) && group.contains(heir->primaryID)
                     ? heir->primaryID
                     : std::find_if(group.begin(), group.end(), isOld)->first;
        anchorPose = heir->entities.at(anchor).trafo;
        cluster->clusterTrafo = heir->clusterTrafo;
    } else {
        cluster->clusterTrafo = entities.at(anchor).preTrafo;
    }
    cluster->primaryID = anchor;
    const CTrafo toCluster = anchorPose * group.at(anchor).GetInverse(true);
    const bool isFrameKept = anchorPose == group.at(anchor);
    for (const auto& [id, pose] : group) {
        Entity entity = entities.at(id);
        entity.trafo = isFrameKept ? pose : toCluster * pose;
        cluster->entities[id] = std::move(entity);
    }
    cluster->entities.at(anchor).trafo = anchorPose;
    cluster->mergedPointSetStale = true;
    return cluster;
}

} // namespace

bool CClusterRegistration::arrangeClusters(const Zorvan::Hooks& hooks)
{
    if (m_state.clusters.empty()) return false;
    const std::vector<Trafos> groups =
        completed(m_state.arrange(contentsOf(m_state.clusters), hooks), m_state.clusters);
    const std::vector<std::optional<ID>> names = heirs(groups, m_state.clusters, m_state.primaryClusterID);
    const Clusters before = std::exchange(m_state.clusters, {});
    const std::map<ID, Entity> entities = allEntities(before);
    std::vector<std::shared_ptr<Cluster>> newcomers; // named last, as their names may be those of others
    bool isAnyChanged = false;
    for (std::size_t i = 0; i < groups.size(); ++i) {
        const std::shared_ptr<Cluster> heir = names[i] ? before.at(*names[i]) : nullptr;
        if (heir && isAsItWas(groups[i], *heir)) {
            m_state.clusters[*names[i]] = heir;
            continue;
        }
        isAnyChanged = true;
        const auto cluster = makeCluster(groups[i], entities, heir.get());
        cluster->refreshMergedPointSet(m_state.config, m_state.group);
        for (const auto& [id, pose] : groups[i]) m_state.changes[id] = cluster->GetTrafo(id);
        if (heir)
            m_state.clusters[*names[i]] = cluster;
        else
            newcomers.push_back(cluster);
    }
    for (const auto& cluster : newcomers) insertCluster(cluster->primaryID, cluster);
    if (isAnyChanged) m_state.failedRegistrations.clear();
    return isAnyChanged;
}

} // namespace prereg
