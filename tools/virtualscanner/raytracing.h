// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace tools {

/// Way (mm) along a ray to the surface of an object; NaN when there is none within `length`. The ray starts outside.
/// Sphere tracing. Source: J. C. Hart, The Visual Computer 12 (1996).
[[nodiscard]] float TraceRay(const AVirtualObject& object, const Zorvan::Vector3& start,
                             const Zorvan::Vector3& direction, float length);

/// Whether a surface with this normal is seen along `direction`: not when it lies steeper than 75 degrees to it.
[[nodiscard]] bool IsSeenUnder(const Zorvan::Vector3& normal, const Zorvan::Vector3& direction);

/// Calls work(row) for all rows; each thread takes every n-th.
void ForAllRows(std::size_t rows, unsigned threads, const std::function<void(std::size_t)>& work);

/// What a square of parallel rays saw: depth along +z of the sensor's frame, NaN where nothing is seen, pixel by pixel.
struct DepthMap
{
    double spacing;
    std::size_t size; ///< rows and columns
    std::vector<float> depth;

    DepthMap(double field, double spacing);

    [[nodiscard]] float At(std::size_t row, std::size_t column) const { return depth[row * size + column]; }
    /// Of the middle of a pixel, for rows and columns alike.
    [[nodiscard]] float Coordinate(std::size_t i) const;
    /// Something is seen, and at nearly the same depth in the four pixels around.
    [[nodiscard]] bool IsInside(std::size_t row, std::size_t column) const;
};

/// A bundle of parallel rays along -z, and a second way back that has to be free too.
struct RayBundle
{
    float height = 0.0F;          ///< z at which the rays start
    float length = 0.0F;          ///< how far they go
    float deepest = 0.0F;         ///< |z| of what is further from the plane z = 0 is not recorded
    Zorvan::Vector3 towardCamera; ///< unit vector in the sensor's frame; zero: the camera looks along the rays
};

/// @param pose  sensor to object coordinates. The result does not depend on the number of threads.
[[nodiscard]] DepthMap TraceDepth(const AVirtualObject& object, const prereg::CTrafo& pose, const RayBundle& rays,
                                  DepthMap map, unsigned threads);

} // namespace tools
