// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/crangeimage.h"

#include <vector>

namespace prereg {

/// A place where a face ends: at the border of the object, or where the surface bends away from the sensor.
struct SurfaceEdge
{
    kdtree::Vector<3> point;
    kdtree::Vector<3> normal;  ///< of the face
    kdtree::Vector<3> outward; ///< unit length; along the face, off its end
};

/// The edges of what a scan shows, in coordinates of the image. The outline of a round body is none: it lies elsewhere
/// in every view. So a face must look at the sensor to end; and where it disappears behind something higher it does not
/// end either.
/// @param noise  of the points (mm)
[[nodiscard]] ZORVAN_API std::vector<SurfaceEdge> FindSurfaceEdges(const CRangeImage& image, float noise);

} // namespace prereg
