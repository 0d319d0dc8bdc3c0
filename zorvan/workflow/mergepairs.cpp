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

using Indices = std::vector<std::size_t>;

/// The first scan that was not tried and is likely to overlap one that is in.
std::optional<std::size_t> nextOf(const Indices& in, const std::vector<bool>& isTried, const LikelyScans& likely)
{
    for (std::size_t i = 0; i < isTried.size(); ++i)
        if (!isTried[i] && std::ranges::any_of(in, [&](std::size_t scan) { return likely[scan].contains(i); }))
            return i;
    return std::nullopt;
}

/// Adds scans one by one to a first one. One that does not fit stays out: it would be searched anew after each merge.
/// @param isTried  those are left alone
/// @return         what is in
Indices growCluster(CClusterRegistration& cluster, std::size_t first, std::span<const LooseScan> scans,
                    const LikelyScans& likely, std::vector<bool> isTried, const Zorvan::Hooks& hooks)
{
    cluster.AddPointSet(inOrder(first), scans[first].set, &scans[first].start);
    Indices in{first};
    isTried[first] = true;
    while (const auto next = nextOf(in, isTried, likely)) {
        if (hooks.IsAborted()) break;
        isTried[*next] = true;
        CClusterRegistration with(cluster);
        with.AddPointSet(inOrder(*next), scans[*next].set, &scans[*next].start);
        if (!with.Run(hooks)) continue;
        cluster = std::move(with);
        in.push_back(*next);
    }
    return in;
}

/// What stays out of one cluster begins the next: a block has scans for the sake of one that does not fit, and they may
/// fit that one.
std::vector<CClusterRegistration::Trafos> mergeBlock(const ConfigurationFPFH& config, std::span<const LooseScan> scans,
                                                     const LikelyScans& likely, CSharedErrors& shared,
                                                     const Zorvan::Hooks& hooks)
{
    CMergeErrors errors;
    std::vector<CClusterRegistration::Trafos> clusters;
    std::vector<bool> isDone(scans.size());
    for (std::size_t first = 0; first < scans.size() && !hooks.IsAborted(); ++first) {
        if (isDone[first]) continue;
        CClusterRegistration cluster(config, nullptr, nullptr);
        cluster.SetSearch(searchWith(errors, dQuickMergeShare));
        const Indices in = growCluster(cluster, first, scans, likely, isDone, hooks);
        for (const std::size_t i : in) isDone[i] = true;
        if (in.size() < 2) continue;
        const CClusterRegistration::Trafos poses = cluster.GetTrafos(cluster.GetClusterIDs().front(), true);
        auto& found = clusters.emplace_back();
        for (const std::size_t i : in) found[scans[i].id] = poses.at(inOrder(i));
    }
    shared.Add(errors);
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
    const auto merge = [&](std::span<const LooseScan> block, const LikelyScans& likely, const Zorvan::Hooks& jobHooks) {
        return mergeBlock(config, block, likely, errors, jobHooks);
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
