// SPDX-License-Identifier: MIT
#pragma once

#include "virtualobject.h"

#include "zorvan/core/ctrafo.h"

#include <utility>
#include <vector>

namespace tools {

/// A simple shape around the origin of its own frame.
struct Shape
{
    enum class EKind
    {
        Box,       ///< half sides, rounded edges
        Cylinder,  ///< along z: radius half.x, half height half.z, rounded edges
        Ellipsoid, ///< half axes
        Capsule,   ///< along z: radius half.x, half length of the middle line half.z
        Prism      ///< along z (half.z): trapezoid of half width half.x at y = -half.y, `top` at y = half.y
    };
    EKind kind = EKind::Box;
    Zorvan::Vector3 half;
    float rounding = 0.0F;
    float top = 0.0F;

    [[nodiscard]] float Distance(const Zorvan::Vector3& p) const;
    /// Half sides of a box around it, along its own axes.
    [[nodiscard]] Zorvan::Vector3 GetHalfBox() const;
};

[[nodiscard]] Shape Box(double halfX, double halfY, double halfZ, double rounding = 0.0);
[[nodiscard]] Shape Cylinder(double radius, double halfHeight, double rounding = 0.0);
[[nodiscard]] Shape Ellipsoid(double halfX, double halfY, double halfZ);
[[nodiscard]] Shape Capsule(double radius, double halfLength);
[[nodiscard]] Shape Prism(double bottom, double top, double halfHeight, double halfLength);

/// A point, a direction or the half axes of a shape.
[[nodiscard]] Zorvan::Vector3 Point(double x, double y, double z);
/// Moves to `place` after a turn (radians) about x, y and then z.
[[nodiscard]] prereg::CTrafo At(const Zorvan::Vector3& place, const Zorvan::Vector3& turn = {});
/// Frame in whose middle and along whose z the way from a to b lies.
[[nodiscard]] prereg::CTrafo Between(const Zorvan::Vector3& a, const Zorvan::Vector3& b);

/// The n turns about z that carry a wheel of n equal sectors onto itself; `isFlat` adds those that turn it over about
/// an axis in the plane z = 0, the first of them x.
[[nodiscard]] std::vector<prereg::CTrafo> TurnsOfWheel(int n, bool isFlat);

/// A body made of shapes that are added and cut away one after the other, sharp or with a blend.
///
///     CSolid plate;
///     plate.Add(Box(30, 20, 3), At(Point(0, 0, 3)));
///     plate.Cut(Cylinder(4, 5), At(Point(10, 0, 3)));
class CSolid : public AVirtualObject
{
public:
    void Add(const Shape& shape, const prereg::CTrafo& frame, double blend = 0.0);
    void Cut(const Shape& shape, const prereg::CTrafo& frame, double blend = 0.0);
    /// Leaves a wall of what there is so far, its outside in place.
    void Hollow(double thickness);
    /// Adds all steps of another body; its cuts reach what this one has so far too.
    void Append(const CSolid& other, const prereg::CTrafo& frame);
    /// A table under all, its top at this height: not part of the object, but seen.
    void PutOnTable(double top);
    void SetSymmetries(std::vector<prereg::CTrafo> symmetries) { m_traits.symmetries = std::move(symmetries); }

    [[nodiscard]] float Distance(const Zorvan::Vector3& p) const override;
    [[nodiscard]] const ObjectTraits& GetTraits() const override { return m_traits; }
    [[nodiscard]] const kdtree::Range<3>& GetBox() const { return m_box; }

private:
    enum class EOperation
    {
        Add,
        Cut,
        Hollow
    };

    struct Step
    {
        EOperation operation;
        Shape shape;
        prereg::CTrafo frame; ///< shape to body
        prereg::CTrafo toShape;
        float blend;
        float reach; ///< no point of the shape is further from the origin of its frame
    };

    void push(EOperation operation, const Shape& shape, const prereg::CTrafo& frame, double blend);
    void growBox(const Shape& shape, const prereg::CTrafo& frame);
    [[nodiscard]] static float apply(const Step& step, const Zorvan::Vector3& p, float distance);

    std::vector<Step> m_steps;
    kdtree::Range<3> m_box = kdtree::EmptyRange();
    ObjectTraits m_traits;
};

} // namespace tools
