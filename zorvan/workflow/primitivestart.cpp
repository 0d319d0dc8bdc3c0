// SPDX-License-Identifier: MIT
#include "zorvan/workflow/primitivestart.h"

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>

namespace prereg {

namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

Vector3d toEigen(const kdtree::Vector<3>& v) { return {v.x, v.y, v.z}; }

Vector3d meanOf(const Vectors& vectors)
{
    Vector3d sum = Vector3d::Zero();
    for (const auto& v : vectors) sum += toEigen(v);
    return sum / static_cast<double>(vectors.size());
}

/// sum of (n - offset) (n - offset)^T
Matrix3d scatterOf(const Vectors& normals, const Vector3d& offset)
{
    Matrix3d scatter = Matrix3d::Zero();
    for (const auto& v : normals) {
        const Vector3d n = toEigen(v) - offset;
        scatter += n * n.transpose();
    }
    return scatter;
}

Vector3d smallestDirection(const Matrix3d& scatter)
{
    return Eigen::SelfAdjointEigenSolver<Matrix3d>(scatter).eigenvectors().col(0);
}

// Where sum of |M_i (x - p_i)|^2 is smallest, with projections M_i from the normals.
template <typename Projection>
Vector3d nearestPlace(const Zorvan::Scan& scan, const Projection& projection, Matrix3d normalMatrix = Matrix3d::Zero())
{
    const Vector3d middle = meanOf(scan.points);
    Vector3d right = Vector3d::Zero();
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        const Matrix3d M = projection(toEigen(scan.normals[i]));
        normalMatrix += M;
        right += M * (toEigen(scan.points[i]) - middle);
    }
    return middle + normalMatrix.ldlt().solve(right);
}

Vector3d onAxis(const Vector3d& p, const Vector3d& place, const Vector3d& axis)
{
    return place + (p - place).dot(axis) * axis;
}

} // namespace

bool PrimitiveStart::IsUsable() const
{
    return center.allFinite() && axis.allFinite() && apex.allFinite() && std::isfinite(dHalfAngle) && dRadius > 0.0 &&
           std::isfinite(dRadius);
}

PrimitiveStart StartOfSphere(const Zorvan::Scan& scan)
{
    PrimitiveStart start;
    start.center =
        nearestPlace(scan, [](const Vector3d& n) { return Matrix3d(Matrix3d::Identity() - n * n.transpose()); });
    for (const auto& p : scan.points) start.dRadius += (toEigen(p) - start.center).norm();
    start.dRadius /= static_cast<double>(scan.points.size());
    return start;
}

PrimitiveStart StartOfCylinder(const Zorvan::Scan& scan)
{
    PrimitiveStart start;
    start.axis = smallestDirection(scatterOf(scan.normals, Vector3d::Zero()));
    const Matrix3d alongAxis = start.axis * start.axis.transpose();
    const Matrix3d across = Matrix3d::Identity() - alongAxis;
    // The lines leave the place along the axis open: it is taken beside the middle of the scan.
    start.center = nearestPlace(
        scan,
        [&](const Vector3d& normal) {
            const Vector3d n = (across * normal).normalized();
            return Matrix3d(across - n * n.transpose());
        },
        static_cast<double>(scan.points.size()) * alongAxis);
    for (const auto& p : scan.points)
        start.dRadius += (toEigen(p) - onAxis(toEigen(p), start.center, start.axis)).norm();
    start.dRadius /= static_cast<double>(scan.points.size());
    return start;
}

PrimitiveStart StartOfCone(const Zorvan::Scan& scan)
{
    PrimitiveStart start;
    const Vector3d normal = meanOf(scan.normals);
    start.axis = smallestDirection(scatterOf(scan.normals, normal));
    start.apex = nearestPlace(scan, [](const Vector3d& n) { return Matrix3d(n * n.transpose()); });
    const Vector3d middle = meanOf(scan.points);
    if ((middle - start.apex).dot(start.axis) < 0.0) start.axis = -start.axis;
    start.dHalfAngle = std::asin(std::min(1.0, std::abs(normal.dot(start.axis))));
    start.center = onAxis(middle, start.apex, start.axis);
    start.dRadius = (start.center - start.apex).norm() * std::tan(start.dHalfAngle);
    return start;
}

} // namespace prereg
