// SPDX-License-Identifier: MIT
#include "zorvan/scans/ringlines.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::size_t uiFewestRings = 4;
constexpr std::size_t uiMostRings = 1024;
constexpr double dLeastGapRatio = 3.0;    // of the smallest gap between rings to the largest within one
constexpr double dFloatAngle = 1e-6;      // what single precision makes of equal elevations
constexpr double dMostStepsMissing = 3.5; // a ring goes on over two points that were not taken
constexpr double dSteepest = 5.67;        // tangent of 80 degrees: steeper surface is hardly seen
constexpr double dJumpNoise = 6.0;        // standard deviations
constexpr std::size_t uiFewestOfRun = 3;

struct Direction
{
    double elevation;
    std::size_t index;
};

double middleOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<Direction> byElevation(const prereg::Vectors& points, const Vector3& sensor)
{
    std::vector<Direction> directions;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vector3 d = points[i] - sensor;
        if (!d.IsFinite() || !(d.LengthSq() > 0.0F)) continue;
        const auto level = std::hypot(static_cast<double>(d.x), static_cast<double>(d.y));
        directions.push_back({std::atan2(static_cast<double>(d.z), level), i});
    }
    std::sort(directions.begin(), directions.end(), [](const Direction& a, const Direction& b) {
        return a.elevation != b.elevation ? a.elevation < b.elevation : a.index < b.index;
    });
    return directions;
}

/// The least gap between two rings; nothing where gaps of all sizes occur.
std::optional<double> leastGap(const std::vector<Direction>& directions)
{
    std::vector<double> gaps;
    for (std::size_t i = 1; i < directions.size(); ++i)
        gaps.push_back(directions[i].elevation - directions[i - 1].elevation);
    const std::size_t most = std::min(gaps.size(), uiMostRings);
    std::partial_sort(gaps.begin(), gaps.begin() + static_cast<std::ptrdiff_t>(most), gaps.end(), std::greater<>());
    double ratio = dLeastGapRatio;
    std::optional<double> least;
    for (std::size_t k = uiFewestRings - 2; k + 1 < most; ++k) {
        const double here = gaps[k] / std::max(gaps[k + 1], dFloatAngle);
        if (here < ratio) continue;
        ratio = here;
        least = gaps[k];
    }
    return least;
}

std::vector<Ring> splitAt(const std::vector<Direction>& directions, double gap, const prereg::Vectors& points,
                          const Vector3& sensor)
{
    std::vector<Ring> rings;
    double sum = 0.0;
    const auto close = [&] {
        if (!rings.empty()) rings.back().dElevation = sum / static_cast<double>(rings.back().points.size());
        sum = 0.0;
    };
    for (std::size_t i = 0; i < directions.size(); ++i) {
        if (i == 0 || !(directions[i].elevation - directions[i - 1].elevation < gap)) {
            close();
            rings.emplace_back();
        }
        const Vector3 d = points[directions[i].index] - sensor;
        sum += directions[i].elevation;
        rings.back().points.push_back({std::atan2(static_cast<double>(d.y), static_cast<double>(d.x)),
                                       static_cast<double>(d.Length()),
                                       static_cast<std::uint32_t>(directions[i].index)});
    }
    close();
    return rings;
}

/// Counts azimuths from the middle of the scan, and sorts by them.
void sortByAzimuth(RingLines& lines)
{
    double x = 0.0;
    double y = 0.0;
    for (const Ring& ring : lines.rings) {
        for (const RingPoint& p : ring.points) {
            x += std::cos(p.dAzimuth);
            y += std::sin(p.dAzimuth);
        }
    }
    lines.dMiddle = std::atan2(y, x);
    for (Ring& ring : lines.rings) {
        for (RingPoint& p : ring.points)
            p.dAzimuth = std::remainder(p.dAzimuth - lines.dMiddle, 2.0 * std::numbers::pi);
        std::sort(ring.points.begin(), ring.points.end(), [](const RingPoint& a, const RingPoint& b) {
            return a.dAzimuth != b.dAzimuth ? a.dAzimuth < b.dAzimuth : a.uiIndex < b.uiIndex;
        });
    }
}

void measureSteps(RingLines& lines)
{
    std::vector<double> steps;
    std::vector<double> gaps;
    std::vector<double> ranges;
    for (std::size_t r = 0; r < lines.rings.size(); ++r) {
        const std::vector<RingPoint>& points = lines.rings[r].points;
        if (r > 0) gaps.push_back(lines.rings[r].dElevation - lines.rings[r - 1].dElevation);
        for (const RingPoint& p : points) ranges.push_back(p.dRange);
        for (std::size_t i = 1; i < points.size(); ++i) {
            const double step = points[i].dAzimuth - points[i - 1].dAzimuth;
            if (step > 0.0) steps.push_back(step);
        }
    }
    lines.dStep = steps.empty() ? 0.0 : middleOf(std::move(steps));
    lines.dGap = middleOf(std::move(gaps));
    lines.dRange = middleOf(std::move(ranges));
}

/// Of white noise the second differences are the square root of six times as large; what curvature adds at the step of
/// a ring is nothing beside it, and edges are few.
void measureNoise(RingLines& lines)
{
    constexpr double dMedianOfNormal = 0.6745;
    std::vector<double> differences;
    for (const Ring& ring : lines.rings) {
        const std::vector<RingPoint>& p = ring.points;
        for (std::size_t i = 2; i < p.size(); ++i) {
            const double largest = std::max(p[i].dAzimuth - p[i - 1].dAzimuth, p[i - 1].dAzimuth - p[i - 2].dAzimuth);
            if (largest < 1.5 * lines.dStep)
                differences.push_back(std::abs(p[i].dRange - 2.0 * p[i - 1].dRange + p[i - 2].dRange));
        }
    }
    if (!differences.empty()) lines.dNoise = middleOf(std::move(differences)) / (dMedianOfNormal * std::sqrt(6.0));
}

/// Whether the surface may go on from one point of a ring to a later one.
bool goesOn(const RingLines& lines, const Ring& ring, const RingPoint& a, const RingPoint& b)
{
    const double turn = b.dAzimuth - a.dAzimuth;
    if (turn > dMostStepsMissing * lines.dStep) return false;
    const double along = std::min(a.dRange, b.dRange) * std::cos(ring.dElevation) * turn;
    return std::abs(b.dRange - a.dRange) < dJumpNoise * lines.dNoise + dSteepest * along;
}

void findRuns(const RingLines& lines, Ring& ring)
{
    std::vector<RingPoint> kept;
    std::size_t begin = 0;
    const auto close = [&] {
        if (kept.size() - begin >= uiFewestOfRun)
            ring.runs.emplace_back(begin, kept.size());
        else
            kept.resize(begin);
        begin = kept.size();
    };
    const std::vector<RingPoint>& all = ring.points;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool isFirst = kept.size() == begin;
        if (isFirst || goesOn(lines, ring, kept.back(), all[i])) {
            kept.push_back(all[i]);
            continue;
        }
        // A stray point lies off the last one, and the next one does not.
        if (i + 1 < all.size() && goesOn(lines, ring, kept.back(), all[i + 1])) continue;
        close();
        kept.push_back(all[i]);
    }
    close();
    ring.points = std::move(kept);
}

} // namespace

std::optional<RingLines> FindRings(const prereg::Vectors& points, const Vector3& sensor)
{
    const std::vector<Direction> directions = byElevation(points, sensor);
    const std::optional<double> gap = leastGap(directions);
    if (!gap) return std::nullopt;
    RingLines lines{.sensor = sensor, .rings = splitAt(directions, *gap, points, sensor)};
    sortByAzimuth(lines);
    measureSteps(lines);
    if (!(lines.dStep > 0.0)) return std::nullopt;
    measureNoise(lines);
    for (Ring& ring : lines.rings) findRuns(lines, ring);
    return lines;
}

} // namespace Zorvan
