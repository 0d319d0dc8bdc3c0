// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/documents/bson.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/verdict/cscanview.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/pairsearch.h"

#include <optional>
#include <string>
#include <vector>

namespace prereg {

/// How two scans are aligned. As it comes, everything is chosen from the scans.
struct AlignOptions
{
    CTrafo start = CTrafo::Invalid(); ///< a rough pose of the floating scan in the fixed one's frame (mm), which is
                                      ///< refined; invalid: the pose is searched for
    std::optional<double> dGrid = {}; ///< point distance (mm) that all settings grow with; nothing: see ChooseSettings
    bson::object settings = {};       ///< replace the automatic ones; see ReadSettingsText
    unsigned uiNumTasks = 1;          ///< at most so many threads; the result does not depend on it
    GpuContext gpu = nullptr;         ///< computes the features, unless null
    double dMmPerUnit = 1.0;          ///< unit of the lengths in words
    SensorKnowledge fixSensor = {};   ///< of the fixed scan, in its coordinates; what is left out is measured
    SensorKnowledge fltSensor = {};   ///< of the floating scan, in its own; a model has none, whatever stands here
};

struct AlignResult
{
    std::vector<PairCandidate> candidates; ///< those that nothing contradicts first, best first
    PairVerdict verdict;                   ///< on the candidates
    PoseEstimate estimate;                 ///< of the first candidate where it explains the scans: how well it is held
    ConfigurationFPFH config;              ///< all settings, as they were used
    std::string settingsWords;             ///< for people: what was chosen and why
    std::string searchWords;               ///< what became of the proposals; empty without a search
    std::string times;                     ///< what the search took; empty without one
    bool isStopped = false;                ///< by the hooks; this is what was found until then

    /// The first candidate; when nothing explains the scans, the nearest miss, or a default result. A success only when
    /// the scans are aligned.
    [[nodiscard]] ICPResult Best() const { return candidates.empty() ? ICPResult() : candidates.front().refined; }
    /// Whether the scans are aligned.
    explicit operator bool() const { return static_cast<bool>(verdict); }
    /// Floating into fixed coordinates, mm; what refinement ended with when the scans are not aligned.
    [[nodiscard]] CTrafo Pose() const { return Best().GetTrafo(); }
};

/// Finds the pose of `flt` in the frame of `fix`: settings from the fixed scan, features, search, refinement on all
/// points, and a verdict by what contradicts each pose; see CJudgedSearch. A start pose is weighed in the same way, but
/// rivals are not looked for. A mesh that is a model (`SurfelScan::model`: CAD, STL, a merged skin) is a surface: it is
/// sampled by area at the grid of the other scan and has no sensor, so that only what that scan saw contradicts a pose.
/// Where settings are given, a pose must pass their limits too. This is all that `zorvan
/// align` does.
///
///     const auto fix = Zorvan::ReadScan("a.ply"), flt = Zorvan::ReadScan("b.stl");
///     if (const auto result = prereg::Align(fix, flt)) use(result.Pose());
///
/// Same scans and options, same result.
/// @throws CInputError when a scan has too few features for a search
[[nodiscard]] ZORVAN_WORKFLOW_API AlignResult Align(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt,
                                                    const AlignOptions& options = {},
                                                    const Zorvan::Hooks& hooks = Zorvan::Hooks::None());

/// Refines and weighs poses that were found elsewhere, `flt` in the frame of `fix`, and compares them with one another.
/// The start pose of the options has no effect.
[[nodiscard]] ZORVAN_WORKFLOW_API AlignResult WeighPoses(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt,
                                                         const std::vector<CTrafo>& poses,
                                                         const AlignOptions& options = {});

/// The result as WritePoses writes it: one cluster, named after the fixed scan, with both scans in its frame; all
/// candidates when `isAll`, else those that explain the scans equally well. Poses in a result are between points about
/// the shifts of the scans, here they are between the coordinates of the files.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::PosesFile ToPoses(const AlignResult& result, const Zorvan::SurfelScan& fix,
                                                            const Zorvan::SurfelScan& flt, double dMmPerUnit,
                                                            bool isAll);

/// What a result says in numbers; what a run that ended early did not reach is NaN.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::RegistrationSummary Summarize(const ICPResult& result);

} // namespace prereg
