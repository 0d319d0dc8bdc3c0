// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"

#include <memory>
#include <vector>

namespace live {

/// What a hand-held scanner measures in one shot, in its own frame: points (mm) and a unit normal each.
struct Frame
{
    prereg::Vectors points;
    prereg::Vectors normals;
    prereg::CTrafo truth; ///< to the object
};

/// Frames of a walk along a virtual row of teeth and back, 0.4 mm apart, each 14 mm wide with a point every 0.12 mm and
/// 0.01 mm of noise. The same count gives the same bytes.
[[nodiscard]] std::vector<Frame> MakeFrames(unsigned uiCount);

/// The same row of teeth as an earlier session has left it, and copies of it beside, until there are `uiNumPoints` or
/// more: scans of a whole view each, with their poses in the frame of the row.
struct EarlierScan
{
    std::shared_ptr<const Frame> scan; ///< shared by its copies
    prereg::CTrafo pose;
};
[[nodiscard]] std::vector<EarlierScan> MakeEarlierScans(std::size_t uiNumPoints);

} // namespace live
