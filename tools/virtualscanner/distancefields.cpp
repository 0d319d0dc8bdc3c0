// SPDX-License-Identifier: MIT
#include "distancefields.h"

#include <algorithm>
#include <cmath>

namespace tools {

namespace {

Zorvan::Vector3 divided(const Zorvan::Vector3& a, const Zorvan::Vector3& b)
{
    return {a.x / b.x, a.y / b.y, a.z / b.z};
}

/// Of a point at (a, b) outside or inside of two perpendicular slabs: distance to where both hold.
float cornerDistance(float a, float b)
{
    return std::hypot(std::max(a, 0.0F), std::max(b, 0.0F)) + std::min(std::max(a, b), 0.0F);
}

/// Source: I. Quilez, "2D distance functions", 2018: isosceles trapezoid.
float trapezoidDistance(float x, float y, const Trapezoid& t)
{
    x = std::abs(x);
    const float toEnd = std::abs(y) - t.halfHeight;
    const float alongEnd = x - std::min(x, y < 0.0F ? t.bottom : t.top);
    const float sideX = t.top - t.bottom;
    const float sideY = 2.0F * t.halfHeight;
    const float share =
        std::clamp(((x - t.bottom) * sideX + (y + t.halfHeight) * sideY) / (sideX * sideX + sideY * sideY), 0.0F, 1.0F);
    const float besideX = x - t.bottom - share * sideX;
    const float besideY = y + t.halfHeight - share * sideY;
    const bool isInside = besideX < 0.0F && toEnd < 0.0F;
    const float distance = std::min(std::hypot(alongEnd, toEnd), std::hypot(besideX, besideY));
    return isInside ? -distance : distance;
}

} // namespace

float EllipsoidDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& halfAxes)
{
    const Zorvan::Vector3 q = divided(p, halfAxes);
    const float gradient = divided(q, halfAxes).Length();
    const float k = q.Length();
    if (gradient <= 0.0F) return -std::min({halfAxes.x, halfAxes.y, halfAxes.z});
    return k * (k - 1.0F) / gradient;
}

float RoundedBoxDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& half, float rounding)
{
    const Zorvan::Vector3 q(std::abs(p.x) - half.x + rounding, std::abs(p.y) - half.y + rounding,
                            std::abs(p.z) - half.z + rounding);
    const float outside = Zorvan::Vector3(std::max(q.x, 0.0F), std::max(q.y, 0.0F), std::max(q.z, 0.0F)).Length();
    return outside + std::min(std::max({q.x, q.y, q.z}), 0.0F) - rounding;
}

float CylinderDistance(const Zorvan::Vector3& p, float radius, float halfHeight, float rounding)
{
    return cornerDistance(std::hypot(p.x, p.y) - radius + rounding, std::abs(p.z) - halfHeight + rounding) - rounding;
}

float PrismDistance(const Zorvan::Vector3& p, const Trapezoid& trapezoid, float halfLength)
{
    return cornerDistance(trapezoidDistance(p.x, p.y, trapezoid), std::abs(p.z) - halfLength);
}

float SegmentDistance(const Zorvan::Vector3& p, const Zorvan::Vector3& a, const Zorvan::Vector3& b)
{
    const Zorvan::Vector3 ab = b - a;
    const float t = std::clamp(kdtree::Dot(p - a, ab) / ab.LengthSq(), 0.0F, 1.0F);
    return (p - a - t * ab).Length();
}

} // namespace tools
