// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/verdict/disputedspots.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace prereg {

/// Divides the scans of a group that are of objects which differ in some spots.
///
/// Scans that show a spot belong together, and so do those that lack it. Spots that no scan sees both of say nothing of
/// each other, and a scan that sees none of them may be of either object: it belongs to none, unless one side of each
/// spot is much the smaller one. Then it stays with the others.
/// @return  for each scan the smallest number of those that it belongs with; nothing: it may be of several objects
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::optional<std::size_t>>
DivideByCamps(std::span<const DisputedSpot> spots, std::size_t numScans);

} // namespace prereg
