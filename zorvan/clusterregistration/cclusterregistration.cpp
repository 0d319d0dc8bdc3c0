// SPDX-License-Identifier: MIT
#include "zorvan/clusterregistration/cclusterregistration.h"

#include "zorvan/clusterregistration/cluster.h"
#include "zorvan/persistence/bsonserialization.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.ClusterRegistration");

constexpr unsigned int seed = 47110815;

std::shared_ptr<std::mt19937> seededEngine(std::mt19937* rng)
{
    if (rng == nullptr) return std::make_shared<std::mt19937>(seed);
    // The caller's own engine is overwritten, so that a run repeats whatever state it had.
    rng->seed(seed);
    return {rng, [](std::mt19937*) {}};
}

std::wstring text(const UniversalUniqueID& id) { return id; }

bson::element makeID(const char* name, const UniversalUniqueID& id) { return bson::element::make_uuid(name, &id); }

} // namespace

CClusterRegistration::CClusterRegistration(const ConfigurationFPFH& config, std::mt19937* rng, Group group)
{
    m_state.config = config;
    m_state.rng = seededEngine(rng);
    m_state.group = std::move(group);
    if (m_state.group == nullptr) {
        m_state.scheduler = std::make_shared<Zorvan::CJobScheduler>(1);
        m_state.group = m_state.scheduler->CreateJobGroup({}, {});
    }
    m_state.config = WithSharedSettings(m_state.sharedFlags, config);
    const std::string why = WhatIsWrong(m_state.config);
    if (!why.empty()) logger.Warn(L"wrong setting: %s", std::string_view(why));
}

CClusterRegistration::~CClusterRegistration() = default;

CClusterRegistration::State CClusterRegistration::copyState() const
{
    const std::lock_guard lock(m_mutex);
    State copy = m_state;
    // Two objects have two locks, so no cluster may belong to both.
    for (auto& [id, cluster] : copy.clusters) cluster = std::make_shared<Cluster>(*cluster);
    return copy;
}

CClusterRegistration::State CClusterRegistration::takeState()
{
    const std::lock_guard lock(m_mutex);
    State rest;
    rest.config = m_state.config;
    rest.rng = m_state.rng;
    rest.scheduler = m_state.scheduler;
    rest.group = m_state.group;
    rest.makeSearch = m_state.makeSearch;
    rest.arrange = m_state.arrange;
    rest.isFitToPrimary = m_state.isFitToPrimary;
    rest.eDraws = m_state.eDraws;
    return std::exchange(m_state, std::move(rest));
}

CClusterRegistration::CClusterRegistration(const CClusterRegistration& other) : m_state(other.copyState()) {}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
CClusterRegistration::CClusterRegistration(CClusterRegistration&& other) : m_state(other.takeState()) {}

CClusterRegistration& CClusterRegistration::operator=(const CClusterRegistration& other)
{
    if (this == &other) return *this;
    State copy = other.copyState();
    const std::lock_guard lock(m_mutex);
    m_state = std::move(copy);
    return *this;
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
CClusterRegistration& CClusterRegistration::operator=(CClusterRegistration&& other)
{
    if (this == &other) return *this;
    State taken = other.takeState();
    const std::lock_guard lock(m_mutex);
    m_state = std::move(taken);
    return *this;
}

bool CClusterRegistration::AddPointSet(const UniversalUniqueID& id, const PointSet& set, const CTrafo* preTrafo)
{
    const std::lock_guard lock(m_mutex);
    const CTrafo pose = preTrafo != nullptr ? *preTrafo : CTrafo::Invalid();
    if (!createNewCluster(id, set, pose)) return false;
    const bson::element entry =
        pose ? bson::element("pre_trafo", bson::to_object(pose)) : bson::element::make_null("pre_trafo");
    m_state.events += bson::element("point_set", bson::object{makeID("entity_id", id), entry});
    return true;
}

bool CClusterRegistration::createNewCluster(const UniversalUniqueID& id, const PointSet& set, const CTrafo& preTrafo)
{
    if (!id) {
        logger.Error(L"createNewCluster: invalid entity ID");
        return false;
    }
    if (set == nullptr || set->IsTooLean(m_state.config)) {
        logger.Error(L"createNewCluster: not enough data; empty point set");
        return false;
    }
    UniversalUniqueID clusterID = id;
    if (!m_state.clusters.empty()) {
        if (clusterOf(id) != nullptr) return false;
    } else {
        m_state.changes[id] = preTrafo ? preTrafo : CTrafo::Identity();
        if (m_state.primaryClusterID) clusterID = m_state.primaryClusterID;
    }

    auto cluster = std::make_shared<Cluster>();
    cluster->primaryID = id;
    cluster->clusterTrafo = preTrafo;
    cluster->mergedPointSet = set; // immutable
    cluster->entities[id] = {m_state.nextEntityOrdinal++, std::make_shared<CLazyPointSet>(set), CTrafo::Identity(),
                             preTrafo};
    // A cluster keeps its identifier after the entity that it was named after has left.
    while (!m_state.clusters.emplace(clusterID, cluster).second) {
        clusterID = UniversalUniqueID::Create();
        cluster->entities[id].ordinal = m_state.nextEntityOrdinal++;
    }
    if (!m_state.primaryClusterID) m_state.primaryClusterID = clusterID;
    return true;
}

bool CClusterRegistration::CreateCluster(const UniversalUniqueID& clusterID, const UniversalUniqueID& primaryEntityID,
                                         const CTrafo& preTrafo, const std::vector<EntityTuple>& entities)
{
    std::vector<std::pair<UniversalUniqueID, Entity>> members;
    for (const auto& [id, trafo, entityPreTrafo, set] : entities) {
        if (set == nullptr) {
            logger.Error(L"CreateCluster: entity %ls has no point set", text(id));
            return false;
        }
        members.emplace_back(id, Entity{0, std::make_shared<CLazyPointSet>(set), trafo, entityPreTrafo});
    }
    if (!clusterID) {
        logger.Error(L"CreateCluster: invalid cluster ID");
        return false;
    }
    const std::lock_guard lock(m_mutex);
    return createCluster(clusterID, primaryEntityID, preTrafo, std::move(members));
}

bool CClusterRegistration::createCluster(const UniversalUniqueID& clusterID, const UniversalUniqueID& primaryEntityID,
                                         const CTrafo& preTrafo,
                                         std::vector<std::pair<UniversalUniqueID, Entity>> entities)
{
    // The invalid identifier is a name here: SetPrimaryClusterID can give it, and what was saved comes back.
    if (entities.empty()) {
        logger.Error(L"CreateCluster: no entities");
        return false;
    }
    auto cluster = std::make_shared<Cluster>();
    cluster->primaryID = primaryEntityID;
    cluster->clusterTrafo = preTrafo;
    for (auto& member : entities) {
        const UniversalUniqueID id = member.first;
        member.second.ordinal = m_state.nextEntityOrdinal++;
        if (clusterOf(id) != nullptr || !cluster->entities.insert(std::move(member)).second) {
            logger.Error(L"CreateCluster: entity %ls is there already", text(id));
            return false;
        }
    }
    if (!m_state.clusters.emplace(clusterID, cluster).second) return false;
    cluster->mergedPointSetStale = true;
    cluster->refreshMergedPointSet(m_state.config, m_state.group);
    return true;
}

void CClusterRegistration::SetPrimaryClusterID(const UniversalUniqueID& id)
{
    const std::lock_guard lock(m_mutex);
    m_state.events += makeID("primary_cluster_id", id);
    const UniversalUniqueID old = m_state.primaryClusterID;
    if (id == old) return;
    logger.Info(L"setting primary cluster id: %ls", text(id));
    const auto oldPlace = m_state.clusters.find(old);
    const auto newPlace = m_state.clusters.find(id);
    if (oldPlace != m_state.clusters.end() && newPlace == m_state.clusters.end()) {
        logger.Warn(L" -> renaming primary cluster %ls -> %ls", text(old), text(id));
        renameCluster(old, id);
    } else if (oldPlace != m_state.clusters.end()) {
        logger.Warn(L" -> swapping existing clusters %ls (old) <-> %ls (new)", text(old), text(id));
        std::swap(oldPlace->second, newPlace->second);
        // Failures are filed by name, and the names stand for other clusters now.
        resetRegistrationFailures(old);
        resetRegistrationFailures(id);
    }
    m_state.primaryClusterID = id;
}

void CClusterRegistration::SetSearch(SearchFactory makeSearch)
{
    const std::lock_guard lock(m_mutex);
    m_state.makeSearch = std::move(makeSearch);
}

void CClusterRegistration::SetArranger(Arranger arrange)
{
    const std::lock_guard lock(m_mutex);
    m_state.arrange = std::move(arrange);
}

void CClusterRegistration::SetFitToPrimary(bool isOn)
{
    const std::lock_guard lock(m_mutex);
    m_state.isFitToPrimary = isOn;
}

void CClusterRegistration::SetDraws(EDraws eDraws)
{
    const std::lock_guard lock(m_mutex);
    m_state.eDraws = eDraws;
}

void CClusterRegistration::ForgetFailures()
{
    const std::lock_guard lock(m_mutex);
    m_state.failedRegistrations.clear();
}

bool CClusterRegistration::renameCluster(const UniversalUniqueID& oldID, const UniversalUniqueID& newID)
{
    if (!m_state.clusters.contains(oldID) || m_state.clusters.contains(newID)) return false;
    // Failures stay filed under the old name: the renamed cluster may try all others again.
    auto node = m_state.clusters.extract(oldID);
    node.key() = newID;
    m_state.clusters.insert(std::move(node));
    return true;
}

UniversalUniqueID CClusterRegistration::renameCluster(const UniversalUniqueID& oldID)
{
    if (!m_state.clusters.contains(oldID)) return {};
    UniversalUniqueID fresh = UniversalUniqueID::Create();
    while (!renameCluster(oldID, fresh)) fresh = UniversalUniqueID::Create();
    return fresh;
}

UniversalUniqueID CClusterRegistration::insertCluster(const UniversalUniqueID& id, std::shared_ptr<Cluster> cluster)
{
    UniversalUniqueID place = id;
    while (!m_state.clusters.emplace(place, cluster).second) place = UniversalUniqueID::Create();
    return place;
}

bool CClusterRegistration::updateTrafo(const UniversalUniqueID& entityID, const CTrafo& trafo)
{
    // Before any test, so that the journal records refused updates as well.
    m_state.events += bson::element(
        "trafo_update", bson::object{makeID("entity_id", entityID), bson::element("trafo", bson::to_object(trafo))});
    Cluster* const cluster = clusterOf(entityID);
    if (cluster == nullptr || !cluster->UpdateTrafo(entityID, trafo)) return false;
    m_state.changes[entityID] = trafo;
    return true;
}

bool CClusterRegistration::UpdateTrafo(const UniversalUniqueID& entityID, const CTrafo& trafo)
{
    const std::lock_guard lock(m_mutex);
    return updateTrafo(entityID, trafo);
}

bool CClusterRegistration::UpdateTrafos(const std::vector<std::pair<UniversalUniqueID, CTrafo>>& trafos)
{
    bool isAnyUpdated = false;
    for (const auto& [id, trafo] : trafos) isAnyUpdated = UpdateTrafo(id, trafo) || isAnyUpdated;
    if (!isAnyUpdated) return false;
    const std::lock_guard lock(m_mutex);
    for (const auto& [id, cluster] : m_state.clusters) cluster->refreshMergedPointSet(m_state.config, m_state.group);
    return true;
}

CClusterRegistration::Trafos CClusterRegistration::GetChanges(bool primaryOnly)
{
    const std::lock_guard lock(m_mutex);
    if (!primaryOnly) return std::exchange(m_state.changes, {});
    Trafos changes;
    const Cluster* const primary = findCluster(m_state.primaryClusterID);
    if (primary == nullptr) return changes;
    for (const auto& [id, entity] : primary->entities) {
        if (auto change = m_state.changes.extract(id)) changes.insert(std::move(change));
    }
    return changes;
}

void CClusterRegistration::memoizeFailedRegistration(const UniversalUniqueID& a, const UniversalUniqueID& b)
{
    m_state.failedRegistrations[a].insert(b);
}

bool CClusterRegistration::registrationFailedPreviously(const UniversalUniqueID& a, const UniversalUniqueID& b) const
{
    const auto found = m_state.failedRegistrations.find(a);
    return found != m_state.failedRegistrations.end() && found->second.contains(b);
}

void CClusterRegistration::resetRegistrationFailures(const UniversalUniqueID& id)
{
    m_state.failedRegistrations.erase(id);
    for (auto& [other, failures] : m_state.failedRegistrations) failures.erase(id);
}

CFPFHPointSet CClusterRegistration::GetPrimaryClusterPointSet() const
{
    const std::lock_guard lock(m_mutex);
    if (m_state.clusters.empty()) return {};
    Cluster* const cluster = findCluster(m_state.primaryClusterID);
    if (cluster == nullptr) throw std::runtime_error("primary cluster does not exist!");
    const PointSet merged = cluster->getMergedPointSet();
    if (merged == nullptr) return {};
    if (!cluster->clusterTrafo) return *merged;

    // An entry is good for the merged set that it was made of, and callers rely on nothing else being looked at: a new
    // pose of the cluster alone does not end it.
    auto& [source, moved] = m_state.primaryPointSetCache[m_state.primaryClusterID];
    if (source.lock() == merged) {
        logger.Trace(L"CACHE HIT!");
        return *moved;
    }
    moved = std::make_shared<const CFPFHPointSet>(merged->Transform(cluster->clusterTrafo));
    source = merged;
    return *moved;
}

} // namespace prereg
