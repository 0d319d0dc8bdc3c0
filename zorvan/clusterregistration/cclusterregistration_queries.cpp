// SPDX-License-Identifier: MIT
// What the registration reports of its clusters and entities.

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/clusterregistration/cluster.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <utility>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.ClusterRegistration");

template <typename Map>
std::vector<UniversalUniqueID> keysOf(const Map& map)
{
    std::vector<UniversalUniqueID> keys;
    keys.reserve(map.size());
    for (const auto& [key, value] : map) keys.push_back(key);
    return keys;
}

} // namespace

Cluster* CClusterRegistration::findCluster(const UniversalUniqueID& clusterID) const
{
    const auto found = m_state.clusters.find(clusterID);
    return found == m_state.clusters.end() ? nullptr : found->second.get();
}

Cluster* CClusterRegistration::demandCluster(const UniversalUniqueID& clusterID) const
{
    Cluster* const cluster = findCluster(clusterID);
    if (cluster == nullptr) logger.Error(L"cluster %ls not found", std::wstring(clusterID));
    return cluster;
}

CClusterRegistration::Clusters::const_iterator CClusterRegistration::placeOf(const UniversalUniqueID& entityID) const
{
    return std::find_if(m_state.clusters.begin(), m_state.clusters.end(),
                        [&](const auto& place) { return place.second->entities.contains(entityID); });
}

UniversalUniqueID CClusterRegistration::getClusterID(const UniversalUniqueID& entityID) const
{
    const auto place = placeOf(entityID);
    return place == m_state.clusters.end() ? UniversalUniqueID() : place->first;
}

Cluster* CClusterRegistration::clusterOf(const UniversalUniqueID& entityID) const
{
    const auto place = placeOf(entityID);
    return place == m_state.clusters.end() ? nullptr : place->second.get();
}

std::string CClusterRegistration::getStatusString(std::size_t idLength) const
{
    if (m_state.clusters.empty()) return "empty (no clusters / point sets)";
    const auto brief = [idLength](const UniversalUniqueID& id) { return std::string(id).substr(0, idLength); };
    std::string status = std::to_string(m_state.clusters.size()) + " clusters: ";
    const char* blank = "";
    for (const auto& [id, cluster] : m_state.clusters) {
        status += std::exchange(blank, " ");
        if (id == m_state.primaryClusterID) status += '*';
        status += brief(id) + '[' + std::to_string(cluster->entities.size()) + "]{";
        const char* comma = "";
        for (const auto& [entityID, entity] : cluster->entities) {
            status += std::exchange(comma, ",");
            status += brief(entityID);
        }
        status += '}';
    }
    return status;
}

std::string CClusterRegistration::GetStatusString(std::size_t idLength) const
{
    const std::lock_guard lock(m_mutex);
    return getStatusString(idLength);
}

std::vector<UniversalUniqueID> CClusterRegistration::GetClusterIDs() const
{
    const std::lock_guard lock(m_mutex);
    return keysOf(m_state.clusters);
}

UniversalUniqueID CClusterRegistration::GetPrimaryClusterID() const
{
    const std::lock_guard lock(m_mutex);
    return m_state.primaryClusterID;
}

UniversalUniqueID CClusterRegistration::GetClusterID(const UniversalUniqueID& entityID) const
{
    const std::lock_guard lock(m_mutex);
    return getClusterID(entityID);
}

std::size_t CClusterRegistration::Size(const UniversalUniqueID& clusterID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = demandCluster(clusterID);
    return cluster == nullptr ? 0 : cluster->entities.size();
}

UniversalUniqueID CClusterRegistration::GetClusterPrimaryID(const UniversalUniqueID& clusterID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = demandCluster(clusterID);
    return cluster == nullptr ? UniversalUniqueID() : cluster->primaryID;
}

CTrafo CClusterRegistration::GetClusterTrafo(const UniversalUniqueID& clusterID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = demandCluster(clusterID);
    return cluster == nullptr ? CTrafo::Invalid() : cluster->clusterTrafo;
}

CClusterRegistration::Trafos CClusterRegistration::GetTrafos(const UniversalUniqueID& clusterID, bool local) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = demandCluster(clusterID);
    if (cluster == nullptr) return {};
    Trafos trafos;
    for (const auto& [id, entity] : cluster->entities) trafos[id] = local ? entity.trafo : cluster->GetTrafo(id);
    return trafos;
}

std::vector<UniversalUniqueID> CClusterRegistration::GetEntityIDs(const UniversalUniqueID& clusterID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = findCluster(clusterID);
    if (cluster == nullptr) return {};
    return keysOf(cluster->entities);
}

CTrafo CClusterRegistration::GetTrafo(const UniversalUniqueID& entityID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = clusterOf(entityID);
    return cluster == nullptr ? CTrafo::Invalid() : cluster->GetTrafo(entityID);
}

std::pair<CClusterRegistration::PointSet, CTrafo>
CClusterRegistration::GetPointSetAndTransform(const UniversalUniqueID& entityID) const
{
    const std::lock_guard lock(m_mutex);
    const Cluster* const cluster = clusterOf(entityID);
    if (cluster == nullptr) return {nullptr, CTrafo::Invalid()};
    return {cluster->entities.at(entityID).GetPointSet(), cluster->GetTrafo(entityID)};
}

ConfigurationFPFH CClusterRegistration::GetRegistrationConfig() const
{
    const std::lock_guard lock(m_mutex);
    return m_state.config;
}

} // namespace prereg
