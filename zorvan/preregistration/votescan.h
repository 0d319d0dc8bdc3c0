// SPDX-License-Identifier: MIT
#pragma once

// A scan in all the forms that a vote wants. Not installed.

#include "zorvan/preregistration/cvotepreregistration.h"
#include "zorvan/preregistration/matchingdirections.h"
#include "zorvan/preregistration/poserefinement.h"
#include "zorvan/preregistration/surfelthinning.h"
#include "zorvan/verdict/supportplane.h"

#include <vector>

namespace prereg {

/// How fine a vote is, in shares of the object's size.
struct VoteScale
{
    float cell;
    float maxNormalAngle; ///< radians
    unsigned uiPeaks;     ///< of one rotation
};

/// Rotations that are spread evenly lie some 10 degrees from the right one, so the cells are coarse: a point half a
/// size from the middle moves by two of them. Chosen on bracket, spot and bunny.
constexpr VoteScale evenScale{0.045F, 0.384F, 3};
/// Those from directions are right within 3 degrees, and on flat parts many translations lay plane on plane.
constexpr VoteScale directedScale{0.025F, 0.244F, 10};

struct VoteScan
{
    Surfels fine;
    Surfels coarse;
    MatchedScan matched;
    std::vector<MarkedDirection> directions;
};

/// @param size  of the object (mm)
[[nodiscard]] VoteScan PrepareVote(const VotingScan& scan, float size);

/// Of what stands on a plane: surfels, edges and most samples lie off it, and some on it, to hold the distance. Without
/// coarse surfels and directions.
/// @param size  of what stands there (mm)
[[nodiscard]] VoteScan PrepareVoteOffPlane(const VotingScan& scan, const SupportPlane& plane, float size);

} // namespace prereg
