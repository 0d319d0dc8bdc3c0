// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"

#include <vector>

namespace tools {

/// Share of the row's points that have a point of the column within `dReach` under the given poses; 1 on the diagonal,
/// 0 for a scan without points. The result does not depend on the number of threads.
/// @param poses  of the scans, into one frame
[[nodiscard]] std::vector<std::vector<double>> OverlapTable(const std::vector<prereg::Vectors>& scans,
                                                            const std::vector<prereg::CTrafo>& poses, double dReach,
                                                            unsigned uiNumThreads);

} // namespace tools
