// SPDX-License-Identifier: MIT
#include "zorvan/scans/framepose.h"

#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>

namespace Zorvan {

namespace {

constexpr double dRotationTolerance = 1e-3;

Eigen::Vector3d toEigen(const Position& v) { return {v[0], v[1], v[2]}; }

Position toPosition(const Eigen::Vector3d& v) { return {v.x(), v.y(), v.z()}; }

Eigen::Quaterniond quaternionOf(const FramePose& pose)
{
    return {pose.rotation[0], pose.rotation[1], pose.rotation[2], pose.rotation[3]};
}

std::array<double, 4> toArray(const Eigen::Quaterniond& q) { return {q.w(), q.x(), q.y(), q.z()}; }

bool isFinite(const Position& v)
{
    return std::ranges::all_of(v, [](double c) { return std::isfinite(c); });
}

} // namespace

Position Rotate(const FramePose& pose, const Position& v) { return toPosition(quaternionOf(pose) * toEigen(v)); }

Position Transform(const FramePose& pose, const Position& v)
{
    return toPosition(quaternionOf(pose) * toEigen(v) + toEigen(pose.position));
}

FramePose Compose(const FramePose& outer, const FramePose& inner)
{
    return {Transform(outer, inner.position), toArray(quaternionOf(outer) * quaternionOf(inner))};
}

FramePose Inverse(const FramePose& pose)
{
    const Eigen::Quaterniond back = quaternionOf(pose).conjugate();
    return {toPosition(-(back * toEigen(pose.position))), toArray(back)};
}

std::optional<FramePose> Normalized(const FramePose& pose)
{
    const Eigen::Quaterniond q = quaternionOf(pose);
    const double length = q.norm();
    if (!isFinite(pose.position) || !std::isfinite(length) || !(length > 0.0)) return std::nullopt;
    return FramePose{pose.position, toArray(Eigen::Quaterniond(q.coeffs() / length))};
}

std::optional<FramePose> FromRows(const std::array<Position, 3>& rotation, const Position& position)
{
    Eigen::Matrix3d r;
    for (int i = 0; i < 3; ++i) r.row(i) = toEigen(rotation[static_cast<std::size_t>(i)]);
    const double error = (r * r.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff();
    if (!r.allFinite() || !isFinite(position) || !(error <= dRotationTolerance) || !(r.determinant() > 0.0))
        return std::nullopt;
    return FramePose{position, toArray(Eigen::Quaterniond(r).normalized())};
}

std::array<Position, 3> RotationRows(const FramePose& pose)
{
    const Eigen::Matrix3d r = quaternionOf(pose).toRotationMatrix();
    return {toPosition(r.row(0)), toPosition(r.row(1)), toPosition(r.row(2))};
}

} // namespace Zorvan
