// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/crangeimage.h"

namespace prereg {

/// Lengths in mm.
struct DisputeLimits
{
    float front = 0.0F; ///< above a surface by more: the sensor would have looked through
    float near = 0.0F;  ///< this near to a surface a point may lie on it
    float pixel = 0.0F; ///< of the coarser of both images: what an edge errs by
};

/// How much of one scan lies in the middle of patches that the other scan disputes: a plate with a window where the
/// other one is closed. A patch is in one piece; each of its pixels looks at the other sensor, is hidden by nothing
/// that this one saw, and lies near no surface of it; in a few at least the sensor looked through the surface, so that
/// lost data make no patch. Edges err by a pixel or two, which makes strips:
/// only pixels count whose eight neighbours belong to the patch too.
/// @param toOther  from the frame of `own` into that of `other`, whose ray must be known
/// @return         in pixels of the coarser image
[[nodiscard]] ZORVAN_API unsigned CountDisputed(const CRangeImage& own, const CRangeImage& other, const CTrafo& toOther,
                                                const DisputeLimits& limits);

} // namespace prereg
