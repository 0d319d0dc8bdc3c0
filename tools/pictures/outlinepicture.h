// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/raster/cpixelpolygon.h"

#include <string>
#include <vector>

namespace tools {

/// An SVG picture of regions: one path each, through the middles of its margin, with its number at the centre.
/// @param padding  pixels around the picture of width * height
[[nodiscard]] std::string DrawOutlines(const std::vector<Zorvan::CPixelPolygon>& regions, unsigned width,
                                       unsigned height, unsigned padding);

} // namespace tools
