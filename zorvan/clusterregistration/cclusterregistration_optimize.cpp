// SPDX-License-Identifier: MIT
// Refining clusters, and taking them apart where their entities do not belong together.

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/clusterregistration/cluster.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/runtime/sharedflag.h"

#include <algorithm>

namespace prereg {

namespace {

using Zorvan::CDisjointSets;

const Logging::CLogger logger(L"QAV.ClusterRegistration");

constexpr double zScoreLimit = 3;

CDisjointSets oneClass(std::size_t n)
{
    CDisjointSets classes(static_cast<unsigned>(n));
    for (unsigned k = 1; k < n; ++k) classes.Unify(k - 1, k);
    return classes;
}

} // namespace

CDisjointSets Cluster::OptimizeRegistration(const ConfigurationICP& config, std::mt19937& rng,
                                            const PointSetJobGroup& group, bool computeStatistics,
                                            const Zorvan::Hooks& hooks, bool isFitToPrimary, EDraws eDraws)
{
    const std::vector<UniversalUniqueID> ids = entitiesPrimaryFirst();
    if (ids.empty()) return {};
    ICPPointSetsWithPoses sets;
    for (const UniversalUniqueID& id : ids) {
        const Entity& entity = entities.at(id);
        sets.emplace_back(std::make_shared<const ICPPointSet>(entity.GetPointSet()), entity.trafo);
    }
    const auto [results, classes] =
        ComputeICPRegistration(config, rng, sets, group, zScoreLimit, computeStatistics, hooks, eDraws);
    if (hooks.IsAborted()) {
        logger.Warn(L"rejecting optimization result (aborted computation)");
        return oneClass(ids.size());
    }
    // The results are where the whole comes nearest to its old place, which moves the first set as well.
    const CTrafo back = entities.at(ids[0]).trafo * results[0].GetTrafo().GetInverse(true);
    for (unsigned k = 1; k < ids.size(); ++k) {
        const CTrafo& pose = results[k].GetTrafo();
        entities.at(ids[k]).trafo = isFitToPrimary && classes.SameClass(0, k) ? back * pose : pose;
    }
    return classes;
}

std::vector<UniversalUniqueID> CClusterRegistration::OptimizeRegistration(bool computeStatistics, bool,
                                                                          const bool& abort)
{
    return OptimizeRegistration(computeStatistics, Zorvan::Hooks([&] { return Zorvan::ReadSharedFlag(abort); }));
}

std::vector<UniversalUniqueID> CClusterRegistration::OptimizeRegistration(bool computeStatistics,
                                                                          const Zorvan::Hooks& hooks)
{
    std::vector<UniversalUniqueID> all;
    const std::vector<UniversalUniqueID> ids = GetClusterIDs();
    hooks.Start("optimizing", ids.size());
    for (const UniversalUniqueID& id : ids) {
        const auto parts = OptimizeRegistration(id, computeStatistics, hooks);
        all.insert(all.end(), parts.begin(), parts.end());
        hooks.Advance();
    }
    hooks.Finish();
    return all;
}

std::vector<UniversalUniqueID> CClusterRegistration::OptimizeRegistration(const UniversalUniqueID& clusterID,
                                                                          bool computeStatistics, bool,
                                                                          const bool& abort)
{
    return OptimizeRegistration(clusterID, computeStatistics,
                                Zorvan::Hooks([&] { return Zorvan::ReadSharedFlag(abort); }));
}

std::vector<UniversalUniqueID> CClusterRegistration::OptimizeRegistration(const UniversalUniqueID& clusterID,
                                                                          bool computeStatistics,
                                                                          const Zorvan::Hooks& hooks)
{
    const std::lock_guard lock(m_mutex);
    const auto place = m_state.clusters.find(clusterID);
    if (place == m_state.clusters.end()) {
        logger.Warn(L"cluster %ls not found!", std::wstring(clusterID));
        return {};
    }
    if (hooks.IsAborted()) {
        logger.Warn(L"optimization of cluster %ls aborted!", std::wstring(clusterID));
        return {clusterID};
    }
    const std::shared_ptr<Cluster> cluster = place->second;
    const CDisjointSets classes =
        cluster->OptimizeRegistration(m_state.config.icpConfig, *m_state.rng, m_state.group, computeStatistics, hooks,
                                      m_state.isFitToPrimary, m_state.eDraws);
    m_state.events += bson::element::make_uuid("optimize", &clusterID);
    for (const auto& [id, entity] : cluster->entities) m_state.changes[id] = cluster->GetTrafo(id);
    if (classes.GetNumClasses() < 2) {
        logger.Info(L"optimization of cluster %ls successful", std::wstring(clusterID));
        return {clusterID};
    }
    m_state.clusters.erase(place);
    return takeApart(clusterID, *cluster, classes);
}

std::shared_ptr<Cluster> CClusterRegistration::makePart(const Cluster& whole,
                                                        const std::vector<UniversalUniqueID>& members)
{
    auto part = std::make_shared<Cluster>();
    part->primaryID = members.front();
    part->clusterTrafo = whole.GetTrafo(members.front());
    part->mergedPointSetStale = true;
    const CTrafo toPart = part->clusterTrafo.GetInverse(false);
    for (const UniversalUniqueID& id : members) {
        Entity entity;
        entity.pointSet = whole.entities.at(id).pointSet;
        entity.trafo = toPart * whole.GetTrafo(id);
        entity.preTrafo = CTrafo::Identity();
        part->entities[id] = std::move(entity);
    }
    return part;
}

std::vector<UniversalUniqueID> CClusterRegistration::takeApart(const UniversalUniqueID& clusterID, const Cluster& whole,
                                                               const CDisjointSets& classes)
{
    const std::vector<UniversalUniqueID> ids = whole.entitiesPrimaryFirst();
    std::vector<std::vector<UniversalUniqueID>> parts;
    std::size_t largest = 0;
    for (const auto& oneClass : classes) {
        if (classes.SameClass(*oneClass, classes.GetLargestClassRep())) largest = parts.size();
        auto& members = parts.emplace_back();
        for (const unsigned k : oneClass) members.push_back(ids[k]);
    }

    std::vector<UniversalUniqueID> names(parts.size());
    std::string list;
    const auto add = [&](std::size_t k, const UniversalUniqueID& wanted) {
        const auto part = makePart(whole, parts[k]);
        part->refreshMergedPointSet(m_state.config, m_state.group);
        names[k] = insertCluster(wanted, part);
        resetRegistrationFailures(names[k]);
    };
    // The largest part first, so that no other takes the old name: that of the first entity often is the same.
    add(largest, clusterID);
    for (std::size_t k = 0; k < parts.size(); ++k) {
        if (k != largest) add(k, parts[k].front());
        list +=
            (k > 0 ? ", " : "") + std::string(names[k]).substr(0, 4) + " (" + std::to_string(parts[k].size()) + " e.)";
    }
    logger.Warn(L"optimization of cluster %ls yields %zi clusters: %ls", std::wstring(clusterID), parts.size(),
                bson::convert(list));
    return names;
}

CDisjointSets CClusterRegistration::findOverlaps(const Cluster& cluster) const
{
    CDisjointSets classes(static_cast<unsigned>(cluster.entities.size()));
    unsigned i = 0;
    for (const auto& [id, entity] : cluster.entities) {
        unsigned j = 0;
        for (auto other = cluster.entities.begin(); j < i; ++j, ++other) {
            if (classes.SameClass(i, j)) continue;
            const double overlap = estimateOverlapRatio(entity, other->second);
            if (overlap >= m_state.config.icpConfig.dMinOverlapRatio) classes.Unify(i, j);
        }
        ++i;
    }
    return classes;
}

std::vector<UniversalUniqueID> CClusterRegistration::splitCluster(const UniversalUniqueID& clusterID,
                                                                  std::vector<UniversalUniqueID>&)
{
    const auto place = m_state.clusters.find(clusterID);
    if (place == m_state.clusters.end()) return {};
    const std::shared_ptr<Cluster> whole = place->second;
    m_state.clusters.erase(place);
    const CDisjointSets classes = findOverlaps(*whole);
    if (classes.GetNumClasses() < 2) {
        cullEmptyEntities(*whole);
        if (whole->entities.empty()) return {};
        return {insertCluster(clusterID, whole)};
    }

    std::vector<UniversalUniqueID> ids;
    for (const auto& [id, entity] : whole->entities) ids.push_back(id);
    std::vector<UniversalUniqueID> names;
    for (const auto& oneClass : classes) {
        std::vector<UniversalUniqueID> members;
        for (const unsigned k : oneClass) members.push_back(ids[k]);
        const auto part = makePart(*whole, members);
        // The frame remains that of the first member.
        if (part->entities.contains(whole->primaryID)) part->primaryID = whole->primaryID;
        cullEmptyEntities(*part);
        if (part->entities.empty()) continue;
        // The old name goes to nobody, unless it is that of an entity.
        names.push_back(insertCluster(part->primaryID, part));
        resetRegistrationFailures(names.back());
    }
    return names;
}

void CClusterRegistration::cullEmptyEntities(Cluster& cluster) const
{
    const auto isLean = [this](const auto& entity) { return entity.second.GetPointSet()->IsTooLean(m_state.config); };
    if (std::erase_if(cluster.entities, isLean) > 0) cluster.mergedPointSetStale = true;
}

CClusterRegistration::PointSet CClusterRegistration::applyCutToPointSet(const CTrafo& pose, const PointSet& set,
                                                                        const Predicate& keep)
{
    const CFPFHPointSet rest = set->Transform(pose).RestrictWithPredicate(keep).Transform(pose.GetInverse(false));
    return rest.Size() == set->Size() ? set : std::make_shared<const CFPFHPointSet>(rest);
}

std::vector<UniversalUniqueID> CClusterRegistration::cutEntities(Cluster& cluster, const Predicate& keep)
{
    // All remainders first: a predicate that throws changes nothing.
    std::vector<std::pair<UniversalUniqueID, PointSet>> rests;
    for (const auto& [id, entity] : cluster.entities)
        rests.emplace_back(id, applyCutToPointSet(cluster.GetTrafo(id), entity.GetPointSet(), keep));

    std::vector<UniversalUniqueID> changedIDs;
    for (const auto& [id, rest] : rests) {
        Entity& entity = cluster.entities.at(id);
        if (rest == entity.GetPointSet()) continue;
        entity.pointSet = std::make_shared<CLazyPointSet>(rest);
        changedIDs.push_back(id);
        // It did not move, but its surface is another one.
        m_state.changes[id] = cluster.GetTrafo(id);
    }
    return changedIDs;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): hosts are built against this signature
void CClusterRegistration::ApplyCut(const UniversalUniqueID& clusterID, Predicate predicate)
{
    const std::lock_guard lock(m_mutex);
    m_state.events += bson::element::make_uuid("cut", &clusterID);
    Cluster* const cluster = findCluster(clusterID);
    if (cluster == nullptr) {
        logger.Error(L"ApplyCut failed: specified cluster does not exist");
        return;
    }
    std::vector<UniversalUniqueID> changedIDs = cutEntities(*cluster, predicate);
    if (changedIDs.empty()) return;

    resetRegistrationFailures(clusterID);
    const std::size_t before = cluster->entities.size();
    const std::vector<UniversalUniqueID> parts = splitCluster(clusterID, changedIDs);
    logger.Info(L"ApplyCut: cluster %ls (%zi entities) => %zi cluster(s):", std::wstring(clusterID), before,
                parts.size());
    for (const UniversalUniqueID& id : parts) {
        Cluster* const part = findCluster(id);
        if (part == nullptr) {
            logger.Fatal(L"cluster (split result) not found?!");
            continue;
        }
        part->mergedPointSetStale = true;
        part->refreshMergedPointSet(m_state.config, m_state.group);
        logger.Info(L"id %ls (%zi entities)", std::wstring(id), part->entities.size());
    }
    registerClusters(Zorvan::Hooks::None());
    if (!m_state.clusters.empty() && clusterID == m_state.primaryClusterID) keepPrimaryID(parts);
}

void CClusterRegistration::keepPrimaryID(const std::vector<UniversalUniqueID>& parts)
{
    UniversalUniqueID found;
    std::size_t size = 0;
    const auto consider = [&](const UniversalUniqueID& id) {
        const Cluster* const cluster = findCluster(id);
        if (cluster == nullptr || cluster->entities.size() <= size) return;
        found = id;
        size = cluster->entities.size();
    };
    for (const UniversalUniqueID& id : parts) consider(id);
    if (size == 0) {
        for (const auto& [id, cluster] : m_state.clusters) consider(id);
    }
    if (size == 0 || found == m_state.primaryClusterID) return;
    renameCluster(m_state.primaryClusterID);
    renameCluster(found, m_state.primaryClusterID);
}

} // namespace prereg
