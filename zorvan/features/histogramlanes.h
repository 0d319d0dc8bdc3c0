// SPDX-License-Identifier: MIT
#pragma once

// The histogram operations in eight lanes, behind the check for AVX in cpointfeaturehistogram.cpp.

#include "zorvan/features/cpointfeaturehistogram.h"

namespace prereg::detail {

using Bins = CPointFeatureHistogram::Bins;

void addAvx(Bins& bins, const Bins& other, float weight);
void scaleAvx(Bins& bins, float factor);
/// Bins 0 to 31 that are 0 or NaN.
[[nodiscard]] unsigned countEmptyAvx(const Bins& bins);
[[nodiscard]] float ratioDistanceAvx(const Bins& a, const Bins& b);
[[nodiscard]] float squaredDistanceAvx(const Bins& a, const Bins& b);
[[nodiscard]] float chi2DistanceAvx(const Bins& a, const Bins& b);

} // namespace prereg::detail
