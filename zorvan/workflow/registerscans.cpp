// SPDX-License-Identifier: MIT
#include "zorvan/workflow/registerscans.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/freedmemory.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/arranger.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/disputerow.h"
#include "zorvan/workflow/lookatposes.h"
#include "zorvan/workflow/mergepairs.h"
#include "zorvan/workflow/placing.h"
#include "zorvan/workflow/scancopies.h"
#include "zorvan/workflow/sessionedit.h"
#include "zorvan/workflow/settingsfile.h"
#include "zorvan/workflow/stagetimes.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

namespace prereg {

namespace {

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
        const CSession::Step before = session.GetStep();
        const std::map<std::string, std::string> clustersBefore = ClustersByName(session);
        m_isDivided = hasSeveralGroups(session.GetRegistration());
        const bool isComplete = addScans(scans, session);
        const auto group = scheduler->CreateJobGroup({}, {});
        setCopiesAside(session, group);
        endStage("features");
        std::string times;
        RegistrationTable table;
        if (!m_isWeighed) mergeAndOptimize(session.GetRegistration(), group);
        std::optional<CArranger> arranger;
        if (m_isWeighed || isWeighedAfterwards())
            arranger.emplace(session, group, m_isWeighed ? EPairEffort::All : EPairEffort::Glances);
        bool isPlaced =
            arranger && (m_isWeighed || (!m_hooks.IsAborted() && arranger->FindsFault(session.GetRegistration())));
        if (arranger && !m_isWeighed) endStage("check");
        if (isPlaced) placeAndOptimize(session.GetRegistration(), *arranger);
        std::vector<Dispute> disputes;
        if (arranger && isChecked()) disputes = divideTwins(session.GetRegistration(), *arranger);
        isPlaced = isPlaced || !disputes.empty();
        std::vector<PairStanding> pairs;
        Placing placing;
        std::string pairWords;
        if (arranger && (isPlaced || isChecked())) pairs = arranger->GetPairs();
        if (isPlaced) {
            placing = arranger->GetPlacing();
            pairWords = arranger->Words(pairs);
        }
        if (arranger) session.Know(arranger->GetKnownPairs());
        arranger.reset(); // the views of many scans take much memory
        Zorvan::ReturnFreedMemory();
        joinCopies(scans, session);
        if (isPlaced) {
            placing.places.resize(session.GetFiles().size(), {EPlace::Placed}); // copies come last
            table = LookAtPoses(session, &placing, group);
            for (const Dispute& dispute : disputes) table.disputes.push_back(RowOf(dispute, table));
            times = m_times.Words() + ", " + pairWords;
        } else {
            table = LookAtPoses(session, nullptr, group);
            times = m_times.Words();
        }
        AddPairs(pairs, table);
        const bool isStopped = m_hooks.IsAborted();
        table.isStopped = isStopped;
        table.leftOut = m_leftOut;
        const SessionJournal journal = JournalOfRun(clustersBefore, table, m_isOptimized, m_options.stamp);
        for (const JournalEntry& entry : journal) session.Note(entry);
        if (!journal.empty() && !before.files.empty()) session.AddStep(before);
        return {std::move(scheduler), std::move(session), std::move(table), m_settingsWords, m_leftOut,
                std::move(times),     isComplete,         isStopped};
    }

private:
    struct Copy
    {
        std::size_t scan; ///< of those that are new
        std::shared_ptr<const CFPFHPointSet> set;
        UniversalUniqueID original;
    };
    struct OldCopy
    {
        ScanAside scan;
        UniversalUniqueID original;
    };

    void endStage(const std::string& name)
    {
        Zorvan::ReturnFreedMemory();
        m_times.End(name);
    }

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

    /// Whether some scan, of the session or new, has plane faces: features cannot tell these apart, and the first pair
    /// that fits is often a wrong one.
    [[nodiscard]] static bool hasPart(const CSession& session,
                                      const std::vector<std::shared_ptr<const CFPFHPointSet>>& added)
    {
        const auto isPart = [](const auto& set) {
            return set && PlaneShare(set->GetNormals()) > verdict::dMaxPlaneShare;
        };
        return std::ranges::any_of(added, isPart) ||
               std::ranges::any_of(session.GetFiles(), [&](const CSession::ScanFile& file) {
                   return isPart(session.GetRegistration().GetPointSetAndTransform(file.id).first);
               });
    }

    /// @return whether all scans could be added
    bool addScans(std::span<const Zorvan::SurfelScan> scans, CSession& session)
    {
        if (!m_options.startPoses.empty() && m_options.startPoses.size() != scans.size())
            throw std::invalid_argument("start poses: one per scan, or none at all");
        const ConfigurationFPFH config = SettingsForSearch(session.GetRegistration().GetRegistrationConfig());
        m_hooks.Start("features", scans.size());
        std::vector<std::shared_ptr<const CFPFHPointSet>> sets;
        std::vector<ScanToCompare> given;
        for (const Zorvan::SurfelScan& scan : scans) given.push_back({scan.points, scan.normals, scan.shift});
        const auto same = FindCopies(given);
        for (std::size_t i = 0; i < scans.size(); ++i) {
            sets.push_back(same[i] ? sets[*same[i]] : computeFeatures(scans[i], config));
            m_hooks.Advance();
        }
        m_hooks.Finish();
        m_isWeighed = m_options.isWeighed ? *m_options.isWeighed : hasPart(session, sets);
        const auto originals = findOriginals(session, scans, sets);
        std::vector<UniversalUniqueID> ids;
        for (const CSession::ScanFile& file : session.GetFiles()) ids.push_back(file.id);
        std::string refused;
        std::size_t added = 0;
        for (std::size_t i = 0; i < scans.size(); ++i) {
            const auto& original = originals[ids.size()];
            ids.emplace_back();
            const CTrafo start = m_options.startPoses.empty() ? CTrafo::Invalid() : m_options.startPoses[i];
            if (original && ids[*original]) {
                m_copies.push_back({i, sets[i], ids[*original]});
                ++added;
            } else if (sets[i] && session.Add(scans[i], sets[i], start, isRayKept())) {
                ids.back() = session.GetFiles().back().id;
                ++added;
            } else if (sets[i])
                refused += (refused.empty() ? "" : ", ") + scans[i].file.filename().string();
        }
        if (!refused.empty()) m_leftOut.push_back("too few points or features: " + refused);
        return added == scans.size();
    }

    [[nodiscard]] bool isRayKept() const { return m_options.isWeighed.value_or(true); }

    /// The scans of the session, then the new ones.
    [[nodiscard]] static std::vector<std::optional<std::size_t>>
    findOriginals(const CSession& session, std::span<const Zorvan::SurfelScan> scans,
                  const std::vector<std::shared_ptr<const CFPFHPointSet>>& added)
    {
        std::vector<CClusterRegistration::PointSet> old;
        std::vector<ScanToCompare> all;
        for (const CSession::ScanFile& file : session.GetFiles()) {
            old.push_back(session.GetRegistration().GetPointSetAndTransform(file.id).first);
            all.push_back({old.back()->GetPoints(), old.back()->GetNormals(), file.shift});
        }
        for (std::size_t i = 0; i < scans.size(); ++i) {
            all.push_back({{}, {}, scans[i].shift});
            if (!added[i]) continue;
            all.back().points = added[i]->GetPoints();
            all.back().normals = added[i]->GetNormals();
        }
        return FindCopies(all);
    }

    /// Copies that came with earlier runs take no part either.
    void setCopiesAside(CSession& session, const CSession::Group& group)
    {
        const auto originals = findOriginals(session, {}, {});
        std::vector<UniversalUniqueID> names;
        std::vector<UniversalUniqueID> originalNames;
        for (std::size_t i = 0; i < originals.size(); ++i) {
            if (!originals[i]) continue;
            names.push_back(session.GetFiles()[i].id);
            originalNames.push_back(session.GetFiles()[*originals[i]].id);
        }
        if (names.empty()) return;
        const std::vector<ScanAside> aside = SetAside(session, names, group);
        for (std::size_t k = 0; k < names.size(); ++k) m_oldCopies.push_back({aside[k], originalNames[k]});
    }

    /// Exact copies of other scans come to lie on these. They take no part in merges and in the optimisation: nobody
    /// fits a scan as its copies do, so that all others stand out.
    void joinCopies(std::span<const Zorvan::SurfelScan> scans, CSession& session)
    {
        if (m_copies.empty() && m_oldCopies.empty()) return;
        std::map<UniversalUniqueID, std::vector<UniversalUniqueID>> copiesOf;
        for (const OldCopy& copy : m_oldCopies)
            if (session.AddAgain(copy.scan.file, copy.scan.set, copy.scan.start))
                copiesOf[copy.original].push_back(copy.scan.file.id);
        for (const Copy& copy : m_copies)
            if (session.Add(scans[copy.scan], copy.set, CTrafo::Invalid(), isRayKept()))
                copiesOf[copy.original].push_back(session.GetFiles().back().id);
        session.GetRegistration().SetArranger(
            [&](const CClusterRegistration::ClusterContents& clusters, const Zorvan::Hooks&) {
                std::set<UniversalUniqueID> isCopy;
                for (const auto& [original, copies] : copiesOf) isCopy.insert(copies.begin(), copies.end());
                std::vector<CClusterRegistration::Trafos> groups;
                for (const auto& [id, entities] : clusters) {
                    auto& group = groups.emplace_back();
                    for (const auto& [entity, pose, start, set] : entities) {
                        if (isCopy.contains(entity)) continue;
                        group[entity] = pose;
                        for (const UniversalUniqueID& copy : copiesOf[entity]) group[copy] = pose;
                    }
                }
                return groups;
            });
        session.GetRegistration().Run();
        session.GetRegistration().SetArranger({});
    }

    /// A merge of the first pairs that fit asks nothing of the others: a wrong one keeps scans out, takes others apart
    /// with it, or stays with all that hangs on it.
    [[nodiscard]] bool isWeighedAfterwards() const { return !m_options.isWeighed && isChecked(); }

    /// A run that is stopped saves the time; but not where it may have merged what an earlier one has divided.
    [[nodiscard]] bool isChecked() const { return m_isDivided || !m_hooks.IsAborted(); }

    [[nodiscard]] static bool hasSeveralGroups(const CClusterRegistration& registration)
    {
        return std::ranges::count_if(registration.GetClusterIDs(),
                                     [&](const UniversalUniqueID& id) { return registration.Size(id) > 1; }) > 1;
    }

    void mergeAndOptimize(CClusterRegistration& registration, const CSession::Group& group)
    {
        MergePairs(registration, group, m_hooks);
        endStage("registration");
        if (!m_options.isOptimized || m_hooks.IsAborted()) return;
        registration.SetFitToPrimary(true);
        registration.SetDraws(EDraws::Shared);
        registration.OptimizeRegistration(true, m_hooks);
        m_isOptimized = !m_hooks.IsAborted();
        endStage("optimization");
    }

    void placeAndOptimize(CClusterRegistration& registration, CArranger& arranger)
    {
        placeInRounds(registration, arranger);
        if (m_hooks.IsAborted() || !m_isWeighed) return; // where pairs had glances only, rivals are not known
        if (arranger.ArrangeAnew(registration, m_hooks)) {
            endStage("arranging");
            // No rounds: these weigh places as pairs have found them, with which scans that slide are soon at odds.
            if (m_options.isOptimized) optimize(registration);
        }
        if (m_hooks.IsAborted()) return;
        arranger.ArrangeTogether(registration, m_hooks);
        endStage("settling");
    }

    void optimize(CClusterRegistration& registration)
    {
        registration.OptimizeRegistration(true, m_hooks);
        m_isOptimized = true;
        endStage("optimization");
    }

    void placeInRounds(CClusterRegistration& registration, CArranger& arranger)
    {
        registration.SetArranger(
            [&](const auto& clusters, const Zorvan::Hooks& hooks) { return arranger.Arrange(clusters, hooks); });
        registration.SetFitToPrimary(true);
        registration.SetDraws(EDraws::Shared);
        // Poses that stay as an optimisation has left them need no other one.
        const bool isSettled = !registration.Run(m_hooks) && m_isOptimized;
        endStage(m_isWeighed ? "registration" : "weighing");
        // What lies better after an optimisation may speak against what seemed to fit before, and for what did not.
        constexpr int iMaxRounds = 2;
        for (int round = isSettled ? iMaxRounds : 0;
             m_options.isOptimized && round < iMaxRounds && !m_hooks.IsAborted(); ++round) {
            optimize(registration);
            if (m_hooks.IsAborted() || !registration.Run(m_hooks)) break;
        }
        registration.SetArranger({});
    }

    /// What scans of an object and of one that differs in a hole have been placed together, comes apart again at the
    /// end: no pair of them tells. Poses are then settled without the others.
    std::vector<Dispute> divideTwins(CClusterRegistration& registration, CArranger& arranger)
    {
        std::vector<Dispute> disputes = arranger.Divide(registration);
        if (disputes.empty()) return disputes;
        endStage("division");
        if (!m_isOptimized) return disputes;
        registration.OptimizeRegistration(true, m_hooks);
        endStage("optimization");
        return disputes;
    }

    const RegisterOptions& m_options;
    const Zorvan::Hooks& m_hooks;
    bool m_isWeighed = false;
    std::string m_settingsWords;
    std::vector<std::string> m_leftOut;
    std::vector<Copy> m_copies;
    std::vector<OldCopy> m_oldCopies;
    bool m_isDivided = false; ///< the session held several clusters of more than one scan
    bool m_isOptimized = false;
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
    session.SetShift(options.frameShift.value_or(scans.front().shift));
    return run.Run(std::move(scheduler), std::move(session), scans);
}

RegisterResult RegisterScans(std::shared_ptr<Zorvan::CJobScheduler> scheduler, CSession session,
                             std::span<const Zorvan::SurfelScan> scans, const RegisterOptions& options,
                             const Zorvan::Hooks& hooks)
{
    return CRegistrationRun(options, hooks).Run(std::move(scheduler), std::move(session), scans);
}

} // namespace prereg
