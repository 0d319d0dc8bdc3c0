// SPDX-License-Identifier: MIT
#include "solid.h"

#include "distancefields.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tools {

namespace {

constexpr float fEverywhere = 1e6F;
constexpr float fSteepestEllipsoid = 1.7F; // of its first-order distance, seen from outside
constexpr float fSteepestHollow = 2.5F;    // from inside it says the half axis of the side that one is on
constexpr float fUnder = 0.5F;             // a first-order distance is no smaller than this share of the distance
constexpr double dTableSide = 24.0;        // of the object's radius: further than any view sees
constexpr double dTableThickness = 4.0;    // mm

float smoothOrSharpMin(float a, float b, float blend) { return blend > 0.0F ? SmoothMin(a, b, blend) : std::min(a, b); }

} // namespace

float Shape::Distance(const Zorvan::Vector3& p) const
{
    switch (kind) {
    case EKind::Box:
        return RoundedBoxDistance(p, half, rounding);
    case EKind::Cylinder:
        return CylinderDistance(p, half.x, half.z, rounding);
    case EKind::Ellipsoid:
        return EllipsoidDistance(p, half);
    case EKind::Capsule:
        return SegmentDistance(p, {0, 0, -half.z}, {0, 0, half.z}) - half.x;
    case EKind::Prism:
        return PrismDistance(p, {half.x, top, half.y}, half.z);
    }
    return std::numeric_limits<float>::max();
}

Zorvan::Vector3 Shape::GetHalfBox() const
{
    switch (kind) {
    case EKind::Capsule:
        return {half.x, half.x, half.z + half.x};
    case EKind::Cylinder:
        return {half.x, half.x, half.z};
    case EKind::Prism:
        return {std::max(half.x, top), half.y, half.z};
    default:
        return half;
    }
}

Shape Box(double halfX, double halfY, double halfZ, double rounding)
{
    return {Shape::EKind::Box, Point(halfX, halfY, halfZ), static_cast<float>(rounding), 0.0F};
}

Shape Cylinder(double radius, double halfHeight, double rounding)
{
    return {Shape::EKind::Cylinder, Point(radius, radius, halfHeight), static_cast<float>(rounding), 0.0F};
}

Shape Ellipsoid(double halfX, double halfY, double halfZ)
{
    return {Shape::EKind::Ellipsoid, Point(halfX, halfY, halfZ), 0.0F, 0.0F};
}

Shape Capsule(double radius, double halfLength)
{
    return {Shape::EKind::Capsule, Point(radius, radius, halfLength), 0.0F, 0.0F};
}

Shape Prism(double bottom, double top, double halfHeight, double halfLength)
{
    return {Shape::EKind::Prism, Point(bottom, halfHeight, halfLength), 0.0F, static_cast<float>(top)};
}

Zorvan::Vector3 Point(double x, double y, double z)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

prereg::CTrafo At(const Zorvan::Vector3& place, const Zorvan::Vector3& turn) { return {turn, place}; }

prereg::CTrafo Between(const Zorvan::Vector3& a, const Zorvan::Vector3& b)
{
    const Zorvan::Vector3 z = Zorvan::Normalized(b - a);
    const Zorvan::Vector3 x = Zorvan::Normalized(
        kdtree::Cross(std::abs(z.z) < 0.9F ? Zorvan::Vector3(0, 0, 1) : Zorvan::Vector3(1, 0, 0), z));
    const Zorvan::Vector3 y = kdtree::Cross(z, x);
    return {{x.x, y.x, z.x}, {x.y, y.y, z.y}, {x.z, y.z, z.z}, 0.5F * (a + b)};
}

std::vector<prereg::CTrafo> TurnsOfWheel(int n, bool isFlat)
{
    std::vector<prereg::CTrafo> turns;
    for (const bool isOver : {false, true}) {
        if (isOver && !isFlat) break;
        const prereg::CTrafo over({1, 0, 0}, {0, isOver ? -1.0F : 1.0F, 0}, {0, 0, isOver ? -1.0F : 1.0F}, {});
        for (int i = 0; i < n; ++i) {
            const double angle = 2.0 * 3.14159265358979 * i / n;
            turns.push_back(At({}, Point(0, 0, angle)) * over);
        }
    }
    return turns;
}

void CSolid::Add(const Shape& shape, const prereg::CTrafo& frame, double blend)
{
    growBox(shape, frame);
    push(EOperation::Add, shape, frame, blend);
}

void CSolid::Cut(const Shape& shape, const prereg::CTrafo& frame, double blend)
{
    push(EOperation::Cut, shape, frame, blend);
}

void CSolid::Hollow(double thickness) { push(EOperation::Hollow, Box(thickness, 0, 0), {}, 0.0); }

void CSolid::Append(const CSolid& other, const prereg::CTrafo& frame)
{
    for (const Step& step : other.m_steps) {
        if (step.operation == EOperation::Add) growBox(step.shape, frame * step.frame);
        push(step.operation, step.shape, frame * step.frame, step.blend);
    }
}

void CSolid::PutOnTable(double top)
{
    m_traits.isOnTable = true;
    const double half = 0.5 * dTableSide * m_traits.radius;
    push(EOperation::Add, Box(half, half, 0.5 * dTableThickness),
         At(Point(m_traits.middle.x, m_traits.middle.y, top - 0.5 * dTableThickness)), 0.0);
}

float CSolid::Distance(const Zorvan::Vector3& p) const
{
    float distance = fEverywhere;
    for (const Step& step : m_steps) distance = apply(step, p, distance);
    return distance;
}

void CSolid::push(EOperation operation, const Shape& shape, const prereg::CTrafo& frame, double blend)
{
    m_steps.push_back(
        {operation, shape, frame, frame.GetInverse(true), static_cast<float>(blend), shape.GetHalfBox().Length()});
    if (shape.kind == Shape::EKind::Ellipsoid) m_traits.steepest = std::max(m_traits.steepest, fSteepestEllipsoid);
    if (operation == EOperation::Hollow) m_traits.steepest = fSteepestHollow;
}

void CSolid::growBox(const Shape& shape, const prereg::CTrafo& frame)
{
    const Zorvan::Vector3 half = shape.GetHalfBox();
    for (int corner = 0; corner < 8; ++corner) {
        const Zorvan::Vector3 p = frame * Zorvan::Vector3(corner & 1 ? half.x : -half.x, corner & 2 ? half.y : -half.y,
                                                          corner & 4 ? half.z : -half.z);
        m_box = {kdtree::Min(m_box.low, p), kdtree::Max(m_box.high, p)};
    }
    const Zorvan::Vector3 sides = m_box.high - m_box.low;
    m_traits.middle = 0.5F * (m_box.low + m_box.high);
    m_traits.radius = 0.5F * sides.Length();
    m_traits.dSize = std::max({sides.x, sides.y, sides.z});
}

float CSolid::apply(const Step& step, const Zorvan::Vector3& p, float distance)
{
    if (step.operation == EOperation::Hollow) return std::max(distance, -distance - step.shape.half.x);
    // Most shapes are too far away to change anything; that costs less to see than their distance.
    const float gap = (p - step.frame.GetTranslation()).Length() - step.reach;
    const float atLeast = gap > 0.0F ? fUnder * gap : gap;
    if (step.operation == EOperation::Add) {
        if (atLeast > distance + step.blend) return distance;
        return smoothOrSharpMin(distance, step.shape.Distance(step.toShape * p), step.blend);
    }
    if (-atLeast < distance - step.blend) return distance;
    return -smoothOrSharpMin(-distance, step.shape.Distance(step.toShape * p), step.blend);
}

} // namespace tools
