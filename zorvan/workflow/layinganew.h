// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/workflow/placing.h"
#include "zorvan/workflow/placinggroups.h"

#include <vector>

namespace prereg {

/// Poses of the scans of a group, each laid beside those that have been before, that which matches them most, to where
/// hardly anything contradicts it (see SettleAmong), and each once more beside all.
/// @param laid  members that lie well already: they stay, in whatever frame these poses are
/// @return      poses of all scans, of which those of the members count; after a stop they are of no use
[[nodiscard]] std::vector<CTrafo> LaidPoses(const IScanPairs& pairs, const CPlacingWeigher& weigher,
                                            const PlacedGroup& group, const PlacedGroup& laid,
                                            const Zorvan::Hooks& hooks);

/// Lays the scans of each group of three and more anew where they slide.
///
/// A fit of surfaces leaves plane faces wherever they have come to lie in their planes, a millimetre off and each
/// beside the others, and no scan by itself finds back, as all others hold it where it is. LaidPoses brings them back.
/// The poses stay as they are unless fewer contradictions are left by a margin: a scan that its surfaces hold lies
/// better than counts can say.
/// @param placing  after an optimisation, which would let the scans slide again
/// @return         whether poses have changed
/// Same pairs, same placing. A stop leaves the group it comes in as it is.
[[nodiscard]] ZORVAN_WORKFLOW_API bool LayAnew(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

/// Moves all scans of each group at once to where their surfaces meet best, see IScanPairs::RefineJointly. What no
/// surface holds stays where contradictions have put it; a group that more contradicts by a margin then stays as it is.
/// @return  whether poses have changed
[[nodiscard]] ZORVAN_WORKFLOW_API bool RefineGroups(IScanPairs& pairs, Placing& placing, const Zorvan::Hooks& hooks);

} // namespace prereg
