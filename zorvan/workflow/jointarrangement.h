// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"

namespace prereg {

// All scans at once: of the views of a box any two may show the same side or opposite ones, and only all of them
// together tell.
//
// A search begins with two scans in each place that they may have, and brings in one scan after another, that which
// matches most, in each place that stands beside those that are in. Of the arrangements that come about so, those go
// that another one rules out, see AreRuledOut: a wrong place contradicts a few scans by little, and all of them by
// much. Several pairs of other scans each make such a start. It is for up to 32 scans, which have all been searched
// with each other. Same pairs, same answer; a stop leaves all as it is.

/// Finds a first group where hardly a pair is sure of its pose: what all arrangements of more than half of the scans
/// agree upon, if that is more than half too. If it is less, scans go out of the groups that there are where some
/// arrangement has them elsewhere. Nothing is done where a group of more than half is there already.
/// @param placing  as PlaceScans returns it; for scans that are in no group see PlaceTogether
/// @return         whether groups have changed
[[nodiscard]] ZORVAN_WORKFLOW_API bool StartJointly(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

/// Takes those scans out of a group of more than half of all that lie elsewhere in an arrangement of as many scans
/// which the group does not rule out. To be called when the poses are as good as they get; does nothing where more
/// contradicts them than scans ever do where they belong.
/// @return whether any went
[[nodiscard]] ZORVAN_WORKFLOW_API bool TakeOutUnsure(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

} // namespace prereg
