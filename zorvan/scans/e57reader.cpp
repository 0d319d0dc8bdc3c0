// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57reader.h"

#include "zorvan/scans/e57document.h"
#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/e57points.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Zorvan {

namespace {

/// The sensor stands in the origin of a frame that is its own.
bool hasSensor(const E57ScanHeader& header, const CE57Points& points) { return header.pose || points.IsSpherical(); }

Scan readScan(const E57ScanHeader& header, CE57Points& points, std::uint64_t most)
{
    Scan scan;
    std::vector<Position> places;
    places.reserve(std::min(header.points, most));
    while (points.Next()) {
        places.push_back(points.Place());
        if (points.HasNormals()) {
            const Position n = points.Normal();
            scan.normals.emplace_back(ToFloat(n[0]), ToFloat(n[1]), ToFloat(n[2]));
        }
        if (points.HasColours()) scan.colours.push_back(points.Colour());
        if (points.HasIntensities()) scan.intensities.push_back(ToFloat(points.Intensity()));
    }
    SetPoints(scan, places);
    scan.name = header.name;
    scan.pose = header.pose;
    if (hasSensor(header, points)) scan.sensor = FramePose{{-scan.shift[0], -scan.shift[1], -scan.shift[2]}};
    return scan;
}

/// Calls `take(number, header, points)` for each scan that is promised points.
template <typename Take>
void forEachScan(CE57Pages& pages, const std::filesystem::path& file, const Take& take)
{
    std::uint64_t total = 0;
    std::size_t number = 0;
    for (const E57ScanHeader& header : ReadE57Document(pages.Xml(), file)) {
        ++number;
        total += header.points;
        // A point takes a bit at least; many scans could name the same section.
        if (total / 8 > pages.Size()) pages.Fail(header.place, "more points are promised than the file can hold");
        if (header.points == 0) continue;
        CE57Points points(pages, header);
        take(number, header, points);
    }
}

} // namespace

std::vector<Scan> ReadE57(std::string_view bytes, const std::filesystem::path& file)
{
    CE57Pages pages(CFileParts(bytes), file);
    std::vector<Scan> scans;
    forEachScan(pages, file, [&](std::size_t number, const E57ScanHeader& header, CE57Points& points) {
        Scan scan = readScan(header, points, bytes.size());
        scan.number = number;
        if (!scan.points.empty()) scans.push_back(std::move(scan));
    });
    if (scans.empty()) throw CInputError(file, "holds no point", "give a scan of a surface");
    return scans;
}

void StreamE57(const std::filesystem::path& file, IPointListener& listener, const Hooks& hooks)
{
    CE57Pages pages(CFileParts(file, hooks), file);
    forEachScan(pages, file, [&](std::size_t number, const E57ScanHeader& header, CE57Points& points) {
        listener.BeginScan({number, header.name, header.pose});
        if (hasSensor(header, points)) listener.TakeSensor({});
        while (points.Next()) {
            if (!points.HasNormals()) {
                listener.TakePoint(points.Place(), nullptr);
                continue;
            }
            const Position normal = points.Normal();
            listener.TakePoint(points.Place(), &normal);
        }
    });
}

} // namespace Zorvan
