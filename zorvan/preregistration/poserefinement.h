#pragma once

// Rough judging and refining of many poses by projection. Not installed.

#include "zorvan/core/ctrafo.h"
#include "zorvan/preregistration/surfaceimage.h"
#include "zorvan/preregistration/surfelthinning.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// One scan, ready to be matched: its image, and samples of its surface and edges in image coordinates.
struct MatchedView
{
    CSurfaceImage image;
    Vectors points;
    Vectors normals;
    std::vector<CSurfaceImage::Edge> edges;
};

/// What speaks for a pose and against it, counted over the samples of both views.
struct MatchCounts
{
    int iMatched = 0;
    int iInFront = 0; ///< nearer to the other sensor than what that one saw behind
    int iUnseen = 0;  ///< faces the other sensor, which saw nothing there
    int iEdges = 0;   ///< edges that lie on edges
    float fSumSquares = 0.0F; ///< of the matched distances (mm^2)

    /// Contradictions weigh four times a match.
    [[nodiscard]] float Score() const
    {
        return static_cast<float>(iMatched - 4 * iInFront - 4 * iUnseen + 2 * iEdges);
    }
};

struct MatchLimits
{
    float tolerance = 0.0F; ///< mm
    float inFront = 0.0F;   ///< mm
    float minCos = 0.9F;    ///< between normals
    bool hasEdges = false;
};

/// @param pose  image coordinates of `flt` to those of `fix`
/// @param most  samples to look at in each view
[[nodiscard]] MatchCounts CountMatches(const MatchedView& fix, const MatchedView& flt, const CTrafo& pose,
                                       const MatchLimits& limits, std::size_t most);

struct RefinementSettings
{
    unsigned uiPasses = 8;
    float first = 0.0F; ///< tolerance of the first pass (mm)
    float last = 0.0F;
    float radius = 0.0F; ///< of the object (mm): makes turns comparable with shifts
    std::size_t uiSamples = 250; ///< in each view
};

/// Steps that bring the samples of each view into the planes that the other shows in their pixels, and edges onto
/// edges.
[[nodiscard]] CTrafo RefinePose(const MatchedView& fix, const MatchedView& flt, const CTrafo& pose,
                                const RefinementSettings& settings);

} // namespace prereg
