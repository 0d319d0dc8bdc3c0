// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/posetwin.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace prereg {

/// The ellipsoid that what two scans match on lies on.
struct MatchedEllipsoid
{
    kdtree::Vector<3> middle;
    std::array<kdtree::Vector<3>, 3> axes;
    double dRadius = 0.0;      ///< of what matches, about its middle, root mean square, mm
    std::size_t uiMatched = 0; ///< samples
    std::size_t uiOff = 0;     ///< of these, samples farther from it than the limit
};

/// @param dLimit  mm
/// @return  nothing where what matches is too little or lies on no ellipsoid
[[nodiscard]] ZORVAN_API std::optional<MatchedEllipsoid> FitEllipsoid(std::span<const CPoseJudge::PlacedSample> samples,
                                                                      double dLimit);

/// The two ends of a smooth dome have the same curvature. So scans of one end and of the other fold onto each other,
/// half a turn off, as those of opposite sides of a box do, see `FindBoxTwins`. Half turns about the three axes of the
/// ellipsoid are tried, each moved to where least contradicts it, since an ellipsoid that was seen in part is known to
/// a few pixels and degrees. A turn counts when half of what matches lies on the ellipsoid as near as matches do: then
/// the scans agree with it as well as with one another. One that something contradicts is told: it may be refined.
/// @param pose     explains the scans
/// @param samples  of both scans, placed there: `judge.Place(pose)`
[[nodiscard]] ZORVAN_API std::vector<PoseTwin> FindEllipsoidTwins(const CPoseJudge& judge, const CTrafo& pose,
                                                                  std::span<const CPoseJudge::PlacedSample> samples);

} // namespace prereg
