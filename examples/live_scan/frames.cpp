// SPDX-License-Identifier: MIT
#include "frames.h"

#include "tools/virtualscanner/randomness.h"
#include "tools/virtualscanner/raytracing.h"
#include "tools/virtualscanner/virtualjaw.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/scans/normals.h"
#include "zorvan/scans/rangegrid.h"
#include "zorvan/scans/vectors.h"

#include <cmath>
#include <optional>
#include <random>

namespace live {

namespace {

using Zorvan::Vector3;

constexpr unsigned uiSeed = 1;
constexpr double dField = 14.0;      // mm
constexpr double dSpacing = 0.12;    // mm
constexpr double dNoise = 0.01;      // mm
constexpr double dStep = 0.004;      // of the arch, some 0.4 mm
constexpr double dFirst = 0.15;      // of the arch
constexpr double dStretch = 0.7;     // of the arch; then back
constexpr float fCopyShift = 100.0F; // mm
const tools::RayBundle rays{30.0F, 70.0F, 40.0F, {}};

/// How far along the arch a frame looks: there, and back again.
double shareOf(unsigned frame)
{
    const double way = std::fmod(frame * dStep, 2.0 * dStretch);
    return dFirst + (way <= dStretch ? way : 2.0 * dStretch - way);
}

prereg::CTrafo poseOf(unsigned frame)
{
    const auto station = tools::CVirtualJaw::OnArch(shareOf(frame));
    const auto sway = static_cast<float>(0.3 * std::sin(0.07 * frame));
    const Vector3 z = Zorvan::Normalized(Vector3(0, 0, 1) + station.outward * sway);
    const Vector3 y = Zorvan::Normalized(kdtree::Cross(z, station.along));
    const Vector3 x = kdtree::Cross(y, z);
    return {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}, station.place + Vector3(0, 0, 3)};
}

Frame frameFrom(const tools::DepthMap& map, unsigned number, const prereg::CTrafo& pose)
{
    Zorvan::Scan scan;
    Zorvan::RangeGrid grid{map.size, map.size, std::vector<std::int32_t>(map.depth.size(), -1)};
    std::mt19937 rng = tools::EngineFor(uiSeed, tools::Noise, number);
    std::normal_distribution<double> noise(0.0, dNoise);
    for (std::size_t cell = 0; cell < map.depth.size(); ++cell) {
        const std::size_t row = cell / map.size;
        const std::size_t column = cell % map.size;
        if (!map.IsInside(row, column)) continue;
        grid.cells[cell] = static_cast<std::int32_t>(scan.points.size());
        scan.points.emplace_back(map.Coordinate(column), map.Coordinate(row),
                                 map.depth[cell] + static_cast<float>(noise(rng)));
    }
    scan.faces = Zorvan::FacesFromRangeGrid(scan.points, grid);
    const prereg::Vectors normals = Zorvan::NormalsFromFaces(scan, std::nullopt);
    Frame frame{{}, {}, pose};
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        if (!(normals[i].LengthSq() > 0.0F)) continue;
        frame.points.push_back(scan.points[i]);
        frame.normals.push_back(normals[i]);
    }
    return frame;
}

} // namespace

std::vector<Frame> MakeFrames(unsigned uiCount)
{
    const tools::CVirtualJaw jaw(uiSeed);
    std::vector<Frame> frames;
    for (unsigned i = 0; i < uiCount; ++i) {
        const prereg::CTrafo pose = poseOf(i);
        const tools::DepthMap map = tools::TraceDepth(jaw, pose, rays, tools::DepthMap(dField, dSpacing), 2);
        frames.push_back(frameFrom(map, i, pose));
    }
    return frames;
}

std::vector<EarlierScan> MakeEarlierScans(std::size_t uiNumPoints)
{
    std::vector<EarlierScan> row;
    const tools::CVirtualScanner scanner({.uiSeed = uiSeed, .dPixelSpacing = dSpacing, .uiNumThreads = 2});
    for (unsigned view = 0; uiNumPoints > 0 && view < scanner.GetSettings().uiNumViews; ++view) {
        tools::VirtualScan scan = scanner.Render(view);
        row.push_back({std::make_shared<Frame>(Frame{scan.scan.points, scan.scan.normals, scan.pose}), scan.pose});
    }
    std::vector<EarlierScan> scans;
    std::size_t numPoints = 0;
    for (float shift = 0.0F; numPoints < uiNumPoints; shift += fCopyShift) {
        for (const EarlierScan& scan : row) {
            const Vector3 place = scan.pose.GetTranslation() + Vector3(shift, 0, 0);
            scans.push_back({scan.scan, prereg::CTrafo(scan.pose.GetQuaternion(), place)});
            numPoints += scan.scan->points.size();
        }
    }
    return scans;
}

} // namespace live
