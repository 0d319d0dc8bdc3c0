// SPDX-License-Identifier: MIT
#include "zorvan/scans/farcoordinates.h"

#include "zorvan/scans/framepose.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiMaxProbes = 4096;
constexpr double dFar = 64.0; // of the extent

bool isFinite(const Position& p) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

Position toDouble(const Vector3& v)
{
    return {static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z)};
}

/// Finite ones of `count` points, at equal steps.
template <typename At>
std::vector<Position> probe(std::size_t count, const At& at)
{
    const std::size_t step = std::max<std::size_t>(1, (count + uiMaxProbes - 1) / uiMaxProbes);
    std::vector<Position> probes;
    for (std::size_t i = 0; i < count; i += step) {
        const Position p = at(i);
        if (isFinite(p)) probes.push_back(p);
    }
    return probes;
}

double quantile(std::vector<double>& values, double share)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// @param probes  finite
Position shiftForProbes(const std::vector<Position>& probes)
{
    if (probes.empty()) return {};
    Position middle{};
    double extent = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        std::vector<double> values;
        values.reserve(probes.size());
        for (const Position& p : probes) values.push_back(p[axis]);
        middle[axis] = quantile(values, 0.5);
        extent = std::max(extent, quantile(values, 0.95) - quantile(values, 0.05));
    }
    const double distance = std::max({std::abs(middle[0]), std::abs(middle[1]), std::abs(middle[2])});
    if (!(extent > 0.0) || !(distance > dFar * extent)) return {};
    const double step = std::pow(10.0, std::ceil(std::log10(extent)));
    if (!(step > 0.0) || !std::isfinite(distance / step)) return {};
    for (double& c : middle) c = std::abs(c) > step ? std::round(c / step) * step : 0.0;
    return isFinite(middle) ? middle : Position{};
}

Vector3 aboutShift(const Position& p, const Position& shift)
{
    return {ToFloat(p[0] - shift[0]), ToFloat(p[1] - shift[1]), ToFloat(p[2] - shift[2])};
}

} // namespace

Position ShiftFor(std::span<const Position> points)
{
    return shiftForProbes(probe(points.size(), [&](std::size_t i) { return points[i]; }));
}

void SetPoints(Scan& scan, std::span<const Position> points)
{
    scan.shift = ShiftFor(points);
    scan.points.clear();
    scan.points.reserve(points.size());
    for (const Position& p : points) scan.points.push_back(aboutShift(p, scan.shift));
}

void ShiftFarPoints(Scan& scan)
{
    const Position more =
        shiftForProbes(probe(scan.points.size(), [&](std::size_t i) { return toDouble(scan.points[i]); }));
    SetShift(scan, {scan.shift[0] + more[0], scan.shift[1] + more[1], scan.shift[2] + more[2]});
}

void SetShift(Scan& scan, const Position& shift)
{
    if (shift == scan.shift) return;
    const Position step{shift[0] - scan.shift[0], shift[1] - scan.shift[1], shift[2] - scan.shift[2]};
    for (Vector3& p : scan.points) p = aboutShift(toDouble(p), step);
    if (scan.sensor) {
        for (std::size_t axis = 0; axis < 3; ++axis) scan.sensor->position[axis] -= step[axis];
    }
    scan.shift = shift;
}

Position CommonShift(std::span<const Position> shifts)
{
    const auto far = std::ranges::find_if(shifts, [](const Position& shift) { return shift != Position{}; });
    return far == shifts.end() ? Position{} : *far;
}

FramePose WithoutShifts(const FramePose& pose, const Position& from, const Position& to)
{
    const Position turned = Rotate(pose, from);
    FramePose result = pose;
    for (std::size_t axis = 0; axis < 3; ++axis) result.position[axis] += to[axis] - turned[axis];
    return result;
}

} // namespace Zorvan
