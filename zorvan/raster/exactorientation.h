// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/raster/pixelcoords.h"

namespace Zorvan::detail {

/// On which side of the line from a to b the point p lies: 1 where a turn from +x towards +y leads, -1 on the other
/// side, 0 on the line. Exact for finite coordinates, as long as a product of two of them is neither above 1e300 nor,
/// other than 0, below 1e-290.
///
/// Source: J. R. Shewchuk, Discrete & Computational Geometry 18 (1997): his bound of the rounding error decides nearly
/// all, and the rest is summed without error.
[[nodiscard]] int SideOf(const PlanePoint& a, const PlanePoint& b, const PlanePoint& p);

} // namespace Zorvan::detail
