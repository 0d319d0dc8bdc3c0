// SPDX-License-Identifier: MIT
#include "zorvan/numerics/quantile.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

constexpr double madToSigma = 1.4826; // median absolute deviation of a normal distribution

// A total order: selection with a plain < may leave the array when there are NaNs.
bool lessNaNLast(double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); }

} // namespace

double Quantile(std::vector<double> values, double q)
{
    if (values.empty()) throw std::invalid_argument("first >= last");
    if (std::isnan(q)) return std::numeric_limits<double>::quiet_NaN();

    const double x = std::clamp(q, 0.0, 1.0) * static_cast<double>(values.size());
    const bool isWhole = x == std::floor(x);
    const auto count = static_cast<std::size_t>(std::ceil(x));
    const std::size_t rank = count == 0 ? 0 : count - 1;
    const auto found = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), found, values.end(), lessNaNLast);
    if (!isWhole || count == 0 || count == values.size()) return *found;
    return (*found + *std::min_element(found + 1, values.end(), lessNaNLast)) / 2;
}

double Median(std::vector<double> values) { return Quantile(std::move(values), 0.5); }

std::vector<double> RobustZScores(const std::vector<double>& values)
{
    if (values.empty()) return {};
    const double median = Median(values);
    std::vector<double> scores(values.size());
    std::transform(values.begin(), values.end(), scores.begin(), [median](double x) { return std::abs(x - median); });
    const double sigma = madToSigma * Median(scores);
    const double scale = sigma == 0.0 ? 1.0 : sigma;
    std::transform(values.begin(), values.end(), scores.begin(),
                   [median, scale](double x) { return (x - median) / scale; });
    return scores;
}

} // namespace Zorvan
