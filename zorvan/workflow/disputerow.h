// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/verdict/disputedspots.h"
#include "zorvan/workflow/registrationtable.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <span>
#include <vector>

namespace prereg {

/// A spot that a cluster was divided about. Not installed.
struct Dispute
{
    DisputedSpot spot; ///< of scans by their numbers
    std::vector<std::size_t> leftOut;
    std::vector<kdtree::Vector<3>> inScans; ///< the middle, in the coordinates of the scan of each sight
};

/// @param spots    of a group, by its members
/// @param members  scans
/// @param poses    of all scans, to the frame of the group
/// @param leftOut  scans of the group that belong to no part of it any more
[[nodiscard]] std::vector<Dispute> DisputesOf(std::span<const DisputedSpot> spots,
                                              const std::vector<std::size_t>& members, const std::vector<CTrafo>& poses,
                                              const std::vector<std::size_t>& leftOut);

/// With the spot where its scans are by now.
[[nodiscard]] DisputeRow RowOf(const Dispute& dispute, const RegistrationTable& table);

/// Lengths and places in the unit of the files. Scans by name, or by their number in the table.
[[nodiscard]] nlohmann::ordered_json DisputeJson(const DisputeRow& dispute, const RegistrationTable& table,
                                                 bool isByName);

} // namespace prereg
