// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergepairs.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/mergeblocks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace prereg {

namespace {

/// Most pairs of many scans have nothing in common, and most others are found soon: the share of polygons for these.
constexpr double dQuickMergeShare = 0.25;

/// The errors of the merges so far.
class CMergeErrors
{
public:
    void Add(double rmse) { m_errors.push_back(rmse); }

    /// The median (mm), once there are enough to estimate the noise of these scans.
    [[nodiscard]] std::optional<double> Typical() const
    {
        constexpr std::size_t uiEnough = 3;
        if (m_errors.size() < uiEnough) return std::nullopt;
        return Zorvan::Median(m_errors);
    }

    void Add(const CMergeErrors& others)
    {
        m_errors.insert(m_errors.end(), others.m_errors.begin(), others.m_errors.end());
    }

private:
    std::vector<double> m_errors;
};

/// The errors of blocks that are merged side by side. Their median does not depend on which block comes first.
class CSharedErrors
{
public:
    void Add(const CMergeErrors& block)
    {
        const std::lock_guard lock(m_mutex);
        m_all.Add(block);
    }

    [[nodiscard]] CMergeErrors Get() const
    {
        const std::lock_guard lock(m_mutex);
        return m_all;
    }

private:
    mutable std::mutex m_mutex;
    CMergeErrors m_all;
};

/// The search for one pair of clusters, which remembers the error of a merge.
class CMergeSearch : public CRefinedPreRegistration
{
public:
    CMergeSearch(CRefinedPreRegistration search, double grid, CMergeErrors& errors)
        : CRefinedPreRegistration(std::move(search)), m_grid(grid), m_errors(errors)
    {
    }

    ICPResult GetNextResult() override
    {
        constexpr double dCopyShare = 0.01;
        const ICPResult result = CRefinedPreRegistration::GetNextResult();
        const auto error = static_cast<double>(result.GetError());
        // A scan that meets its own copy says nothing about the noise.
        if (error > dCopyShare * m_grid) m_errors.Add(error);
        return result;
    }

private:
    double m_grid; ///< of the points (mm)
    CMergeErrors& m_errors;
};

/// @param share  of the polygons that the settings allow
CClusterRegistration::SearchFactory searchWith(CMergeErrors& errors, double share)
{
    return [&errors, share](const auto& fix, const auto& flt, const auto& config, const auto* oracle) {
        ConfigurationFPFH search = SettingsForSearch(config);
        search.uiNumPolygons = static_cast<unsigned>(std::ceil(share * search.uiNumPolygons));
        const auto judge = SettingsForMerging(config, errors.Typical());
        return std::make_unique<CMergeSearch>(CRefinedPreRegistration(fix, flt, search, judge, oracle),
                                              config.dGridSize, errors);
    };
}

/// Of a scan of a block: clusters are tried in the order of their identifiers.
UniversalUniqueID inOrder(std::size_t number)
{
    char text[37];
    std::snprintf(text, sizeof text, "%08x-0000-8000-8000-000000000000", static_cast<unsigned>(number) + 1);
    return UniversalUniqueID(text);
}

/// Adds scans one by one, each to what has been merged of those before. One that fits nowhere stays out: it would be
/// searched anew after each merge, and with what it is likely to overlap it is searched later.
void addInOrder(CClusterRegistration& block, std::span<const LooseScan> scans, const Zorvan::Hooks& hooks)
{
    bool isAnyMerged = false;
    for (std::size_t i = 0; i < scans.size(); ++i) {
        CClusterRegistration with(block);
        with.AddPointSet(inOrder(i), scans[i].set, &scans[i].start);
        const bool isMerged = with.Run(hooks);
        if (isAnyMerged && !isMerged) continue;
        isAnyMerged = isMerged;
        block = std::move(with);
    }
}

std::vector<CClusterRegistration::Trafos> mergeBlock(const ConfigurationFPFH& config, std::span<const LooseScan> scans,
                                                     CSharedErrors& shared, const Zorvan::Hooks& hooks)
{
    CMergeErrors errors;
    CClusterRegistration block(config, nullptr, nullptr);
    block.SetSearch(searchWith(errors, dQuickMergeShare));
    addInOrder(block, scans, hooks);
    shared.Add(errors);
    std::vector<CClusterRegistration::Trafos> clusters;
    for (const UniversalUniqueID& id : block.GetClusterIDs()) {
        if (block.Size(id) < 2) continue;
        auto& cluster = clusters.emplace_back();
        const CClusterRegistration::Trafos poses = block.GetTrafos(id, true);
        for (std::size_t i = 0; i < scans.size(); ++i)
            if (const auto pose = poses.find(inOrder(i)); pose != poses.end()) cluster[scans[i].id] = pose->second;
    }
    return clusters;
}

/// The quick search, for two scans by themselves.
CTrafo searchScans(const ConfigurationFPFH& config, const LooseScan& fix, const LooseScan& flt, CMergeErrors errors,
                   const Zorvan::Hooks& hooks)
{
    const auto search = searchWith(errors, dQuickMergeShare)(fix.set, flt.set, config, nullptr);
    if (fix.start && flt.start) static_cast<void>(search->InjectTrafo(fix.start.GetInverse(false) * flt.start));
    if (!search->HasMoreResults()) search->Compute(hooks);
    return search->HasMoreResults() && !hooks.IsAborted() ? search->GetNextResult().GetTrafo() : CTrafo::Invalid();
}

/// Clusters of several scans stay as they are.
std::vector<CClusterRegistration::Trafos> mergeLoose(const CClusterRegistration::ClusterContents& clusters,
                                                     const ConfigurationFPFH& config, const CSession::Group& group,
                                                     const Zorvan::Hooks& hooks)
{
    std::vector<CClusterRegistration::Trafos> groups;
    std::vector<LooseScan> loose;
    for (const auto& [id, entities] : clusters) {
        if (entities.size() == 1) {
            const auto& [entity, pose, start, set] = entities.front();
            loose.push_back({entity, start, set});
            continue;
        }
        auto& cluster = groups.emplace_back();
        for (const auto& [entity, pose, start, set] : entities) cluster[entity] = pose;
    }
    CSharedErrors errors;
    const auto merge = [&](std::span<const LooseScan> block, const Zorvan::Hooks& jobHooks) {
        return mergeBlock(config, block, errors, jobHooks);
    };
    const auto search = [&](const LooseScan& fix, const LooseScan& flt, const Zorvan::Hooks& jobHooks) {
        return searchScans(config, fix, flt, errors.Get(), jobHooks);
    };
    for (auto& cluster : MergeInBlocks(loose, merge, search, config, group, hooks))
        groups.push_back(std::move(cluster));
    return groups;
}

void mergeBlocks(CClusterRegistration& registration, const CSession::Group& group, const Zorvan::Hooks& hooks)
{
    const std::vector<UniversalUniqueID> ids = registration.GetClusterIDs();
    const auto isLoose = [&](const UniversalUniqueID& id) { return registration.Size(id) == 1; };
    if (std::cmp_less_equal(std::ranges::count_if(ids, isLoose), uiBlockScans)) return;
    const ConfigurationFPFH config = registration.GetRegistrationConfig();
    registration.SetArranger([&](const auto& clusters, const Zorvan::Hooks& runHooks) {
        return mergeLoose(clusters, config, group, runHooks);
    });
    registration.Run(hooks);
    registration.SetArranger({});
}

} // namespace

void MergePairs(CClusterRegistration& registration, const CSession::Group& group, const Zorvan::Hooks& hooks)
{
    mergeBlocks(registration, group, hooks);
    CMergeErrors errors;
    for (const double share : {dQuickMergeShare, 1.0}) {
        if (registration.GetClusterIDs().size() < 2 || hooks.IsAborted()) break;
        registration.ForgetFailures();
        registration.SetSearch(searchWith(errors, share));
        registration.Run(hooks);
    }
    registration.SetSearch({});
}

} // namespace prereg
