// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/pairverdict.h"

#include <vector>

namespace prereg {

/// A pose of poses of poses is no rotation any more: each product through an inverse that is a transpose doubles what
/// it is off. After 99 joins it was 0.002. A turn about an axis is off by as much to begin with.
[[nodiscard]] inline CTrafo Rigid(const CTrafo& pose) { return {pose.GetQuaternion(), pose.GetTranslation()}; }

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
