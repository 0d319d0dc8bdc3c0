// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sessionedit.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using Entity = CClusterRegistration::EntityTuple;
using Contents = CClusterRegistration::ClusterContents;

UniversalUniqueID idOf(const CSession& session, const std::string& name)
{
    const auto found =
        std::ranges::find_if(session.GetFiles(), [&](const CSession::ScanFile& file) { return file.name == name; });
    if (found == session.GetFiles().end()) throw std::invalid_argument("no scan of this name");
    return found->id;
}

/// What only an arranger sees: all of it, with the poses that callers gave.
Contents contentsOf(CClusterRegistration registration)
{
    Contents contents;
    registration.SetArranger([&](const Contents& clusters, const Zorvan::Hooks&) {
        contents = clusters;
        std::vector<CClusterRegistration::Trafos> same;
        for (const auto& [cluster, entities] : clusters) {
            same.emplace_back();
            for (const auto& [id, pose, start, set] : entities) same.back()[id] = pose;
        }
        return same;
    });
    registration.Run();
    return contents;
}

/// Takes an entity out of its cluster, which goes when it is empty.
Entity takeOut(Contents& contents, const UniversalUniqueID& id)
{
    for (auto cluster = contents.begin(); cluster != contents.end(); ++cluster) {
        std::vector<Entity>& entities = cluster->second;
        const auto found = std::ranges::find_if(entities, [&](const Entity& e) { return std::get<0>(e) == id; });
        if (found == entities.end()) continue;
        Entity entity = std::move(*found);
        entities.erase(found);
        if (entities.empty()) contents.erase(cluster);
        return entity;
    }
    throw std::invalid_argument("no scan of this name");
}

/// The main cluster comes first: whichever does is that.
std::vector<UniversalUniqueID> orderOf(const Contents& contents, const UniversalUniqueID& primary)
{
    std::vector<UniversalUniqueID> ids;
    for (const auto& [id, entities] : contents) ids.push_back(id);
    std::ranges::stable_sort(ids, [&](const UniversalUniqueID& a, const UniversalUniqueID& b) {
        if ((a == primary) != (b == primary)) return a == primary;
        return contents.at(a).size() > contents.at(b).size();
    });
    return ids;
}

/// @param leaving  an entity that will need a cluster of its name; one that is named after it gets another
CClusterRegistration rebuilt(const CClusterRegistration& old, const Contents& contents, const CSession::Group& group,
                             const std::optional<UniversalUniqueID>& leaving = {})
{
    CClusterRegistration fresh(old.GetRegistrationConfig(), nullptr, group);
    for (const UniversalUniqueID& cluster : orderOf(contents, old.GetPrimaryClusterID())) {
        const std::vector<Entity>& entities = contents.at(cluster);
        UniversalUniqueID first = old.GetClusterPrimaryID(cluster);
        if (std::ranges::none_of(entities, [&](const Entity& e) { return std::get<0>(e) == first; }))
            first = std::get<0>(entities.front());
        const UniversalUniqueID name = leaving && cluster == *leaving ? std::get<0>(entities.front()) : cluster;
        if (fresh.GetClusterIDs().empty()) fresh.SetPrimaryClusterID(name);
        fresh.CreateCluster(name, first, old.GetClusterTrafo(cluster), entities);
    }
    return fresh;
}

} // namespace

CSession WithoutScan(const CSession& session, const std::string& name, const CSession::Group& group,
                     const JournalStamp& stamp)
{
    const UniversalUniqueID id = idOf(session, name);
    Contents contents = contentsOf(session.GetRegistration());
    takeOut(contents, id);
    if (contents.empty()) throw std::invalid_argument("it is the only scan");
    std::vector<CSession::ScanFile> files = session.GetFiles();
    std::erase_if(files, [&](const CSession::ScanFile& file) { return file.id == id; });
    CSession edited(rebuilt(session.GetRegistration(), contents, group), session.GetMmPerUnit(), std::move(files));
    edited.GoOnFrom(session, {stamp, "removed", {name}, {}});
    return edited;
}

std::vector<ScanAside> SetAside(CSession& session, const std::vector<UniversalUniqueID>& names,
                                const CSession::Group& group)
{
    Contents contents = contentsOf(session.GetRegistration());
    std::vector<CSession::ScanFile> files = session.GetFiles();
    std::vector<ScanAside> aside;
    for (const UniversalUniqueID& name : names) {
        const auto file = std::ranges::find(files, name, &CSession::ScanFile::id);
        const auto [id, pose, start, set] = takeOut(contents, name);
        aside.push_back({*file, set, start});
        files.erase(file);
    }
    session.Hold(rebuilt(session.GetRegistration(), contents, group), std::move(files));
    return aside;
}

CSession WithScanApart(const CSession& session, const std::string& name, const CSession::Group& group,
                       const JournalStamp& stamp)
{
    const UniversalUniqueID id = idOf(session, name);
    Contents contents = contentsOf(session.GetRegistration());
    const auto [entity, pose, start, set] = takeOut(contents, id);
    CClusterRegistration registration = rebuilt(session.GetRegistration(), contents, group, id);
    registration.AddPointSet(entity, set, &start);
    CSession edited(std::move(registration), session.GetMmPerUnit(), session.GetFiles());
    edited.GoOnFrom(session, {stamp, "put apart", {name}, {}});
    return edited;
}

} // namespace prereg
