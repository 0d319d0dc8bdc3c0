// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"

namespace prereg {

/// Finds a first group where hardly a pair is sure of its pose: of the views of a box any two may show the same side or
/// opposite ones, and only all of them together tell.
///
/// Begins with two scans in each place that they may have, and brings in one scan after another, that which matches
/// most, in each place that stands beside those that are in. Of the arrangements that come about so, those go that
/// another one rules out, see AreRuledOut: a wrong place contradicts a few scans by little, and all of them by much.
/// Several pairs of other scans each make such a start. What all arrangements agree upon that are left becomes a group,
/// if that is more than half of all scans.
///
/// Nothing is done where there is such a group already, and of more scans than are searched with each other.
/// @param placing  as PlaceScans returns it; what has become of each scan is not said anew, so call that again
/// @return         whether there is a new group
/// Same pairs, same placing. A stop leaves all as it is.
[[nodiscard]] ZORVAN_WORKFLOW_API bool StartJointly(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

} // namespace prereg
