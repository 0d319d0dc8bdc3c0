// SPDX-License-Identifier: MIT
#pragma once

// Not installed.

#include "zorvan/features/cpointfeaturehistogram.h"

#include <cstddef>
#include <vector>

namespace prereg {

/// Groups histograms around k centres by `SquaredChi2Distance`, with Lloyd's algorithm from a spread-out start. The
/// same histograms give the same groups.
/// @return for each histogram its group, 0 to k - 1, some of which may be empty where histograms are equal; nothing for
///         k = 0, when there are fewer than k different histograms, or when one of them is not finite
/// Source: Lloyd, Least squares quantization in PCM, IEEE Trans. Inf. Theory 28 (1982); Arthur, Vassilvitskii,
/// k-means++, SODA 2007, but that the draw goes by the distance itself and not by its square.
[[nodiscard]] std::vector<unsigned int> ClusterHistograms(const std::vector<CPointFeatureHistogram>& histograms,
                                                          std::size_t k);

} // namespace prereg
