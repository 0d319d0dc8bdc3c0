// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sessioncheck.h"

#include "zorvan/core/icpresult.h"
#include "zorvan/graphs/cdisjointsets.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <utility>

namespace prereg {

namespace {

using ScanFiles = std::vector<CSession::ScanFile>;

constexpr float fLargestCoordinate = 1e9F; // mm; that of scans
constexpr float fLargestShift = 1e10F;     // mm; between any two scans

bool isWithin(const kdtree::Vector<3>& v, float limit)
{
    return std::abs(v.x) <= limit && std::abs(v.y) <= limit && std::abs(v.z) <= limit; // false for NaN
}

bool areWithin(const Vectors& points, float limit)
{
    return std::all_of(points.begin(), points.end(), [=](const auto& p) { return isWithin(p, limit); });
}

/// A quaternion that has not length 1 makes a pose that scales.
bool isRigid(const CTrafo& pose)
{
    constexpr float fTolerance = 1e-3F;
    return pose && isWithin(pose.GetTranslation(), fLargestShift) &&
           std::abs(pose.Rotate({1.0F, 0.0F, 0.0F}).Length() - 1.0F) < fTolerance;
}

/// Each scan of the list is in the registration, and no other is.
bool isConsistent(const CClusterRegistration& registration, const ScanFiles& files)
{
    std::set<std::string> names;
    std::set<UniversalUniqueID> entities;
    for (const CSession::ScanFile& file : files) {
        const bool isName = !file.name.empty() && std::filesystem::path(file.name).filename() == file.name;
        if (!isName || !names.insert(file.name).second || !entities.insert(file.id).second) return false;
        if (registration.GetPointSetAndTransform(file.id).first == nullptr) return false;
    }
    std::size_t count = 0;
    for (const UniversalUniqueID& id : registration.GetClusterIDs()) count += registration.Size(id);
    return count == files.size();
}

bool areClustersResolved(const CClusterRegistration& registration)
{
    const std::vector<UniversalUniqueID> ids = registration.GetClusterIDs();
    const auto hasPrimary = [&](const UniversalUniqueID& id) {
        return registration.GetClusterID(registration.GetClusterPrimaryID(id)) == id;
    };
    const bool isModelThere = std::find(ids.begin(), ids.end(), registration.GetPrimaryClusterID()) != ids.end();
    return (ids.empty() || isModelThere) && std::all_of(ids.begin(), ids.end(), hasPrimary);
}

bool arePosesRigid(const CClusterRegistration& registration)
{
    for (const UniversalUniqueID& id : registration.GetClusterIDs()) {
        const CTrafo toWorld = registration.GetClusterTrafo(id); // invalid while it floats
        if (toWorld && !isRigid(toWorld)) return false;
        for (const auto& [entity, pose] : registration.GetTrafos(id, true)) {
            if (!isRigid(pose)) return false;
        }
    }
    return true;
}

std::string whatIsWrongWithSurfaces(const CClusterRegistration& registration, const ScanFiles& files)
{
    for (const CSession::ScanFile& file : files) {
        const auto set = registration.GetPointSetAndTransform(file.id).first;
        if (set->Empty() || set->SizeFeatures() == 0) return "the surface of " + file.name + " is empty";
        if (!areWithin(set->GetPoints(), fLargestCoordinate) || !areWithin(set->GetFeaturePoints(), fLargestCoordinate))
            return file.name + " has points that are not finite or beyond 1e9 mm";
    }
    return {};
}

/// A surface where it is.
struct Placed
{
    std::shared_ptr<const CPointSet> set;
    CTrafo pose;
};

/// Registration accepts a pose under stricter limits, but for surfaces on a grid instead of all points, and later poses
/// are refined in company. A surface that lies elsewhere breaks them by far.
ConfigurationICP lenient(ConfigurationICP config)
{
    constexpr double dMore = 2.0;
    config.uiMaxNumIterations = 0;
    config.dInitialQueryRadiusScaling = 1.0;
    config.dMaxRMSE *= dMore;
    config.dMaxStdDev *= dMore;
    config.dMinOverlapRatio /= dMore;
    config.dMinSmallBigRatio /= dMore;
    return config;
}

bool liesOn(const Placed& fix, const Placed& flt, const ConfigurationICP& config)
{
    std::mt19937 rng(47110815);
    const CTrafo toFix = fix.pose.GetInverse(true) * flt.pose;
    return static_cast<bool>(fix.set->ComputeICPRegistration(config, rng, *flt.set, toFix, nullptr, false));
}

/// A small surface lies on a large one, and not the large one on it.
bool fit(const Placed& a, const Placed& b, const ConfigurationICP& config)
{
    return liesOn(a, b, config) || liesOn(b, a, config);
}

/// One surface of all that are chosen, in the frame of their poses.
Placed joined(const std::vector<Placed>& surfaces, const std::vector<bool>& isChosen)
{
    Vectors points;
    Vectors normals;
    for (std::size_t k = 0; k < surfaces.size(); ++k) {
        if (!isChosen[k]) continue;
        for (std::size_t i = 0; i < surfaces[k].set->Size(); ++i) {
            const auto [p, n] = surfaces[k].pose.Transform(surfaces[k].set->GetPoint(i), surfaces[k].set->GetNormal(i));
            points.push_back(p);
            normals.push_back(n);
        }
    }
    return {std::make_shared<const CPointSet>(points.data(), normals.data(), points.size()), CTrafo::Identity()};
}

/// A scan that belongs to a part of the cluster which does not lie on the rest; the number of scans when there is none.
std::size_t findStray(const std::vector<Placed>& surfaces, const ConfigurationICP& config)
{
    const auto count = static_cast<unsigned>(surfaces.size());
    Zorvan::CDisjointSets parts(count);
    for (unsigned b = 1; b < count; ++b) {
        for (unsigned a = b; a-- > 0;) {
            if (!parts.SameClass(a, b) && fit(surfaces[a], surfaces[b], config)) parts.Unify(a, b);
        }
    }
    // A scan may lie on several others at once, with too little on each.
    for (unsigned k = 0; k < count && parts.GetNumClasses() > 1; ++k) {
        if (parts.SameClass(k, parts.GetLargestClassRep())) continue;
        std::vector<bool> isInPart(count);
        for (unsigned i = 0; i < count; ++i) isInPart[i] = parts.SameClass(i, k);
        const Placed part = joined(surfaces, isInPart);
        isInPart.flip();
        if (!fit(joined(surfaces, isInPart), part, config)) return k;
    }
    return count;
}

std::string whatIsWrongWithPlaces(const CClusterRegistration& registration, const ScanFiles& files)
{
    const ConfigurationICP config = lenient(registration.GetRegistrationConfig().icpConfig);
    for (const UniversalUniqueID& id : registration.GetClusterIDs()) {
        const CClusterRegistration::Trafos poses = registration.GetTrafos(id, true);
        std::vector<Placed> surfaces;
        std::vector<std::string> names;
        for (const CSession::ScanFile& file : files) {
            const auto pose = poses.find(file.id);
            if (pose == poses.end()) continue;
            surfaces.push_back({registration.GetPointSetAndTransform(file.id).first, pose->second});
            names.push_back(file.name);
        }
        if (const std::size_t stray = findStray(surfaces, config); stray < surfaces.size())
            return names[stray] + " does not lie on the scans that it is registered with";
    }
    return {};
}

} // namespace

std::string WhatIsWrongWith(const CClusterRegistration& registration, const ScanFiles& files)
{
    std::string whyConfig = WhatIsWrongWithFields(registration.GetRegistrationConfig());
    if (!whyConfig.empty()) return whyConfig;
    if (!isConsistent(registration, files) || !areClustersResolved(registration))
        return "its scans and its clusters do not fit each other";
    if (!arePosesRigid(registration)) return "a pose scales, or is not finite or beyond 1e10 mm";
    if (std::string why = whatIsWrongWithSurfaces(registration, files); !why.empty()) return why;
    return whatIsWrongWithPlaces(registration, files);
}

} // namespace prereg
