// SPDX-License-Identifier: MIT
#pragma once

#include "tools/pictures/picture.h"
#include "zorvan/raster/cpixelpolygon.h"

#include <string>
#include <vector>

namespace tools {

struct RegionOptions
{
    int iThreshold = 128;    ///< how bright a pixel of a region is at least
    int iLeastArea = 1;      ///< smaller ones are left out
    unsigned uiDilation = 0; ///< pixels by which each region grows to all sides
};

/// What is bright and opaque in a picture.
[[nodiscard]] std::vector<Zorvan::CPixelPolygon> RegionsOf(const Picture& mask, const RegionOptions& options);

/// Area, perimeter, roundness and centre of gravity: a heading, and a line for each region.
[[nodiscard]] std::string TableText(const std::vector<Zorvan::CPixelPolygon>& regions);

} // namespace tools
