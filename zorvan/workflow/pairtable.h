// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/session.h"

#include <string>

namespace prereg {

/// For people: what searches have found for the pairs of a session, a line a place, and how many pairs of each kind.
/// @param scan  name of one whose pairs alone are of interest; empty: all
/// @throws std::invalid_argument "no scan of this name"
[[nodiscard]] ZORVAN_WORKFLOW_API std::string PairTableText(const CSession& session, const std::string& scan = "");

} // namespace prereg
