// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <vector>

namespace Zorvan {

/// The smallest value that at least the share q of all values does not exceed; halfway to the next one where both are
/// as good, so that the quantile 0.5 is the usual median. Linear time. Source: Hyndman and Fan, The American
/// Statistician 50 (1996), definition 2.
/// @param values  NaN counts as greater than every number
/// @param q       below 0 is 0, above 1 is 1
/// @return        NaN for q = NaN
/// @throws std::invalid_argument "first >= last" when there are no values
[[nodiscard]] ZORVAN_API double Quantile(std::vector<double> values, double q);

/// `Quantile` 0.5.
[[nodiscard]] ZORVAN_API double Median(std::vector<double> values);

/// How many standard deviations each value lies above the median, in the order of the values. The deviation is taken
/// from the median absolute deviation, so outliers hardly move it; it is taken as 1 where half of the values are equal.
/// @return empty when there are no values
[[nodiscard]] ZORVAN_API std::vector<double> RobustZScores(const std::vector<double>& values);

} // namespace Zorvan
