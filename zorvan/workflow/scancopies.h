// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/scans/scan.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace prereg {

struct ScanToCompare
{
    std::span<const kdtree::Vector<3>> points; ///< empty: a copy of none
    std::span<const kdtree::Vector<3>> normals;
    Zorvan::Position shift = {};
};

/// Of each scan the first one that has the same points, normals and shift, when that is another one. Scans that differ
/// in their number of points or in the first of them, as those with other noise do, are told apart by that. Not
/// installed.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::optional<std::size_t>>
FindCopies(std::span<const ScanToCompare> scans);

} // namespace prereg
