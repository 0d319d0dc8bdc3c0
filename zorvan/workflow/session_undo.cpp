// SPDX-License-Identifier: MIT
#include "zorvan/persistence/bsonserialization.h"
#include "zorvan/workflow/session.h"
#include "zorvan/workflow/sessioncheck.h"

#include <algorithm>
#include <exception>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace prereg {

namespace {

using Identifiers = std::set<UniversalUniqueID>;

/// As the document of a registration holds them, but without surfaces.
bson::object clustersOf(const CClusterRegistration& registration)
{
    bson::object clusters;
    for (const UniversalUniqueID& id : registration.GetClusterIDs()) {
        bson::object entities;
        for (const auto& [entity, pose] : registration.GetTrafos(id, true))
            entities += bson::element("entity", bson::object{bson::element::make_uuid("entity_id", &entity),
                                                             bson::element("trafo", bson::to_object(pose))});
        const UniversalUniqueID first = registration.GetClusterPrimaryID(id);
        clusters += bson::element(
            "cluster", bson::object{bson::element::make_uuid("cluster_id", &id),
                                    bson::element::make_uuid("primary_entity_id", &first),
                                    bson::element("pre_trafo", bson::to_object(registration.GetClusterTrafo(id))),
                                    bson::element("entities", entities)});
    }
    const UniversalUniqueID primary = registration.GetPrimaryClusterID();
    return {bson::element("clustering", clusters), bson::element::make_uuid("primary_cluster_id", &primary)};
}

Identifiers identifiersOf(const std::vector<CSession::ScanFile>& files)
{
    Identifiers ids;
    for (const CSession::ScanFile& file : files) ids.insert(file.id);
    return ids;
}

/// Those surfaces of a document that belong to some scans.
bson::object surfacesOf(const bson::object& surfaces, const Identifiers& ids)
{
    bson::object chosen;
    for (const bson::element& e : surfaces) {
        const bson::object surface = e.as_object();
        if (ids.contains(UniversalUniqueID::Load(surface.child("entity_id").as_uuid()))) chosen += e;
    }
    return chosen;
}

Identifiers without(Identifiers ids, const Identifiers& others)
{
    std::erase_if(ids, [&](const UniversalUniqueID& id) { return others.contains(id); });
    return ids;
}

CClusterRegistration readRegistration(const bson::object& document, const CSession::Group& group)
{
    try {
        return CClusterRegistration::FromObject(document, group);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        throw std::invalid_argument("the state to go back to is damaged");
    }
}

} // namespace

void CSession::keepClusters(const bson::object& stored)
{
    m_storedClusters = {stored.child("clustering"), stored.child("primary_cluster_id")};
    m_readClusters = clustersOf(m_registration);
}

bson::object CSession::clustersToObject() const
{
    const bson::object now = clustersOf(m_registration);
    return std::ranges::equal(now, m_readClusters) ? m_storedClusters : now;
}

CSession::Step CSession::GetStep() const { return {clustersToObject(), m_files, m_shift}; }

void CSession::AddStep(Step step)
{
    m_past.push_back(std::move(step));
    if (m_past.size() > uiMostSteps) m_past.erase(m_past.begin());
    forgetUnused();
}

void CSession::forgetUnused()
{
    const Identifiers own = identifiersOf(m_files);
    Identifiers used;
    for (const Step& step : m_past) used.merge(identifiersOf(step.files));
    m_kept = surfacesOf(m_kept, without(used, own));
    used.insert(own.begin(), own.end());
    std::erase_if(m_knownPairs, [&](const auto& known) {
        return !used.contains(known.first.first) || !used.contains(known.first.second);
    });
}

void CSession::GoOnFrom(const CSession& before, const JournalEntry& entry)
{
    m_shift = before.m_shift;
    m_knownPairs = before.m_knownPairs;
    m_journal = before.m_journal;
    m_journal.push_back(entry);
    m_past = before.m_past;
    m_kept = before.m_kept;
    const Identifiers gone = without(identifiersOf(before.m_files), identifiersOf(m_files));
    if (!gone.empty()) {
        const bson::object document = before.m_registration.ToObject();
        m_kept = m_kept + surfacesOf(document.child("point_sets").as_object(), gone);
    }
    AddStep(before.GetStep());
}

CSession CSession::Undone(const Group& group, const JournalStamp& stamp) const
{
    if (m_past.empty()) throw std::invalid_argument("nothing to take back");
    const Step& step = m_past.back();
    const Identifiers ids = identifiersOf(step.files);
    bson::object document = m_registration.ToObject();
    const bson::object surfaces = surfacesOf(document.child("point_sets").as_object(), ids) + surfacesOf(m_kept, ids);
    document = document.erase("clustering").erase("primary_cluster_id").erase("point_sets") + step.clusters;
    document += bson::element("point_sets", surfaces);
    CSession session(readRegistration(document, group), m_mmPerUnit, step.files);
    if (const std::string why = WhatIsWrongWith(session.m_registration, step.files); !why.empty())
        throw std::invalid_argument("the state to go back to is damaged: " + why);
    session.keepClusters(step.clusters);
    session.m_shift = step.shift;
    session.m_journal = m_journal;
    session.m_journal.push_back({stamp, "took back the last change", {}, {}});
    session.m_past.assign(m_past.begin(), m_past.end() - 1);
    session.m_kept = m_kept;
    session.m_knownPairs = m_knownPairs;
    session.forgetUnused();
    return session;
}

} // namespace prereg
