#include "virtualscanner.h"

#include "zorvan/scans/normals.h"
#include "zorvan/scans/rangegrid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <thread>
#include <utility>

namespace tools {

namespace {

constexpr float fSensorHeight = 30.0F; // rays start this far above the place that a view looks at, and above the object
constexpr float fRayLength = 70.0F;
constexpr float fHit = 2e-4F; // mm; a fiftieth of the default noise
constexpr int iMaxSteps = 400;
constexpr float fCosSteepest = 0.2588F; // 75 degrees
constexpr float fStep = 4.0F;           // change of depth per pixel that counts as a step; 76 degrees
constexpr double dStretch = 0.13;       // of the arch between neighbouring views, a third of a field of view
constexpr double dLongestStretch = 0.8; // further out, a view would see mostly nothing
constexpr unsigned uiHoles = 6;
constexpr double dDegree = 3.14159265358979 / 180.0;
constexpr float fNothing = std::numeric_limits<float>::quiet_NaN();

std::mt19937 engineFor(unsigned seed, unsigned purpose, unsigned view, unsigned row = 0)
{
    std::seed_seq sequence{seed, purpose, view, row};
    return std::mt19937(sequence);
}

enum EPurpose : unsigned
{
    Views,
    Noise,
    Holes,
    Disturbance
};

prereg::CTrafo lookingAt(const Zorvan::Vector3& place, const Zorvan::Vector3& towardSensor,
                         const Zorvan::Vector3& right)
{
    const Zorvan::Vector3 z = Zorvan::Normalized(towardSensor);
    const Zorvan::Vector3 y = Zorvan::Normalized(kdtree::Cross(z, right));
    const Zorvan::Vector3 x = kdtree::Cross(y, z);
    return {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}, place};
}

// Odd views lean to the cheek, even ones to the tongue, so that each sees a side that its neighbours miss.
prereg::CTrafo makePose(const VirtualScannerSettings& settings, unsigned view)
{
    std::mt19937 rng = engineFor(settings.uiSeed, Views, view);
    const unsigned steps = std::max(1U, settings.uiNumViews - 1);
    const double stretch = std::min(dLongestStretch, dStretch * (settings.uiNumViews - 1));
    const CVirtualJaw::Station station = CVirtualJaw::OnArch(0.5 + stretch * (static_cast<double>(view) / steps - 0.5));
    const double lean = (view % 2 == 0 ? -1 : 1) * Uniform(rng, 0.1, 0.25);
    const Zorvan::Vector3 up = Zorvan::Vector3(0, 0, 1) + station.outward * static_cast<float>(lean) +
                               station.along * static_cast<float>(Uniform(rng, -0.15, 0.15));
    const double roll = Uniform(rng, -30, 30) * dDegree;
    const Zorvan::Vector3 right =
        station.along * static_cast<float>(std::cos(roll)) + station.outward * static_cast<float>(std::sin(roll));
    return lookingAt(station.place + Zorvan::Vector3(0, 0, 3), up, right);
}

Zorvan::Vector3 randomDirection(std::mt19937& rng)
{
    const double z = Uniform(rng, -1, 1);
    const double angle = Uniform(rng, -180, 180) * dDegree;
    const double radius = std::sqrt(1 - z * z);
    return {static_cast<float>(radius * std::cos(angle)), static_cast<float>(radius * std::sin(angle)),
            static_cast<float>(z)};
}

/// Calls work(row) for all rows; each thread takes every n-th.
void forAllRows(std::size_t rows, unsigned threads, const std::function<void(std::size_t)>& work)
{
    const auto takeEvery = [&](std::size_t first) {
        for (std::size_t row = first; row < rows; row += threads) work(row);
    };
    std::vector<std::jthread> others;
    for (unsigned i = 1; i < threads; ++i) others.emplace_back(takeEvery, i);
    takeEvery(0);
}

} // namespace

/// Depth along +z of the sensor's frame, NaN where nothing is seen, square by square of a pixel.
struct CVirtualScanner::DepthMap
{
    double spacing;
    std::size_t size; ///< rows and columns
    std::vector<float> depth;

    DepthMap(double field, double spacing_)
        : spacing(spacing_),
          size(std::max<std::size_t>(2, static_cast<std::size_t>(field / spacing_))),
          depth(size * size, fNothing)
    {
    }

    [[nodiscard]] float At(std::size_t row, std::size_t column) const { return depth[row * size + column]; }

    [[nodiscard]] float Coordinate(std::size_t i) const
    {
        return static_cast<float>((static_cast<double>(i) - 0.5 * static_cast<double>(size - 1)) * spacing);
    }

    /// Something is seen, and at nearly the same depth in the four pixels around.
    [[nodiscard]] bool IsInside(std::size_t row, std::size_t column) const
    {
        const float z = At(row, column);
        const auto goesOn = [&](float other) { return std::abs(other - z) <= fStep * static_cast<float>(spacing); };
        return !std::isnan(z) && (row == 0 || goesOn(At(row - 1, column))) &&
               (row + 1 == size || goesOn(At(row + 1, column))) && (column == 0 || goesOn(At(row, column - 1))) &&
               (column + 1 == size || goesOn(At(row, column + 1)));
    }
};

CVirtualScanner::CVirtualScanner(const VirtualScannerSettings& settings) : m_settings(settings), m_jaw(settings.uiSeed)
{
    m_settings.uiNumThreads = std::max(1U, settings.uiNumThreads);
    for (unsigned view = 0; view < settings.uiNumViews; ++view) m_poses.push_back(makePose(settings, view));
}

VirtualScan CVirtualScanner::Render(unsigned view) const
{
    return assemble(view, traceAll(view, m_settings.dPixelSpacing));
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

CVirtualScanner::DepthMap CVirtualScanner::traceAll(unsigned view, double spacing) const
{
    DepthMap map(m_settings.dFieldOfView, spacing);
    forAllRows(map.size, m_settings.uiNumThreads, [&](std::size_t row) { traceRow(m_poses[view], row, map); });
    return map;
}

void CVirtualScanner::traceRow(const prereg::CTrafo& pose, std::size_t row, DepthMap& map) const
{
    const Zorvan::Vector3 direction = pose.Rotate({0, 0, -1});
    for (std::size_t column = 0; column < map.size; ++column) {
        const Zorvan::Vector3 start =
            pose * Zorvan::Vector3(map.Coordinate(column), map.Coordinate(row), fSensorHeight);
        const float way = trace(start, direction);
        if (std::isnan(way)) continue;
        const Zorvan::Vector3 normal = m_jaw.Normal(start + direction * way);
        if (kdtree::Dot(normal, direction) <= -fCosSteepest) map.depth[row * map.size + column] = fSensorHeight - way;
    }
}

// Sphere tracing. Source: J. C. Hart, The Visual Computer 12 (1996). In narrow fissures the field is steeper than
// elsewhere; a ray that got inside there is halved back to the surface.
float CVirtualScanner::trace(const Zorvan::Vector3& start, const Zorvan::Vector3& direction) const
{
    float outside = 0.0F;
    float way = 0.0F;
    for (int step = 0; step < iMaxSteps && way < fRayLength; ++step) {
        const float distance = m_jaw.Distance(start + direction * way);
        if (std::abs(distance) < fHit) return way;
        if (distance < 0.0F) {
            way = 0.5F * (outside + way);
        } else {
            outside = way;
            way += distance / CVirtualJaw::fSteepest;
        }
    }
    return fNothing;
}

std::vector<bool> CVirtualScanner::findHoles(unsigned view, const DepthMap& map) const
{
    std::mt19937 rng = engineFor(m_settings.uiSeed, Holes, view);
    std::vector<bool> isHole(map.depth.size());
    const double half = 0.5 * m_settings.dFieldOfView;
    for (unsigned hole = 0; hole < uiHoles; ++hole) {
        const double x = Uniform(rng, -half, half);
        const double y = Uniform(rng, -half, half);
        const double radius = Uniform(rng, 0.3, 1.2);
        for (std::size_t i = 0; i < isHole.size(); ++i) {
            const double dx = map.Coordinate(i % map.size) - x;
            const double dy = map.Coordinate(i / map.size) - y;
            if (dx * dx + dy * dy < radius * radius) isHole[i] = true;
        }
    }
    return isHole;
}

VirtualScan CVirtualScanner::assemble(unsigned view, const DepthMap& map) const
{
    VirtualScan result{{}, m_poses[view]};
    const std::vector<bool> isHole = findHoles(view, map);
    Zorvan::RangeGrid grid{map.size, map.size, std::vector<std::int32_t>(map.depth.size(), -1)};
    for (std::size_t row = 0; row < map.size; ++row) {
        std::mt19937 rng = engineFor(m_settings.uiSeed, Noise, view, static_cast<unsigned>(row));
        std::normal_distribution<double> noise;
        for (std::size_t column = 0; column < map.size; ++column) {
            const std::size_t cell = row * map.size + column;
            if (isHole[cell] || !map.IsInside(row, column)) continue;
            grid.cells[cell] = static_cast<std::int32_t>(result.scan.points.size());
            result.scan.points.emplace_back(map.Coordinate(column), map.Coordinate(row),
                                            map.depth[cell] + static_cast<float>(m_settings.dNoise * noise(rng)));
        }
    }
    result.scan.faces = Zorvan::FacesFromRangeGrid(result.scan.points, grid);
    result.scan.normals = Zorvan::NormalsFromFaces(result.scan, std::nullopt);
    return result;
}

std::vector<prereg::CTrafo> DisturbPoses(const std::vector<prereg::CTrafo>& poses, const Zorvan::Vector3& middle,
                                         double dDegrees, double dMm, unsigned uiSeed)
{
    std::vector<prereg::CTrafo> disturbed = poses;
    for (unsigned i = 1; i < poses.size(); ++i) {
        std::mt19937 rng = engineFor(uiSeed, Disturbance, i);
        const Zorvan::Vector3 axis = randomDirection(rng);
        const Zorvan::Vector3 shift = randomDirection(rng) * static_cast<float>(dMm);
        const double half = 0.5 * dDegrees * dDegree;
        const prereg::Quaternion q(std::cos(half), std::sin(half) * axis.x, std::sin(half) * axis.y,
                                   std::sin(half) * axis.z);
        const prereg::CTrafo turn(q, {});
        disturbed[i] = prereg::CTrafo(q, middle - turn * middle + shift) * poses[i];
    }
    return disturbed;
}

} // namespace tools
