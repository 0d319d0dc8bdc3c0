// SPDX-License-Identifier: MIT
#include "zorvan/scans/sharedshift.h"

#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr double dNear = 1e5; // mm; floats step by 0.008 mm there
constexpr double dMetre = 1000.0;

double largestStep(const Position& a, const Position& b)
{
    return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
}

/// Whether the points would be near the origin there.
bool suits(const SurfelScan& scan, const Position& shift)
{
    std::vector<Position> places;
    places.reserve(scan.points.size());
    for (const Vector3& p : scan.points) {
        places.push_back({static_cast<double>(p.x) + (scan.shift[0] - shift[0]),
                          static_cast<double>(p.y) + (scan.shift[1] - shift[1]),
                          static_cast<double>(p.z) + (scan.shift[2] - shift[2])});
    }
    return ShiftFor(places) == Position{};
}

void moveTo(SurfelScan& scan, const Position& shift)
{
    Scan points{std::move(scan.points)};
    points.shift = scan.shift;
    points.sensor = scan.sensor;
    SetShift(points, shift);
    scan.model.shift = scan.shift;
    SetShift(scan.model, shift);
    scan.points = std::move(points.points);
    scan.sensor = points.sensor;
    scan.shift = shift;
}

} // namespace

Position ShareShift(std::span<SurfelScan* const> scans, const Position& known)
{
    std::vector<Position> shifts{known};
    for (const SurfelScan* scan : scans) shifts.push_back(scan->shift);
    const Position shared = CommonShift(shifts);
    for (SurfelScan* scan : scans) {
        if (scan->shift != shared && suits(*scan, shared)) moveTo(*scan, shared);
    }
    return shared;
}

ScansRead ReadTogether(std::span<const std::string> files, const ScanOptions& options, const Position& known,
                       bool isKeptGoing, const Hooks& hooks)
{
    ScansRead read;
    for (std::size_t i = 0; i < files.size(); ++i) {
        hooks.Start("reading", files.size()); // anew: a large file counts its bytes
        hooks.Advance(i);
        try {
            for (SurfelScan& scan : ReadEachScan(files[i], options, hooks)) read.scans.push_back(std::move(scan));
        } catch (const CInputError& error) {
            if (!isKeptGoing || files.size() == 1) throw;
            read.refused.emplace_back(error.what());
        }
    }
    hooks.Finish();
    if (read.scans.empty() && !files.empty()) throw CInputError("none of the scans can be read; check the files");
    std::vector<SurfelScan*> all;
    for (SurfelScan& scan : read.scans) all.push_back(&scan);
    read.shift = ShareShift(all, known);
    return read;
}

Position FrameShiftFor(std::span<const SurfelScan> scans, std::span<const ScanPose* const> poses, const Position& shift)
{
    for (std::size_t i = 0; i < scans.size(); ++i) {
        if (poses[i] == nullptr || !poses[i]->pose) continue;
        Position place = Transform(ExactPoseOf(*poses[i]), scans[i].shift);
        if (largestStep(place, shift) <= dNear) return shift;
        if (largestStep(place, {}) <= dNear) return {};
        for (double& c : place) c = std::round(c / dMetre) * dMetre;
        return place;
    }
    return shift;
}

std::string ShiftWords(const Position& shift, double dMmPerUnit)
{
    if (shift == Position{}) return {};
    std::string numbers;
    for (const double c : shift) numbers += (numbers.empty() ? "" : ", ") + ToText(c / dMmPerUnit, 12);
    return "far from the origin: " + numbers + " " + UnitName(dMmPerUnit) +
           " is taken off all coordinates; poses are for those of the files";
}

} // namespace Zorvan
