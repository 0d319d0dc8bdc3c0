// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <string>

namespace prereg {

/// How the viewing ray of a scan is known.
enum class ERay
{
    None,    ///< the scan was not seen from one side, or is no scan: free space in front of it says nothing
    Guessed, ///< the mean normal: good to some 30 degrees
    Found,   ///< the points lie in a raster when looked at along it
    Given    ///< by the caller
};

/// The direction from a scan to its sensor, in coordinates of the scan.
struct ViewingRay
{
    ERay eKind = ERay::None;
    kdtree::Vector<3> direction; ///< unit length, unless there is none
    double dRegularity = 0.0;    ///< 1: a perfect raster; of a merged cloud 0.3 to 0.5

    /// Empty when the ray is given or found, else what that means, in words.
    [[nodiscard]] ZORVAN_API std::string Warning() const;
};

/// Regularity of the points when looked at along a direction: q10 / q90 of the distance to the nearest neighbour in
/// projection. 1 is a raster.
[[nodiscard]] ZORVAN_API double RayRegularity(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree,
                                              double dSpacing, const kdtree::Vector<3>& direction);

/// Finds the direction along which a single range scan was taken: a sensor samples in a raster, and only along its own
/// ray is that raster seen as one on every surface. Directions that are equally regular (a single plane has a raster
/// along any) are told apart by the share of normals that look at the sensor, then by the z axis, then by the mean
/// normal.
/// @param normals   unit length, as long as the points
/// @param dSpacing  as measured, mm
/// Some 10 ms. Same points in the same order, same ray.
[[nodiscard]] ZORVAN_API ViewingRay FindViewingRay(const Vectors& points, const Vectors& normals,
                                                   const Zorvan::TKdTree<3, 48>& tree, double dSpacing);

} // namespace prereg
