// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/placing.h"
#include "zorvan/workflow/registrationtable.h"
#include "zorvan/workflow/session.h"

#include <span>

namespace prereg {

/// How well the scans of a session fit where they are: overlap and residual of every pair in one cluster, and the slip
/// of each scan against the first one of its cluster. The poses stay as they are.
/// @param placing  why each scan is where it is; null: pairs were merged as they fitted
/// @param group    does the work; see the multi-object ComputeICPRegistration
[[nodiscard]] ZORVAN_WORKFLOW_API RegistrationTable LookAtPoses(const CSession& session, const Placing* placing,
                                                                const CSession::Group& group);

/// Adds what all pairs say of the poses, see WeighPairs.
ZORVAN_WORKFLOW_API void AddPairs(std::span<const PairStanding> pairs, RegistrationTable& table);

} // namespace prereg
