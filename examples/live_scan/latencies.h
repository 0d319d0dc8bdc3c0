// SPDX-License-Identifier: MIT
#pragma once

#include "tracker.h"

#include <string>
#include <vector>

namespace live {

constexpr double dDeadline = 0.05; // s: 20 frames a second

/// What became of each frame.
struct FrameRecord
{
    FrameTimes times;
    double dLatency = 0.0; ///< seconds from its arrival until it was done, wall clock, with the wait for those before
    bool isLost = false;
};

/// How many frames were done before the next one came.
[[nodiscard]] double ShareInTime(const std::vector<FrameRecord>& frames);
/// Median, 95 % and largest of each stage, in milliseconds.
[[nodiscard]] std::string Table(const std::vector<FrameRecord>& frames);
/// The stages of each frame on top of each other and its latency above, as SVG.
[[nodiscard]] std::string Picture(const std::vector<FrameRecord>& frames);

} // namespace live
