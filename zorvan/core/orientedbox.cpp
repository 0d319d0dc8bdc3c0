// SPDX-License-Identifier: MIT
#include "zorvan/core/orientedbox.h"

#include <cmath>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr float nearlyParallel = 0.999999F;

float reach(const OrientedBox& box, const Vector3& axis)
{
    float sum = 0.0F;
    for (unsigned i = 0; i < 3; ++i) sum += std::abs(kdtree::Dot(box.axes[i], axis)) * box.halfExtent[i];
    return sum;
}

bool isSeparating(const OrientedBox& a, const OrientedBox& b, const Vector3& axis)
{
    return std::abs(kdtree::Dot(b.center - a.center, axis)) > reach(a, axis) + reach(b, axis);
}

bool hasParallelAxes(const OrientedBox& a, const OrientedBox& b)
{
    for (const auto& u : a.axes) {
        for (const auto& v : b.axes) {
            if (std::abs(kdtree::Dot(u, v)) > nearlyParallel) return true;
        }
    }
    return false;
}

} // namespace

OrientedBox OrientedBox::FromCorners(const Corners& corners)
{
    const auto& [low, high] = corners;
    return {(low + high) * 0.5F, {Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1)}, (high - low) * 0.5F};
}

OrientedBox OrientedBox::Moved(const CTrafo& trafo) const
{
    const CTrafo rotation = trafo.GetRotationPart(false);
    OrientedBox result{trafo * center, {}, halfExtent};
    for (std::size_t i = 0; i < 3; ++i) result.axes[i] = rotation.Rotate(axes[i]);
    return result;
}

bool Overlap(const OrientedBox& a, const OrientedBox& b)
{
    for (const auto& axis : a.axes) {
        if (isSeparating(a, b, axis)) return false;
    }
    for (const auto& axis : b.axes) {
        if (isSeparating(a, b, axis)) return false;
    }
    if (hasParallelAxes(a, b)) return true;
    for (const auto& u : a.axes) {
        for (const auto& v : b.axes) {
            if (isSeparating(a, b, kdtree::Cross(u, v))) return false;
        }
    }
    return true;
}

BoxInequalities FacesOf(const OrientedBox& box)
{
    BoxInequalities faces{};
    for (std::size_t k = 0; k < 6; ++k) {
        const auto dim = static_cast<unsigned>(k / 2);
        const Vector3 axis = k % 2 == 0 ? box.axes[dim] : -box.axes[dim];
        const float length = axis.Length();
        for (unsigned i = 0; i < 3; ++i) faces.normals[3 * k + i] = axis[i] / length;
        faces.offsets[k] = kdtree::Dot(axis * box.halfExtent[dim] + box.center, axis) / length;
    }
    return faces;
}

} // namespace prereg
