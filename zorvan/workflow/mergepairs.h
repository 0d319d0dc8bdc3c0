// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/core/hooks.h"
#include "zorvan/workflow/session.h"

namespace prereg {

/// Merges clusters pair by pair until no more fit, the first pair that passes first: a quick round for all, then a
/// thorough one. The errors of the merges so far show the noise of these scans, and bound that of those to come. More
/// scans than a block has are merged block by block first, see `MergeInBlocks`.
/// @param group  where blocks are merged side by side
void MergePairs(CClusterRegistration& registration, const CSession::Group& group, const Zorvan::Hooks& hooks);

} // namespace prereg
