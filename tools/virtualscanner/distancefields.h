// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>

namespace tools {

/// Signed distances (mm, negative inside) of p to shapes around the origin, and ways to join two of them. What is exact
/// has slope 1 everywhere; a first-order distance may be steeper away from the surface.

/// First-order distance to an ellipsoid: the value of the implicit form over the length of its gradient.
[[nodiscard]] float EllipsoidDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& halfAxes);

/// Box with rounded edges; exact.
[[nodiscard]] float RoundedBoxDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& half, float rounding);

/// Upright cylinder with rounded edges; exact.
[[nodiscard]] float CylinderDistance(const Zorvan::Vector3& p, float radius, float halfHeight, float rounding);

/// Prism along z over a trapezoid: half as wide as `bottom` at y = -halfHeight, as `top` at y = halfHeight; exact.
struct Trapezoid
{
    float bottom = 0.0F;
    float top = 0.0F;
    float halfHeight = 0.0F;
};
[[nodiscard]] float PrismDistance(const Zorvan::Vector3& p, const Trapezoid& trapezoid, float halfLength);

/// Unsigned distance to the segment from a to b.
[[nodiscard]] float SegmentDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& a, const Zorvan::Vector3& b);

/// Quadratic blend of two fields over the width k > 0. Source: I. Quilez, "Smooth minimum", 2013.
[[nodiscard]] inline float SmoothMin(float a, float b, float k)
{
    const float h = std::max(k - std::abs(a - b), 0.0F) / k;
    return std::min(a, b) - h * h * k * 0.25F;
}
[[nodiscard]] inline float SmoothMax(float a, float b, float k) { return -SmoothMin(-a, -b, k); }

} // namespace tools
