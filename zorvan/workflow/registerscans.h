// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/documents/bson.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/featureset.h"
#include "zorvan/workflow/registrationtable.h"
#include "zorvan/workflow/session.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// How many scans are registered. As it comes, everything is chosen from the scans.
struct RegisterOptions
{
    bool isOptimized = false;            ///< refines all poses together afterwards; scans that disagree leave the rest
    std::optional<bool> isWeighed = {};  ///< places scans where all pairs agree, see PlaceScans, instead of merging the
                                         ///< first pair that fits: slower, and right on parts that fit in many places;
                                         ///< nothing: when one of the scans has plane faces as machine parts have;
                                         ///< of others, what pairs are at odds about after a merge
    bool isKeptGoing = false;            ///< leaves out a scan whose sizes suit no settings, instead of throwing
    std::vector<CTrafo> startPoses = {}; ///< of the scans to one frame (mm), tried before a search; invalid ones are
                                         ///< not known; empty: none is
    std::optional<Zorvan::Position> frameShift = {}; ///< mm: that frame is about it, as scans are about their shifts;
                                                     ///< nothing: about that of the first scan
    std::optional<double> dGrid = {}; ///< point distance (mm) that all settings grow with; nothing: the median of
                                      ///< what ChooseSettings finds for each scan
    bson::object settings = {};       ///< replace the automatic ones; see ReadSettingsText
    unsigned uiNumTasks = 1;          ///< threads that work; the result does not depend on it
    GpuContext gpu = nullptr;         ///< computes the features, unless null
    double dMmPerUnit = 1.0;          ///< unit of the lengths in words and results
    JournalStamp stamp = {};          ///< for the journal of the session; without a time, same scans, same session
};

/// Scans in clusters, each with a frame of its own, and how well they fit there.
struct RegisterResult
{
    std::shared_ptr<Zorvan::CJobScheduler> scheduler; ///< of the session, which it outlives
    CSession session;                                 ///< to save, to ask, to go on with
    RegistrationTable table;                          ///< poses and fit of every scan and pair
    std::string settingsWords;                        ///< for people: what was chosen; empty for a session
    std::vector<std::string> leftOut;                 ///< for people: which scans did not come in, and why
    std::string times;                                ///< what the stages took
    bool isComplete = true;                           ///< all scans came in; whether they are in one frame: see `table`
    bool isStopped = false;                           ///< by the hooks; this is what was found until then

    /// Whether every scan came in and lies in one frame.
    [[nodiscard]] ZORVAN_WORKFLOW_API bool IsOneCluster() const;
};

/// Brings scans into common frames: settings from all of them, features, searches and merges until no more fit
/// together, and an optimisation when that is asked for. This is all that `zorvan register` does.
///
///     const auto all = prereg::RegisterScans(scans, {.isOptimized = true}, hooks);
///     for (const auto& scan : all.table.scans) show(scan.file, scan.pose);
///     prereg::WriteRegistration("out", all.session, all.table);
///
/// Scans that follow each other in the list are tried first. Exact copies of a scan, as when a file is given twice,
/// come to lie on it, and follow all other scans in the table. Same scans and options, same result.
/// @throws CInputError when features cannot be computed, see ComputeFeatureSet
/// @throws std::invalid_argument without scans, and when there are start poses, but not one per scan
[[nodiscard]] ZORVAN_WORKFLOW_API RegisterResult RegisterScans(std::span<const Zorvan::SurfelScan> scans,
                                                               const RegisterOptions& options = {},
                                                               const Zorvan::Hooks& hooks = Zorvan::Hooks::None());

/// The same for scans that come to a session, which keeps the settings and the frames it began with: `dGrid`,
/// `settings` and `frameShift` have no effect.
/// @param scheduler  the one that the session works with
[[nodiscard]] ZORVAN_WORKFLOW_API RegisterResult RegisterScans(std::shared_ptr<Zorvan::CJobScheduler> scheduler,
                                                               CSession session,
                                                               std::span<const Zorvan::SurfelScan> scans,
                                                               const RegisterOptions& options,
                                                               const Zorvan::Hooks& hooks = Zorvan::Hooks::None());

} // namespace prereg
