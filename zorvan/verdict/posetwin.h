// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/verdictlimits.h"

namespace prereg {

/// Another place of the floating scan, to which a symmetry of the surface that matches leads, and which may be the
/// truth.
struct PoseTwin
{
    CTrafo pose;         ///< floating into fixed coordinates, good to a pixel or so
    PoseCounts counts;   ///< at it, with what tells it from the given pose
    bool isTold = false; ///< explains the scans as well only if it does so by surface that it shares
};

/// Whether so much speaks against a twin that it is not the truth.
[[nodiscard]] inline bool IsTwinContradicted(const PoseCounts& counts)
{
    return counts.Contradictions() > verdict::dTwinContradiction * counts.uiSamples ||
           counts.uiSolid >= verdict::uiMinSolid;
}

} // namespace prereg
