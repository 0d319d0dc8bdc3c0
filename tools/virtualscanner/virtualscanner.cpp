// SPDX-License-Identifier: MIT
#include "virtualscanner.h"

#include "randomness.h"
#include "ringscan.h"
#include "virtualjaw.h"

#include "zorvan/scans/normals.h"
#include "zorvan/scans/rangegrid.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <utility>

namespace tools {

namespace {

constexpr double dDegree = 3.14159265358979 / 180.0;
constexpr double dSeenRadius = 1.35;        // of the object's: views are off its middle by up to 0.3 of it
constexpr double dSeenRadiusOnTable = 1.15; // there by up to 0.1
constexpr float fOverTable = 8.0F;          // in radii: high enough that the lowest slanting rays start above the table

/// Rays that start above all that a view along the arch, or over a wall, can see.
RayBundle raysOverPatch() { return {30.0F, 70.0F, 40.0F, {}}; }

double seenRadius(const ObjectTraits& object)
{
    return (object.isOnTable ? dSeenRadiusOnTable : dSeenRadius) * object.radius;
}

RayBundle raysAround(const ObjectTraits& object)
{
    const float deepest = Zorvan::ToFloat(seenRadius(object));
    const float height = object.isOnTable ? fOverTable * object.radius : deepest;
    return {height, height + deepest, deepest, {}};
}

/// The small holes that every view of a patch has.
DroppedPatches holesOfPatch(double field) { return {6, 0.3, 1.2, 0.5 * field}; }

} // namespace

CVirtualScanner::CVirtualScanner(const VirtualScannerSettings& settings) : CVirtualScanner(SensorEffects{}, settings) {}

CVirtualScanner::CVirtualScanner(const SensorEffects& effects, const VirtualScannerSettings& settings)
    : CVirtualScanner(std::make_shared<CVirtualJaw>(settings.uiSeed),
                      settings.isVideo ? FramesAlongArch(settings.uiNumViews)
                                       : ViewsAlongArch(settings.uiNumViews, settings.uiSeed),
                      effects, settings)
{
}

CVirtualScanner::CVirtualScanner(std::shared_ptr<const AVirtualObject> object, std::vector<prereg::CTrafo> views,
                                 const SensorEffects& effects, const VirtualScannerSettings& settings)
    : m_settings(settings),
      m_effects(effects),
      m_object(std::move(object)),
      m_rays(raysOverPatch()),
      m_poses(std::move(views))
{
    if (effects.rings) throw std::invalid_argument("a lidar does not look at patches");
    m_settings.uiNumThreads = std::max(1U, settings.uiNumThreads);
    if (!m_effects.patches) m_effects.patches = holesOfPatch(m_settings.dFieldOfView);
    if (m_effects.triangulation) m_rays.towardCamera = m_effects.triangulation->TowardCamera();
}

CVirtualScanner::CVirtualScanner(std::shared_ptr<const AVirtualObject> object, const SensorEffects& effects,
                                 const VirtualScannerSettings& settings, EDirections directions)
    : m_settings(settings), m_effects(effects), m_object(std::move(object))
{
    const ObjectTraits& traits = m_object->GetTraits();
    m_settings.uiNumThreads = std::max(1U, settings.uiNumThreads);
    m_settings.dFieldOfView = 2.0 * seenRadius(traits);
    m_rays = raysAround(traits);
    if (m_effects.triangulation) m_rays.towardCamera = m_effects.triangulation->TowardCamera();
    m_poses = m_effects.rings ? PlacesAround(traits, *m_effects.rings, settings.uiNumViews, settings.uiSeed)
                              : ViewsAround(traits, settings.uiNumViews, directions, settings.uiSeed);
}

prereg::CTrafo CVirtualScanner::GetPose(unsigned view) const
{
    if (!m_effects.oblique) return m_poses[view];
    return m_poses[view] * m_effects.oblique->PickTurn(m_settings.uiSeed).GetInverse(true);
}

VirtualScan CVirtualScanner::Render(unsigned view) const
{
    if (m_effects.rings) return {renderRings(view), m_poses[view]};
    return {assemble(view, traceAll(view, m_settings.dPixelSpacing)), GetPose(view)};
}

double CVirtualScanner::FindSpacing(std::size_t uiNumPoints) const
{
    const double probe = m_settings.dFieldOfView / 96;
    double area = 0.0;
    for (unsigned view = 0; view < m_settings.uiNumViews; ++view) {
        const DepthMap map = traceAll(view, probe);
        const auto seen = std::count_if(map.depth.begin(), map.depth.end(), [](float z) { return !std::isnan(z); });
        area += static_cast<double>(seen) * probe * probe;
    }
    return std::sqrt(area / m_settings.uiNumViews / static_cast<double>(std::max<std::size_t>(1, uiNumPoints)));
}

DepthMap CVirtualScanner::traceAll(unsigned view, double spacing) const
{
    return TraceDepth(*m_object, m_poses[view], m_rays, DepthMap(m_settings.dFieldOfView, spacing),
                      m_settings.uiNumThreads);
}

std::vector<bool> CVirtualScanner::findHoles(unsigned view, const DepthMap& map) const
{
    std::vector<bool> isHole(map.depth.size());
    if (!m_effects.patches) return isHole;
    const DroppedPatches& patches = *m_effects.patches;
    std::mt19937 rng = EngineFor(m_settings.uiSeed, Holes, view);
    for (unsigned hole = 0; hole < patches.uiCount; ++hole) {
        const double x = Uniform(rng, -patches.dWithin, patches.dWithin);
        const double y = Uniform(rng, -patches.dWithin, patches.dWithin);
        const double radius = Uniform(rng, patches.dSmallest, patches.dLargest);
        for (std::size_t i = 0; i < isHole.size(); ++i) {
            const double dx = map.Coordinate(i % map.size) - x;
            const double dy = map.Coordinate(i / map.size) - y;
            if (dx * dx + dy * dy < radius * radius) isHole[i] = true;
        }
    }
    return isHole;
}

Zorvan::Scan CVirtualScanner::renderRings(unsigned view) const
{
    return ScanRings(*m_object, m_poses[view], *m_effects.rings,
                     {.uiSeed = m_settings.uiSeed,
                      .uiView = view,
                      .dNoise = m_settings.dNoise,
                      .dSpacing = m_settings.dPixelSpacing,
                      .dMissing = m_effects.dMissing,
                      .dOutliers = m_effects.outliers ? m_effects.outliers->dShare : 0.0,
                      .uiNumThreads = m_settings.uiNumThreads});
}

Zorvan::Scan CVirtualScanner::assemble(unsigned view, const DepthMap& map) const
{
    Zorvan::Scan scan;
    const std::vector<bool> isHole = findHoles(view, map);
    const CDepthSpoiler spoiler(m_effects, m_settings.dFieldOfView, map.spacing, m_settings.uiSeed);
    Zorvan::RangeGrid grid{map.size, map.size, std::vector<std::int32_t>(map.depth.size(), -1)};
    for (std::size_t row = 0; row < map.size; ++row) {
        std::mt19937 rng = EngineFor(m_settings.uiSeed, Noise, view, static_cast<unsigned>(row));
        std::mt19937 lots = EngineFor(m_settings.uiSeed, Missing, view, static_cast<unsigned>(row));
        std::normal_distribution<double> noise;
        for (std::size_t column = 0; column < map.size; ++column) {
            const std::size_t cell = row * map.size + column;
            if (isHole[cell] || !map.IsInside(row, column)) continue;
            const float depth = map.depth[cell] + static_cast<float>(m_settings.dNoise * noise(rng));
            if (m_effects.dMissing > 0.0 && Uniform(lots, 0, 1) < m_effects.dMissing) continue;
            grid.cells[cell] = static_cast<std::int32_t>(scan.points.size());
            const float x = map.Coordinate(column);
            const float y = map.Coordinate(row);
            scan.points.emplace_back(x, y, spoiler.Spoil(x, y, depth, lots));
        }
    }
    scan.faces = Zorvan::FacesFromRangeGrid(scan.points, grid);
    if (m_effects.oblique) turnFromRays(scan);
    scan.normals = Zorvan::NormalsFromFaces(scan, std::nullopt);
    return scan;
}

void CVirtualScanner::turnFromRays(Zorvan::Scan& scan) const
{
    const prereg::CTrafo turn = m_effects.oblique->PickTurn(m_settings.uiSeed);
    for (Zorvan::Vector3& point : scan.points) point = turn * point;
}

std::vector<prereg::CTrafo> DisturbPoses(const std::vector<prereg::CTrafo>& poses, const Zorvan::Vector3& middle,
                                         double dDegrees, double dMm, unsigned uiSeed)
{
    std::vector<prereg::CTrafo> disturbed = poses;
    for (unsigned i = 1; i < poses.size(); ++i) {
        std::mt19937 rng = EngineFor(uiSeed, Disturbance, i);
        const Zorvan::Vector3 axis = RandomDirection(rng);
        const Zorvan::Vector3 shift = RandomDirection(rng) * static_cast<float>(dMm);
        const double half = 0.5 * dDegrees * dDegree;
        const prereg::Quaternion q(std::cos(half), std::sin(half) * axis.x, std::sin(half) * axis.y,
                                   std::sin(half) * axis.z);
        const prereg::CTrafo turn(q, {});
        disturbed[i] = prereg::CTrafo(q, middle - turn * middle + shift) * poses[i];
    }
    return disturbed;
}

} // namespace tools
