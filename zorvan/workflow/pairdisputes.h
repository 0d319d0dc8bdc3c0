// SPDX-License-Identifier: MIT
#pragma once

// Not installed.

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/placing.h"

#include <span>
#include <vector>

namespace prereg {

/// The pairs that refute the poses they have, but for those of two scans that plenty of others vouch for: of 31,249
/// pairs of 400 patches that were all right, 18 refuted, each by little more than it takes. Up to 32 scans all count.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<PairStanding> FindDisputes(std::span<const PairStanding> pairs);

} // namespace prereg
