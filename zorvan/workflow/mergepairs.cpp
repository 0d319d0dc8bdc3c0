// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergepairs.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/mergeblocks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
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

private:
    std::vector<double> m_errors;
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

std::vector<CClusterRegistration::Trafos> mergeBlock(const ConfigurationFPFH& config, std::span<const LooseScan> scans,
                                                     const Zorvan::Hooks& hooks)
{
    CMergeErrors errors;
    CClusterRegistration block(config, nullptr, nullptr);
    for (const LooseScan& scan : scans) block.AddPointSet(scan.id, scan.set, &scan.start);
    block.SetSearch(searchWith(errors, dQuickMergeShare));
    block.Run(hooks);
    std::vector<CClusterRegistration::Trafos> clusters;
    for (const UniversalUniqueID& id : block.GetClusterIDs())
        if (block.Size(id) > 1) clusters.push_back(block.GetTrafos(id, true));
    return clusters;
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
    const auto merge = [&](std::span<const LooseScan> block, const Zorvan::Hooks& jobHooks) {
        return mergeBlock(config, block, jobHooks);
    };
    // What lies nearer to each other than this counts as the same surface.
    const double play = config.icpConfig.dMinQueryRadius;
    for (auto& cluster : MergeInBlocks(loose, merge, play, group, hooks)) groups.push_back(std::move(cluster));
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
