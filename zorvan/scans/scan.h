// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Zorvan {

/// Three indices of points, counter-clockwise seen from outside.
using Face = std::array<std::uint32_t, 3>;

/// Red, green and blue.
using Rgb = std::array<std::uint8_t, 3>;

/// What a scan file holds. `normals` is empty or as long as `points`; every index of `faces` is inside `points`.
/// Coordinates are as read: any of them may be infinite or NaN, and a normal may have any length.
struct Scan
{
    prereg::Vectors points;
    prereg::Vectors normals;
    std::vector<Face> faces;
};

} // namespace Zorvan
