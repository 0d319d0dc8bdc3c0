// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/session.h"

#include <string>
#include <vector>

namespace prereg {

/// What is wrong with a session that was read, in words for the user; empty when nothing is. All later work relies on
/// it: settings are within their limits; scans and clusters name each other; poses do not scale; poses and points are
/// finite and small enough for their squares; no surface is empty.
///
/// Scans also lie where their poses say: an ICP that may not move them accepts their places, pair by pair, or the place
/// of a part of a cluster on all the rest of it. This is what recognises the surface of one scan under the name of
/// another.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string WhatIsWrongWith(const CClusterRegistration& registration,
                                                              const std::vector<CSession::ScanFile>& files);

} // namespace prereg
