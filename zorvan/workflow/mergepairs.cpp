// SPDX-License-Identifier: MIT
#include "zorvan/workflow/mergepairs.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/workflow/autosettings.h"

#include <cmath>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace prereg {

namespace {

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

} // namespace

void MergePairs(CClusterRegistration& registration, const Zorvan::Hooks& hooks)
{
    // Most pairs of many scans have nothing in common, and most others are found soon.
    constexpr double dQuickShare = 0.25;
    CMergeErrors errors;
    for (const double share : {dQuickShare, 1.0}) {
        if (registration.GetClusterIDs().size() < 2 || hooks.IsAborted()) break;
        registration.ForgetFailures();
        registration.SetSearch(searchWith(errors, share));
        registration.Run(hooks);
    }
    registration.SetSearch({});
}

} // namespace prereg
