// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/preregistration/cjudgedsearch.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/featureset.h"

#include <memory>
#include <string>
#include <vector>

namespace prereg {

using PairCandidate = CJudgedSearch::Candidate;

struct PairSearchResult
{
    std::vector<PairCandidate> candidates; ///< explanations first, best first
    PairVerdict verdict;                   ///< on the candidates
    std::string words;                     ///< for the user: what became of the proposals
    std::string times;                     ///< and what it took
    bool isStopped = false;
};

struct PairSearchOptions
{
    double dMmPerUnit = 1.0; ///< for the lengths in messages
    unsigned uiNumTasks = 1;
    GpuContext gpu;                           ///< computes the features, unless null
    bool areLimitsRequired = false;           ///< a pose must also pass the limits of the ICP
    std::shared_ptr<const CScanView> fixView; ///< of all points of the scans
    std::shared_ptr<const CScanView> fltView;
};

/// Finds the pose of `flt` in the frame of `fix` without a start pose: features, search, refinement on all points,
/// verdict.
/// @param config  as AllSettingsForGrid makes them, with what the user has set
/// @throws CInputError            when a scan has too few features for a search
/// @throws std::invalid_argument  when a view is missing
/// A stop ends the search with what has been found. Same scans, same result.
[[nodiscard]] ZORVAN_WORKFLOW_API PairSearchResult SearchPair(const Zorvan::SurfelScan& fix,
                                                              const Zorvan::SurfelScan& flt,
                                                              const ConfigurationFPFH& config,
                                                              const PairSearchOptions& options,
                                                              const Zorvan::Hooks& hooks);

} // namespace prereg
