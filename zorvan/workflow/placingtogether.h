// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"

namespace prereg {

/// Asks all scans of a group together about each of its scans, and about those that are left.
///
/// A scan that fits the others as well in another place, though pairs seemed to tell the two apart, goes out. Then
/// scans are put in that no pair places by itself: a flat face slides over each other scan, and what holds it is where
/// it ends, beside all others together (see SettleAmong).
///
/// Asked is a group of more than half of all scans: in a smaller one, which may have a wrong scan in it, few have met
/// the others. A scan is put in where all pairs with the group hold it, none of them refutes it, and each other place,
/// those of the scan turned by a quarter included, is worse by a margin; with each the group knows more, so those that
/// are left are asked again. To be called when the poses of the group are as good as they get: a scan that is a few
/// pixels off contradicts others wherever it lies. The fit of surfaces that an optimisation makes may move such a scan
/// again.
/// @param placing  as PlaceScans returns it
/// Same pairs, same placing. A stop ends it with what has been placed until then.
[[nodiscard]] ZORVAN_WORKFLOW_API Placing PlaceTogether(IScanPairs& pairs, Placing placing, const Zorvan::Hooks& hooks);

} // namespace prereg
