// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <vector>

namespace Zorvan {

/// Symmetric, and 0 from a point to itself.
using TourDistance = std::function<double(int, int)>;

/// Shortens a closed tour through 0 .. n - 1 by 2-opt and Or-opt until neither helps.
/// @param isAborted  asked for each point that is looked at; may be empty
/// @return           false when it was aborted; the tour is then whole, too
bool ImproveTour(std::vector<int>& tour, const TourDistance& distance, const std::function<bool()>& isAborted);

} // namespace Zorvan
