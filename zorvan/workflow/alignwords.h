// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/align.h"
#include "zorvan/workflow/export.h"

#include <string>

namespace prereg {

/// "b.ply is aligned to a.ply, RMSE 0.02 mm, overlap 0.4, slip 0.01 mm", or what speaks against it behind a colon.
/// @param dMmPerUnit  lengths are in this unit
[[nodiscard]] ZORVAN_WORKFLOW_API std::string VerdictText(const AlignResult& result, const std::string& fix,
                                                          const std::string& flt, double dMmPerUnit);

/// "turns about x, y, z are known to 0.01, 0.02, 0.01 degrees and shifts to 0.003, 0.002, 0.002 mm (1 sigma); the
/// surfaces hold ..."; empty where nothing is known.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string UncertaintyText(const PoseEstimate& estimate, double dMmPerUnit);

/// A line for each candidate with its finding and the samples that match.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string CandidatesText(const AlignResult& result);

} // namespace prereg
