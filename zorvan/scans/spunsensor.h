// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/export.h"

namespace Zorvan {

/// Whether the points were taken by a sensor that spins about the z axis in the origin: they lie in lines of equal
/// elevation seen from there, however rough the ranges are. Such a scan shows where its sensor stood, which a file of
/// plain points does not. False for fewer than 20 points that have a neighbour.
[[nodiscard]] ZORVAN_SCANS_API bool IsSpunAboutOrigin(const prereg::Vectors& points,
                                                      const Zorvan::TKdTree<3, 48>& tree);

} // namespace Zorvan
