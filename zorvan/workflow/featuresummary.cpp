// SPDX-License-Identifier: MIT
#include "zorvan/workflow/featuresummary.h"

#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace prereg {

namespace {

using Part = std::array<double, CPointFeatureHistogram::binsPerPart>;

constexpr std::size_t uiBarWidth = 40; // of a distance of 1
constexpr std::size_t uiNumberWidth = 10;
constexpr double dNothing = 0.001; // shares below get no bar

std::string rightAligned(const std::string& text, std::size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string percent(double share) { return rightAligned(std::to_string(std::lround(100 * share)), 3) + " %"; }

std::vector<float> sortedDistances(std::span<const CPointFeatureHistogram> features)
{
    std::vector<float> distances;
    distances.reserve(features.size());
    for (const auto& feature : features) distances.push_back(feature.SquaredEuclideanDistanceToPlane());
    std::sort(distances.begin(), distances.end());
    return distances;
}

std::string quantileLine(const std::vector<float>& sorted, double share)
{
    const double distance = sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
    const auto length = static_cast<std::size_t>(std::lround(uiBarWidth * distance));
    std::string number = Zorvan::ToText(distance, 3);
    number.resize(uiNumberWidth, ' ');
    return "  " + percent(share) + " up to " + number + std::string(length, '#') +
           std::string(uiBarWidth - length, '.') + "\n";
}

std::string distanceChart(std::span<const CPointFeatureHistogram> features, float flat)
{
    const std::vector<float> sorted = sortedDistances(features);
    const auto numFlat = std::upper_bound(sorted.begin(), sorted.end(), flat) - sorted.begin();
    std::string text = "Distance of the features from that of a plane, 0: flat, 1: nothing in common\n  " +
                       percent(static_cast<double>(numFlat) / static_cast<double>(sorted.size())) +
                       " are flat: up to " + Zorvan::ToText(static_cast<double>(flat), 3) + "\n";
    for (const double share : {0.05, 0.25, 0.5, 0.75, 0.95, 1.0}) text += quantileLine(sorted, share);
    return text;
}

Part meanPart(std::span<const CPointFeatureHistogram> features, std::size_t part)
{
    Part mean{};
    for (const auto& feature : features)
        for (std::size_t bin = 0; bin < mean.size(); ++bin)
            mean[bin] += static_cast<double>(feature.AsArray()[part * mean.size() + bin]);
    for (double& value : mean) value /= static_cast<double>(features.size());
    return mean;
}

/// A character a bin; the tallest is full. Square roots, or next to the middle bin all others would look alike.
std::string bars(const Part& part)
{
    constexpr std::array<const char*, 9> heights{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double tallest = *std::max_element(part.begin(), part.end());
    std::string text;
    for (const double value : part) {
        const auto height = static_cast<std::size_t>(std::lround((heights.size() - 1) * std::sqrt(value / tallest)));
        text += value < dNothing ? heights.front() : heights[std::max<std::size_t>(height, 1)];
    }
    return text;
}

std::string partLine(const Part& part, const std::string& name, const std::string& low, const std::string& high)
{
    return "  " + name + rightAligned(low, 40 - name.size()) + " |" + bars(part) + "| " + high +
           std::string(10 - high.size(), ' ') + percent(part[part.size() / 2]) + " in the middle\n";
}

} // namespace

std::string DescribeFeatures(std::span<const CPointFeatureHistogram> features, float fFlat)
{
    return distanceChart(features, fFlat) +
           "\nMean histogram: 11 bins each, heights are square roots; a flat surface fills the middle bins alone\n" +
           partLine(meanPart(features, 0), "neighbours' normals lean", "left", "right") +
           partLine(meanPart(features, 1), "neighbours lie", "below", "above") +
           partLine(meanPart(features, 2), "neighbours' normals turn", "together", "apart");
}

} // namespace prereg
