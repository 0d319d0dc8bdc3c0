// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/util/universaluniqueid.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/likelyscans.h"
#include "zorvan/workflow/session.h"

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace prereg {

/// A scan that belongs to no other one yet.
struct LooseScan
{
    UniversalUniqueID id;
    CTrafo start = CTrafo::Invalid(); ///< as the caller gave it
    CClusterRegistration::PointSet set;
};

/// Merges the scans of a block as if there were no others, told which of them are likely to overlap. Called by several
/// threads.
using BlockMerger = std::function<std::vector<CClusterRegistration::Trafos>(std::span<const LooseScan>,
                                                                            const LikelyScans&, const Zorvan::Hooks&)>;

/// Searches two scans for the pose of the second in the frame of the first; invalid: none. Called by several threads.
using ScanSearch = std::function<CTrafo(const LooseScan& fix, const LooseScan& flt, const Zorvan::Hooks&)>;

constexpr std::size_t uiBlockScans = 32; ///< scans of a block
constexpr std::size_t uiBlockShared = 8; ///< of these, scans that the next block has too

/// Merges many scans by blocks of a few that are likely to share surface (`GrowBlocks`), whatever their order in the
/// list. Neighbouring blocks share scans; clusters that put the scans that they share in the same places belong
/// together, and no search is needed for that. What is left apart is searched by its likely pairs.
///
/// A merge takes as long as all that has been merged is large, and so does a search in it, which finds the less the
/// more there is besides the place that it looks for. Block by block the time grows with the number of scans, not with
/// its square, and blocks are merged side by side.
/// @param config  the radius of features, and how far apart two blocks may put a scan that they share
/// @param group   where the blocks are merged
/// @return        clusters of several scans; a scan that is in none was not merged. Does not depend on the threads
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<CClusterRegistration::Trafos>
MergeInBlocks(std::span<const LooseScan> scans, const BlockMerger& merge, const ScanSearch& search,
              const ConfigurationFPFH& config, const CSession::Group& group, const Zorvan::Hooks& hooks);

/// Puts clusters together that agree on the scans that they share. Of clusters that do not agree, the earlier one keeps
/// these scans. Not installed.
/// @param dPlay     mm: so far apart may two clusters put a scan that they share
/// @param clusters  of scans by their identifiers, each with a frame of its own
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<CClusterRegistration::Trafos>
JoinSharing(std::span<const CClusterRegistration::Trafos> clusters, std::span<const LooseScan> scans, double dPlay);

/// Puts clusters and scans together where the search finds a pose for two of their scans, the likeliest pairs first.
/// Two scans are searched faster than two clusters, which have much besides the place where they meet. Not installed.
/// @return  clusters of several scans
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<CClusterRegistration::Trafos>
LinkLikely(std::span<const CClusterRegistration::Trafos> clusters, std::span<const LooseScan> scans,
           const LikelyScans& likely, const ScanSearch& search, const CSession::Group& group,
           const Zorvan::Hooks& hooks);

} // namespace prereg
