// SPDX-License-Identifier: MIT
#include "zorvan/scans/joinscans.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/vectors.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace Zorvan {

namespace {

/// Appends, or empties `to` when only one of both has values.
template <typename T>
void appendAll(std::vector<T>& to, std::size_t before, const std::vector<T>& from, std::size_t count)
{
    if (to.size() == before && from.size() == count)
        to.insert(to.end(), from.begin(), from.end());
    else
        to.clear();
}

Position sum(const Position& a, const Position& b, double factor)
{
    return {a[0] + factor * b[0], a[1] + factor * b[1], a[2] + factor * b[2]};
}

void append(Scan& to, const Scan& from)
{
    const std::size_t before = to.points.size();
    appendAll(to.normals, before, from.normals, from.points.size());
    appendAll(to.colours, before, from.colours, from.points.size());
    appendAll(to.intensities, before, from.intensities, from.points.size());
    to.points.insert(to.points.end(), from.points.begin(), from.points.end());
    const auto first = static_cast<std::uint32_t>(before);
    for (const auto& [a, b, c] : from.faces) to.faces.push_back({first + a, first + b, first + c});
}

} // namespace

void PutInFileFrame(Scan& scan)
{
    if (!scan.pose) return;
    const FramePose pose = *std::exchange(scan.pose, std::nullopt);
    std::vector<Position> places;
    places.reserve(scan.points.size());
    for (const Vector3& p : scan.points) {
        places.push_back(
            Transform(pose, {static_cast<double>(p.x) + scan.shift[0], static_cast<double>(p.y) + scan.shift[1],
                             static_cast<double>(p.z) + scan.shift[2]}));
    }
    for (Vector3& n : scan.normals) {
        const Position turned =
            Rotate(pose, {static_cast<double>(n.x), static_cast<double>(n.y), static_cast<double>(n.z)});
        n = {ToFloat(turned[0]), ToFloat(turned[1]), ToFloat(turned[2])};
    }
    const Position before = scan.shift;
    SetPoints(scan, places);
    if (!scan.sensor) return;
    scan.sensor->position = sum(scan.sensor->position, before, 1.0);
    scan.sensor = Compose(pose, *scan.sensor);
    scan.sensor->position = sum(scan.sensor->position, scan.shift, -1.0);
}

Scan JoinScans(std::vector<Scan> scans)
{
    if (scans.empty()) return {};
    for (Scan& scan : scans) PutInFileFrame(scan);
    Scan joined = std::move(scans.front());
    if (scans.size() > 1) joined.sensor.reset();
    for (std::size_t i = 1; i < scans.size(); ++i) {
        SetShift(scans[i], joined.shift);
        append(joined, scans[i]);
    }
    return joined;
}

} // namespace Zorvan
