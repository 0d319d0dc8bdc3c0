// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/surfaceedges.h"
#include "zorvan/preregistration/surfelthinning.h"

#include <cstddef>
#include <span>
#include <vector>

namespace prereg {

/// A direction that a good part of a scan agrees on.
struct MarkedDirection
{
    kdtree::Vector<3> direction; ///< unit length, in coordinates of the scan
    float weight = 0.0F;         ///< share of the surface, or of the edges
};

/// Normals of the flat faces of a surface that was thinned to `cell`, largest first; parallel faces count as one.
/// Faces grow from the flattest surfels over neighbours whose normals lie within 8 degrees of the mean.
/// @param noise  of the points (mm)
[[nodiscard]] ZORVAN_API std::vector<MarkedDirection> FindPlaneNormals(const Surfels& surfels, float cell, float noise,
                                                                       std::size_t most);

/// Directions in which many faces end, most first. At a right angle this is the normal of the face behind the edge,
/// which this scan may not see and another one does.
[[nodiscard]] ZORVAN_API std::vector<MarkedDirection> FindEdgeNormals(std::span<const SurfaceEdge> edges,
                                                                      std::size_t most);

/// Rotations (floating to fixed) that lay a pair of directions on another of equal angle. Best first, by the weight of
/// all the directions that they bring together; none within 5 degrees of a better one.
[[nodiscard]] ZORVAN_API std::vector<CTrafo>
RotationsFromDirections(std::span<const MarkedDirection> fix, std::span<const MarkedDirection> flt, std::size_t most);

} // namespace prereg
