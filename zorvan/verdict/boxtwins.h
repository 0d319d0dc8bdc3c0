// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/posetwin.h"

#include <vector>

namespace prereg {

/// Opposite sides of a box have the same size. So where only its faces match, scans of one side and of the other fold
/// onto each other, half a turn off: half of the samples match there and nothing contradicts. The right pose shares no
/// surface and is not proposed, but a turn of the box that the scans span at the wrong one leads to it. Half turns
/// about the three axes of that box are tried, and quarter turns where two of its sides agree; where one plane holds
/// most of the surface, such as a table, the box of the rest too. Each is moved a pixel or two to where least
/// contradicts it.
/// @param pose     explains the scans
/// @param samples  of both scans, placed there: `judge.Place(pose)`
/// @return         the turns that nothing contradicts, whether they share surface or not; told where too much matches
///                 at the given pose for an accident of a box. None where a scan has no image: a model shows all of its
///                 sides
[[nodiscard]] ZORVAN_API std::vector<PoseTwin> FindBoxTwins(const CPoseJudge& judge, const CTrafo& pose,
                                                            const std::vector<CPoseJudge::PlacedSample>& samples);

} // namespace prereg
