// SPDX-License-Identifier: MIT
#include "raytracing.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

namespace tools {

namespace {

constexpr float fHit = 2e-4F; // mm; a fiftieth of the default noise
constexpr int iMaxSteps = 400;
constexpr float fCosSteepest = 0.2588F; // 75 degrees
constexpr float fStep = 4.0F;           // change of depth per pixel that counts as a step; 76 degrees
constexpr float fAbove = 0.02F;         // mm; a ray back starts this far off the surface
constexpr float fNothing = std::numeric_limits<float>::quiet_NaN();

float depthOf(const AVirtualObject& object, const prereg::CTrafo& pose, const RayBundle& rays,
              const Zorvan::Vector3& pixel)
{
    const Zorvan::Vector3 direction = pose.Rotate({0, 0, -1});
    const Zorvan::Vector3 start = pose * pixel;
    const float way = TraceRay(object, start, direction, rays.length);
    if (std::isnan(way) || std::abs(rays.height - way) > rays.deepest) return fNothing;
    const Zorvan::Vector3 hit = start + direction * way;
    const Zorvan::Vector3 normal = object.Normal(hit);
    if (!IsSeenUnder(normal, direction)) return fNothing;
    if (rays.towardCamera.LengthSq() > 0.0F) {
        const Zorvan::Vector3 back = pose.Rotate(rays.towardCamera);
        if (!IsSeenUnder(normal, -back) || !std::isnan(TraceRay(object, hit + normal * fAbove, back, rays.length)))
            return fNothing;
    }
    return rays.height - way;
}

} // namespace

// In narrow fissures a field may be steeper than it says; a ray that got inside there is halved back to the surface.
float TraceRay(const AVirtualObject& object, const Zorvan::Vector3& start, const Zorvan::Vector3& direction,
               float length)
{
    const float steepest = object.GetTraits().steepest;
    float outside = 0.0F;
    float way = 0.0F;
    for (int step = 0; step < iMaxSteps && way < length; ++step) {
        const float distance = object.Distance(start + direction * way);
        if (std::abs(distance) < fHit) return way;
        if (distance < 0.0F) {
            way = 0.5F * (outside + way);
        } else {
            outside = way;
            way += distance / steepest;
        }
    }
    return fNothing;
}

bool IsSeenUnder(const Zorvan::Vector3& normal, const Zorvan::Vector3& direction)
{
    return kdtree::Dot(normal, direction) <= -fCosSteepest;
}

void ForAllRows(std::size_t rows, unsigned threads, const std::function<void(std::size_t)>& work)
{
    const auto takeEvery = [&](std::size_t first) {
        for (std::size_t row = first; row < rows; row += threads) work(row);
    };
    std::vector<std::jthread> others;
    for (unsigned i = 1; i < threads; ++i) others.emplace_back(takeEvery, i);
    takeEvery(0);
}

DepthMap::DepthMap(double field, double spacing_)
    : spacing(spacing_),
      size(std::max<std::size_t>(2, static_cast<std::size_t>(field / spacing_))),
      depth(size * size, fNothing)
{
}

float DepthMap::Coordinate(std::size_t i) const
{
    return static_cast<float>((static_cast<double>(i) - 0.5 * static_cast<double>(size - 1)) * spacing);
}

bool DepthMap::IsInside(std::size_t row, std::size_t column) const
{
    const float z = At(row, column);
    const auto goesOn = [&](float other) { return std::abs(other - z) <= fStep * static_cast<float>(spacing); };
    return !std::isnan(z) && (row == 0 || goesOn(At(row - 1, column))) &&
           (row + 1 == size || goesOn(At(row + 1, column))) && (column == 0 || goesOn(At(row, column - 1))) &&
           (column + 1 == size || goesOn(At(row, column + 1)));
}

DepthMap TraceDepth(const AVirtualObject& object, const prereg::CTrafo& pose, const RayBundle& rays, DepthMap map,
                    unsigned threads)
{
    ForAllRows(map.size, threads, [&](std::size_t row) {
        for (std::size_t column = 0; column < map.size; ++column) {
            const Zorvan::Vector3 pixel(map.Coordinate(column), map.Coordinate(row), rays.height);
            map.depth[row * map.size + column] = depthOf(object, pose, rays, pixel);
        }
    });
    return map;
}

} // namespace tools
