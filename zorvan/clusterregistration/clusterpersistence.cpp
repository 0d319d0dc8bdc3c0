// SPDX-License-Identifier: MIT
#include "zorvan/clusterregistration/clusterpersistence.h"

#include "zorvan/clusterregistration/cluster.h"
#include "zorvan/platform/clogger.h"

#include <stdexcept>
#include <string_view>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.ClusterRegistration");

struct SavedSurface
{
    LazyPointSetPtr set;
    CTrafo preTrafo;
};
using SavedSurfaces = std::map<UniversalUniqueID, SavedSurface>;

bson::element makeID(const char* name, const UniversalUniqueID& id) { return bson::element::make_uuid(name, &id); }

UniversalUniqueID readID(const bson::object& document, const char* name)
{
    return UniversalUniqueID::Load(document.child(name).as_uuid());
}

CTrafo readTrafo(const bson::object& document, const char* name)
{
    const bson::element e = document.child(name);
    if (e.type() == bson::element::eNull) return CTrafo::Invalid();
    return bson::from_object<CTrafo>(e.as_object());
}

bson::object clusterToObject(const UniversalUniqueID& clusterID, const Cluster& cluster)
{
    bson::object entities;
    for (const auto& [id, entity] : cluster.entities) {
        entities += bson::element(
            "entity", bson::object{makeID("entity_id", id), bson::element("trafo", bson::to_object(entity.trafo))});
    }
    return {makeID("cluster_id", clusterID), makeID("primary_entity_id", cluster.primaryID),
            bson::element("pre_trafo", bson::to_object(cluster.clusterTrafo)), bson::element("entities", entities)};
}

bson::object surfaceToObject(const UniversalUniqueID& id, const Entity& entity)
{
    return {makeID("entity_id", id), bson::element("fpfh_point_set", bson::to_object(*entity.GetPointSet())),
            entity.preTrafo ? bson::element("pre_trafo", bson::to_object(entity.preTrafo))
                            : bson::element::make_null("pre_trafo")};
}

/// The set is unpacked when it is needed; until then it keeps its part of the document.
LazyPointSetPtr readPointSet(const bson::object& document)
{
    bson::DemandPointSet(document);
    return std::make_shared<CLazyPointSet>(
        [document] { return std::make_shared<const CFPFHPointSet>(bson::from_object<CFPFHPointSet>(document)); });
}

SavedSurfaces readSurfaces(const bson::object& document)
{
    SavedSurfaces surfaces;
    for (const bson::element& e : document) {
        if (e.name() != std::string_view("point_set")) continue;
        const bson::object surface = e.as_object();
        surfaces[readID(surface, "entity_id")] = {readPointSet(surface.child("fpfh_point_set").as_object()),
                                                  readTrafo(surface, "pre_trafo")};
    }
    return surfaces;
}

std::vector<std::pair<UniversalUniqueID, Entity>> readEntities(const bson::object& document,
                                                               const SavedSurfaces& surfaces)
{
    std::vector<std::pair<UniversalUniqueID, Entity>> entities;
    for (const bson::element& e : document) {
        const bson::object entity = e.as_object();
        const UniversalUniqueID id = readID(entity, "entity_id");
        const auto surface = surfaces.find(id);
        if (surface == surfaces.end()) throw std::out_of_range("invalid map<K, T> key");
        const auto& [set, preTrafo] = surface->second;
        entities.emplace_back(id, Entity{0, set, readTrafo(entity, "trafo"), preTrafo});
    }
    return entities;
}

} // namespace

bson::object CClusterRegistration::ToObject() const
{
    const std::lock_guard lock(m_mutex);
    return toObject();
}

bson::object CClusterRegistration::toObject() const
{
    bson::object clustering;
    std::vector<std::pair<UniversalUniqueID, const Entity*>> entities;
    for (const auto& [clusterID, cluster] : m_state.clusters) {
        clustering += bson::element("cluster", clusterToObject(clusterID, *cluster));
        for (const auto& [id, entity] : cluster->entities) entities.emplace_back(id, &entity);
    }
    const auto surface = [&](std::uint64_t i) {
        return bson::element("point_set", surfaceToObject(entities[i].first, *entities[i].second));
    };
    return {bson::element("configuration", bson::to_object(m_state.config)), bson::element("clustering", clustering),
            makeID("primary_cluster_id", m_state.primaryClusterID), bson::element("events", m_state.events),
            bson::element::make_object("point_sets", entities.size(), surface)};
}

CClusterRegistration CClusterRegistration::FromObject(const bson::object& document, const Group& group)
{
    const auto config = bson::from_object<ConfigurationFPFH>(document.child("configuration").as_object());
    CClusterRegistration registration(config, nullptr, group);
    // Before there are clusters, so that none changes its name for it: not even one that is named by the invalid
    // identifier, which is the primary one until now.
    if (const UniversalUniqueID primary = readID(document, "primary_cluster_id"))
        registration.SetPrimaryClusterID(primary);
    const SavedSurfaces surfaces = readSurfaces(document.child("point_sets").as_object());
    for (const bson::element& e : document.child("clustering").as_object()) {
        if (e.name() != std::string_view("cluster")) continue;
        const bson::object cluster = e.as_object();
        const UniversalUniqueID id = readID(cluster, "cluster_id");
        auto entities = readEntities(cluster.child("entities").as_object(), surfaces);
        if (!registration.createCluster(id, readID(cluster, "primary_entity_id"), readTrafo(cluster, "pre_trafo"),
                                        std::move(entities)))
            logger.Error(L"saved cluster %ls left out: it is there already", std::wstring(id));
    }
    return registration;
}

} // namespace prereg

namespace bson {

object to_object(const prereg::CClusterRegistration& registration) { return registration.ToObject(); }

template <>
prereg::CClusterRegistration from_object(const object& document)
{
    return prereg::CClusterRegistration::FromObject(document);
}

} // namespace bson
