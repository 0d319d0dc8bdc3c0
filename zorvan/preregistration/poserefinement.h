// SPDX-License-Identifier: MIT
#pragma once

// Rough judging and refining of many poses by projection. Not installed.

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/preregistration/projectedsurface.h"
#include "zorvan/preregistration/surfaceedges.h"

#include <cstddef>
#include <limits>
#include <vector>

namespace prereg {

/// A scan that is ready to be matched: its images, and samples of its surface and its edges.
struct MatchedScan
{
    std::vector<CProjectedSurface> sides; ///< one along the viewing ray; several of what was not seen from one side
    bool hasSensor = true;                ///< what lies before its surface, or is missing there, speaks against a pose
    Vectors points;                       ///< any first part is spread over the whole surface
    Vectors normals;
    std::vector<SurfaceEdge> edges; ///< as the images have them
    std::size_t uiEdgeSamples = 0;  ///< the first ones of these
};

/// What speaks for a pose and against it, counted over the samples of both scans.
struct MatchCounts
{
    int iMatched = 0;
    int iInFront = 0;         ///< nearer to the other sensor than what that one saw behind
    int iUnseen = 0;          ///< faces the other sensor, which saw nothing there
    int iEdges = 0;           ///< edges that lie on edges
    float fSumSquares = 0.0F; ///< of the matched distances (mm^2)

    /// Contradictions weigh four times a match.
    [[nodiscard]] float Score() const { return static_cast<float>(iMatched - 4 * (iInFront + iUnseen) + 2 * iEdges); }
};

struct MatchLimits
{
    float tolerance = 0.0F;                             ///< mm
    float edgeTolerance = 0.0F;                         ///< mm; 0: edges are not looked at
    float inFront = 0.0F;                               ///< mm
    float minCos = 0.9F;                                ///< between normals
    int iMostAgainst = std::numeric_limits<int>::max(); ///< contradictions: with more, the rest is not looked at
    std::size_t uiSamples = 0;                          ///< of each scan, at most
};

/// The mean of the points; the origin of none.
[[nodiscard]] kdtree::Vector<3> MiddleOf(const Vectors& points);

/// @param pose  `flt` to `fix`
[[nodiscard]] MatchCounts CountMatches(const MatchedScan& fix, const MatchedScan& flt, const CTrafo& pose,
                                       const MatchLimits& limits);

struct RefinementSettings
{
    unsigned uiPasses = 8;
    float first = 0.0F;          ///< tolerance of the first pass (mm)
    float last = 0.0F;           ///< and of the last one
    float minCos = 0.8F;         ///< between normals of a pair
    float radius = 0.0F;         ///< of the object (mm): makes turns comparable with shifts
    std::size_t uiSamples = 250; ///< of each scan
};

/// Steps that bring the samples of each scan into the planes that the other one shows in their pixels, and edges onto
/// edges, which holds what planes let slide.
[[nodiscard]] CTrafo RefinePose(const MatchedScan& fix, const MatchedScan& flt, const CTrafo& pose,
                                const RefinementSettings& settings);

} // namespace prereg
