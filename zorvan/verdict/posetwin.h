// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/verdict/cposejudge.h"

namespace prereg {

/// Another place of the floating scan, to which a symmetry of the surface that matches leads, and which may be the
/// truth.
struct PoseTwin
{
    CTrafo pose;         ///< floating into fixed coordinates, good to a pixel or so
    PoseCounts counts;   ///< at it, with what tells it from the given pose
    bool isTold = false; ///< explains the scans as well only if it does so by surface that it shares
};

} // namespace prereg
