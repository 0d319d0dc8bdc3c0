// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// Points that stand for a patch of a surface each.
struct ZORVAN_API Surfels
{
    Vectors points;
    Vectors normals;                   ///< unit length
    std::vector<std::uint32_t> counts; ///< points of the scan in each patch

    [[nodiscard]] std::size_t Size() const { return points.size(); }
};

/// Means over the cells of a grid, one for each direction that the surface has in a cell: both sides of a sheet and the
/// two faces at an edge stay apart, where a mean over the whole cell would invent a normal that is nowhere on the
/// object. Points belong together within 35 degrees of their mean. A direction with less than an eighth of a cell's
/// points is dropped: normals estimated across an edge make such.
/// @param counts  weights of the points; empty: 1 each
/// Points and normals must be finite, cells > 0. Ordered by cell, x fastest.
[[nodiscard]] ZORVAN_API Surfels ThinSurfels(std::span<const kdtree::Vector<3>> points,
                                             std::span<const kdtree::Vector<3>> normals,
                                             std::span<const std::uint32_t> counts, float cell);

/// Without most surfels of a direction that the surface has more of than a share: a table under a part, or the base of
/// a box, agrees with itself wherever it is put, and outvotes all that would say where it belongs. Of a crowd, as many
/// as the share are kept, evenly spread; surfels whose direction is rare all stay. A surfel belongs to the directions
/// within 18 degrees. Takes the square of the number of surfels: 5 ms for 2000.
[[nodiscard]] ZORVAN_API Surfels ThinCrowds(const Surfels& surfels, double dMostShare);

/// How large an object the points show: four root mean square distances from their middle. This is the edge of the box
/// around the object give or take a quarter on views of figures and machine parts, and a few stray points do not move
/// it. 0 without points.
[[nodiscard]] ZORVAN_API float EstimateSize(std::span<const kdtree::Vector<3>> points);

} // namespace prereg
