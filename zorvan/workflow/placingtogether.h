// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"

namespace prereg {

/// Puts in scans that no pair places by itself: a flat face slides over each other scan, and what holds it is where it
/// ends, beside all others together (see SettleAmong).
///
/// Asked are scans that PlaceScans has left out though they have places beside the largest group, of four scans or
/// more. One is put in where all pairs with the group hold it, none of them refutes it, and each other place is worse
/// by a margin; with each the group knows more, so those that are left are asked again. To be called when the poses of
/// the group are as good as they get: a scan that is a few pixels off contradicts others wherever it lies. The fit of
/// surfaces that an optimisation makes may move such a scan again.
/// @param placing  as PlaceScans returns it
/// Same pairs, same placing. A stop ends it with what has been placed until then.
[[nodiscard]] ZORVAN_WORKFLOW_API Placing PlaceTogether(IScanPairs& pairs, Placing placing, const Zorvan::Hooks& hooks);

} // namespace prereg
