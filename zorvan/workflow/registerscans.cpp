// SPDX-License-Identifier: MIT
#include "zorvan/workflow/registerscans.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/settingsfile.h"
#include "zorvan/workflow/stagetimes.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace prereg {

namespace {

/// The errors of the merges so far.
class CMergeErrors
{
public:
    void Add(double rmse) { m_errors.push_back(rmse); }

    /// The median (mm), once there are enough to tell the noise of these scans.
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

/// One call of RegisterScans, stage by stage.
class CRegistrationRun
{
public:
    CRegistrationRun(const RegisterOptions& options, const Zorvan::Hooks& hooks) : m_options(options), m_hooks(hooks) {}

    [[nodiscard]] ConfigurationFPFH ChooseSettingsFor(std::span<const Zorvan::SurfelScan> scans)
    {
        const double grid = m_options.dGrid ? *m_options.dGrid : medianGrid(scans);
        ConfigurationFPFH config = WithSettings(AllSettingsForGrid(grid), m_options.settings);
        // Poses come from a search, so they are near when all points come into play.
        config.icpConfig.dInitialQueryRadiusScaling = SettingsForRefinement(config).dInitialQueryRadiusScaling;
        m_settingsWords = "grid " + length(grid) + (m_options.dGrid ? "" : ": the median over the scans") +
                          "; RMSE accepted up to " + length(config.icpConfig.dMaxRMSE);
        return config;
    }

    RegisterResult Run(std::shared_ptr<Zorvan::CJobScheduler> scheduler, CSession session,
                       std::span<const Zorvan::SurfelScan> scans)
    {
        const bool isComplete = addScans(scans, session);
        m_times.End("features");
        merge(session.GetRegistration());
        m_times.End("registration");
        const bool isStopped = m_hooks.IsAborted();
        if (m_options.isOptimized && !isStopped) {
            session.GetRegistration().SetFitToPrimary(true);
            session.GetRegistration().OptimizeRegistration(true, m_hooks);
            m_times.End("optimization");
        }
        RegistrationTable table = LookAtPoses(session, scheduler->CreateJobGroup({}, {}));
        return {std::move(scheduler), std::move(session), std::move(table),   m_settingsWords, m_leftOut,
                m_times.Words(),      isComplete,         m_hooks.IsAborted()};
    }

private:
    [[nodiscard]] std::string length(double mm) const
    {
        return Zorvan::ToText(mm / m_options.dMmPerUnit) + " " + Zorvan::UnitName(m_options.dMmPerUnit);
    }

    [[nodiscard]] static double medianGrid(std::span<const Zorvan::SurfelScan> scans)
    {
        std::vector<double> grids;
        for (const Zorvan::SurfelScan& scan : scans)
            grids.push_back(
                ChooseSettings(CPointSet(scan.points.data(), scan.normals.data(), scan.points.size()), {}).dGrid);
        return Zorvan::Median(std::move(grids));
    }

    /// Nothing for one whose sizes do not suit the settings, when the run goes on without it.
    std::shared_ptr<const CFPFHPointSet> computeFeatures(const Zorvan::SurfelScan& scan,
                                                         const ConfigurationFPFH& config)
    {
        try {
            return ComputeFeatureSet(scan, config, m_options.uiNumTasks, m_options.dMmPerUnit, m_options.gpu);
        } catch (const Zorvan::CInputError& error) {
            if (!m_options.isKeptGoing) throw;
            m_leftOut.emplace_back(error.what());
            return nullptr;
        }
    }

    /// @return whether all scans could be added
    bool addScans(std::span<const Zorvan::SurfelScan> scans, CSession& session)
    {
        if (!m_options.startPoses.empty() && m_options.startPoses.size() != scans.size())
            throw std::invalid_argument("start poses: one per scan, or none at all");
        const ConfigurationFPFH config = SettingsForSearch(session.GetRegistration().GetRegistrationConfig());
        m_hooks.Start("features", scans.size());
        std::string refused;
        std::size_t added = 0;
        for (std::size_t i = 0; i < scans.size(); ++i, m_hooks.Advance()) {
            const auto set = computeFeatures(scans[i], config);
            const CTrafo start = m_options.startPoses.empty() ? CTrafo::Invalid() : m_options.startPoses[i];
            if (set && session.Add(scans[i], set, start))
                ++added;
            else if (set)
                refused += (refused.empty() ? "" : ", ") + scans[i].file.filename().string();
        }
        m_hooks.Finish();
        if (!refused.empty()) m_leftOut.push_back("too few points or features: " + refused);
        return added == scans.size();
    }

    void merge(CClusterRegistration& registration)
    {
        // Most pairs of many scans have nothing in common, and most others are found soon.
        constexpr double dQuickShare = 0.25;
        CMergeErrors errors;
        for (const double share : {dQuickShare, 1.0}) {
            if (registration.GetClusterIDs().size() < 2 || m_hooks.IsAborted()) break;
            registration.ForgetFailures();
            registration.SetSearch(searchWith(errors, share));
            registration.Run(m_hooks);
        }
        registration.SetSearch({});
    }

    const RegisterOptions& m_options;
    const Zorvan::Hooks& m_hooks;
    std::string m_settingsWords;
    std::vector<std::string> m_leftOut;
    CStageTimes m_times;
};

} // namespace

bool RegisterResult::IsOneCluster() const
{
    const auto isWithFirst = [&](const ScanRow& scan) { return scan.cluster == table.scans.front().cluster; };
    return isComplete && std::ranges::all_of(table.scans, isWithFirst);
}

RegisterResult RegisterScans(std::span<const Zorvan::SurfelScan> scans, const RegisterOptions& options,
                             const Zorvan::Hooks& hooks)
{
    if (scans.empty()) throw std::invalid_argument("no scans");
    CRegistrationRun run(options, hooks);
    auto scheduler = std::make_shared<Zorvan::CJobScheduler>(options.uiNumTasks);
    CSession session(run.ChooseSettingsFor(scans), options.dMmPerUnit, scheduler->CreateJobGroup({}, {}));
    return run.Run(std::move(scheduler), std::move(session), scans);
}

RegisterResult RegisterScans(std::shared_ptr<Zorvan::CJobScheduler> scheduler, CSession session,
                             std::span<const Zorvan::SurfelScan> scans, const RegisterOptions& options,
                             const Zorvan::Hooks& hooks)
{
    return CRegistrationRun(options, hooks).Run(std::move(scheduler), std::move(session), scans);
}

} // namespace prereg
