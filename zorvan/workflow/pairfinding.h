// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/pairverdict.h"

#include <vector>

namespace prereg {

/// What a search has found for a pair.
struct PairFinding
{
    struct Place
    {
        CTrafo pose;
        PoseCounts counts;
        bool isHeld = true;  ///< false: it may slide, so that it is no place to put a scan, only a rival
        bool isOpen = false; ///< nothing contradicts it, whether surface is shared or not: see EFinding::NotRuledOut
    };
    EPairVerdict eVerdict = EPairVerdict::TooLittle;
    std::vector<Place> places; ///< that explain both scans, best first

    [[nodiscard]] bool IsAligned() const { return eVerdict == EPairVerdict::Aligned && !places.empty(); }
};

} // namespace prereg
