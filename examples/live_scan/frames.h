// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"

#include <cstddef>
#include <vector>

namespace live {

/// What a hand-held scanner measures in one shot, in its own frame: points (mm) and a unit normal each.
struct Frame
{
    prereg::Vectors points;
    prereg::Vectors normals;
    prereg::CTrafo truth; ///< to the object
};

constexpr double dField = 14.0;     // mm; width and height of a frame
constexpr unsigned uiJumpBack = 15; // frames, some 6 mm

/// What `zorvan simulate --video` writes: a sweep along a virtual row of teeth and back, frames 0.4 mm apart with a
/// point every 0.12 mm and 0.01 mm of noise. The same count gives the same bytes.
/// @param uiJump  the frame at which the scanner, lifted, is set down where it was fifteen frames before; 0: none
[[nodiscard]] std::vector<Frame> MakeFrames(unsigned uiCount, unsigned uiJump);

/// The same row of teeth as an earlier session has left it, and others beside it, until there are `uiNumPoints` or
/// more: scans of a whole view each.
[[nodiscard]] std::vector<Frame> MakeEarlierScans(std::size_t uiNumPoints);

} // namespace live
