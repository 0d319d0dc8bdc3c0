// SPDX-License-Identifier: MIT
#include "zorvan/clusterregistration/cluster.h"

#include "zorvan/features/cfpfhdatasource.h"

#include <algorithm>
#include <thread>

namespace prereg {

namespace {

// A move below both is none.
constexpr float minShift = 0.01F;               // mm
constexpr float minTurn = 0.00872664625997165F; // half a degree

ConstPointSetPtr merge(const ConfigurationFPFH& config, const std::vector<std::pair<LazyPointSetPtr, CTrafo>>& sets)
{
    const unsigned numTasks = std::max(1U, std::thread::hardware_concurrency() / 2);
    CFPFHDataSource source(config.dFeatureRadius, config.dGridSize, config.dFeatureGridSize, numTasks, nullptr);
    std::vector<ConstPointSetPtr> owners;
    std::vector<std::pair<const CFPFHPointSet*, CTrafo>> surfaces;
    for (const auto& [set, trafo] : sets) {
        owners.push_back(set->Get());
        surfaces.emplace_back(owners.back().get(), trafo);
    }
    source.Load(surfaces);
    return std::make_shared<const CFPFHPointSet>(source);
}

} // namespace

ConstPointSetPtr CLazyPointSet::Get()
{
    const std::lock_guard lock(m_mutex);
    if (m_make) {
        m_set = m_make();
        m_make = nullptr;
    }
    return m_set;
}

CTrafo Cluster::GetTrafo(const UniversalUniqueID& entityID) const
{
    const auto found = entities.find(entityID);
    if (found == entities.end()) return CTrafo::Invalid();
    return clusterTrafo ? clusterTrafo * found->second.trafo : found->second.trafo;
}

bool Cluster::UpdateTrafo(const UniversalUniqueID& entityID, const CTrafo& pose)
{
    const auto found = entities.find(entityID);
    if (found == entities.end() || !pose) return false;
    CTrafo& trafo = found->second.trafo;
    const CTrafo moved = clusterTrafo ? clusterTrafo.GetInverse(false) * pose : pose;
    const float shift = (moved.GetTranslation() - trafo.GetTranslation()).Length();
    if (shift < minShift && moved.GetRotationDistance(trafo) < minTurn) return false;
    trafo = moved;
    mergedPointSetStale = true;
    return true;
}

void Cluster::refreshMergedPointSet(const ConfigurationFPFH& config, const PointSetJobGroup& group)
{
    if (!mergedPointSetStale && getMergedPointSet() != nullptr) return;
    mergedPointSetStale = false;
    std::vector<std::pair<LazyPointSetPtr, CTrafo>> sets;
    sets.reserve(entities.size());
    for (const auto& [id, entity] : entities) sets.emplace_back(entity.pointSet, entity.trafo);
    orderMergedPointSet(config, group, std::move(sets));
}

void Cluster::orderMergedPointSet(const ConfigurationFPFH& config, const PointSetJobGroup& group,
                                  std::vector<std::pair<LazyPointSetPtr, CTrafo>> sets)
{
    mergedPointSetJob =
        std::make_shared<CLazyPointSet>([config, sets = std::move(sets)] { return merge(config, sets); });
    group->Schedule([job = mergedPointSetJob] { static_cast<void>(job->Get()); });
}

ConstPointSetPtr Cluster::getMergedPointSet()
{
    if (mergedPointSetJob != nullptr) {
        mergedPointSet = mergedPointSetJob->Get();
        mergedPointSetJob = nullptr;
    }
    return mergedPointSet;
}

std::vector<UniversalUniqueID> Cluster::entitiesPrimaryFirst() const
{
    std::vector<UniversalUniqueID> ids;
    ids.reserve(entities.size());
    if (entities.contains(primaryID)) ids.push_back(primaryID);
    for (const auto& [id, entity] : entities) {
        if (!(id == primaryID)) ids.push_back(id);
    }
    return ids;
}

} // namespace prereg
