// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <utility>

namespace prereg {

/// The double-precision companion of `CTrafo`, for rotations that are averaged, interpolated, compared or made
/// orthonormal again. Four components in the order w, x, y, z; angles in radians. A plain value, safe to read from any
/// thread.
///
/// The values are stored as given: only operations that say "normalised" normalise. A normalised quaternion has a
/// non-negative real part, and averages rely on that.
class ZORVAN_API Quaternion
{
public:
    double w = 1.0;
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    Quaternion() = default; ///< the identity
    Quaternion(double w_, double x_, double y_, double z_) : w(w_), x(x_), y(y_), z(z_) {}
    explicit Quaternion(const std::array<double, 4>& wxyz) : w(wxyz[0]), x(wxyz[1]), y(wxyz[2]), z(wxyz[3]) {}

    /// Rz(yaw) Ry(pitch) Rx(roll), normalised.
    Quaternion(double roll, double pitch, double yaw);

    /// From a rotation matrix, row by row; normalised. Source: K. Shoemake, "Animating rotation with quaternion
    /// curves", SIGGRAPH 1985.
    Quaternion(double m00, double m01, double m02, double m10, double m11, double m12, double m20, double m21,
               double m22);

    /// The shortest arc that turns direction `from` into direction `to`; neither needs unit length, both must not be
    /// zero. Opposite directions give the half turn about x, whatever the directions are.
    Quaternion(const std::array<double, 3>& from, const std::array<double, 3>& to);

    /// Turn by `angle` about `axis`; `Invalid()` for a zero axis. Normalised.
    [[nodiscard]] static Quaternion FromAxisAngle(const std::array<double, 3>& axis, double angle);

    /// All components NaN.
    [[nodiscard]] static Quaternion Invalid();

    /// True when no component is NaN. Weaker than the test of `CTrafo`: an infinite component passes.
    [[nodiscard]] explicit operator bool() const;

    /// Hamilton product.
    [[nodiscard]] Quaternion operator*(const Quaternion& b) const;
    [[nodiscard]] Quaternion operator-() const { return {-w, -x, -y, -z}; }
    [[nodiscard]] Quaternion operator~() const { return {w, -x, -y, -z}; } ///< conjugate

    /// Element (i, j) of the rotation matrix, without normalising. 0.0 for an index of 3 or more: unlike
    /// `CTrafo::operator()` it does not throw.
    [[nodiscard]] double operator()(unsigned i, unsigned j) const;

    /// Vector part of q (0, v) ~q.
    [[nodiscard]] std::array<double, 3> Rotate(const std::array<double, 3>& v) const;

    [[nodiscard]] double GetNorm() const;
    /// Unit length and w >= 0; the identity when the norm is NaN, zero, or so small that its reciprocal overflows. With
    /// an infinite norm, which components from about 1e154 on give, finite components become 0 and infinite ones NaN.
    [[nodiscard]] Quaternion GetNormalized() const;
    [[nodiscard]] double Dot(const Quaternion& q) const { return w * q.w + x * q.x + y * q.y + z * q.z; }
    /// Angle between two normalised rotations, in [0, pi], blind to the sign of either.
    [[nodiscard]] double Distance(const Quaternion& q) const;

    [[nodiscard]] double GetAngle() const;
    [[nodiscard]] std::array<double, 3> GetAxis() const; ///< (1, 0, 0) when there is no turn
    [[nodiscard]] std::pair<std::array<double, 3>, double> GetAxisAngle() const;
    /// roll, pitch, yaw; inverts the constructor from three angles.
    [[nodiscard]] std::array<double, 3> GetEulerAngles() const;

    /// Spherical interpolation, a = 0 gives *this, a = 1 gives b. No shortest-arc flip: the signs of the inputs decide
    /// the path. Not normalised. Source: Shoemake, as above.
    [[nodiscard]] Quaternion Slerp(const Quaternion& b, double a) const;

    /// Writes "w + i*x + j*y + k*z" and a line end to standard output.
    void Dump() const;
};

} // namespace prereg
