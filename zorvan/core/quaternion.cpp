// SPDX-License-Identifier: MIT
#include "zorvan/core/quaternion.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace prereg {

namespace {

using Vector3d = std::array<double, 3>;

// Dot products beyond +-this count as parallel or opposite: a few hundred ulp below 1.
constexpr double nearOne = std::bit_cast<double>(std::uint64_t{0x3FEFFFFFFFFFFF38});
// Full turn, half a right turn and machine epsilon as the formulas have always used them, shorter than the exact
// doubles.
constexpr double fullTurn = 6.28318530717959;
constexpr double quarterTurn = 1.5707963267949;
constexpr double epsilon = 2.2204e-16;

double dot(const Vector3d& a, const Vector3d& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector3d scaled(const Vector3d& v, double s) { return {v[0] * s, v[1] * s, v[2] * s}; }

Quaternion combine(double p, const Quaternion& a, double q, const Quaternion& b)
{
    return {p * a.w + q * b.w, p * a.x + q * b.x, p * a.y + q * b.y, p * a.z + q * b.z};
}

} // namespace

Quaternion::Quaternion(double roll, double pitch, double yaw)
{
    const double cr = std::cos(roll / 2);
    const double sr = std::sin(roll / 2);
    const double cp = std::cos(pitch / 2);
    const double sp = std::sin(pitch / 2);
    const double cy = std::cos(yaw / 2);
    const double sy = std::sin(yaw / 2);
    *this = Quaternion(cp * cy * cr + sp * sy * sr, cy * sr * cp - sp * sy * cr, sy * sr * cp + sp * cy * cr,
                       cp * sy * cr - sp * sr * cy)
                .GetNormalized();
}

Quaternion::Quaternion(double m00, double m01, double m02, double m10, double m11, double m12, double m20, double m21,
                       double m22)
{
    const double trace = m00 + m11 + m22;
    if (trace > 0) {
        const double s = 0.5 / std::sqrt(trace + 1);
        *this = {0.25 / s, (m21 - m12) * s, (m02 - m20) * s, (m10 - m01) * s};
    } else if (m00 > m11 && m00 > m22) {
        const double s = 2 * std::sqrt(1 + m00 - m11 - m22);
        *this = {(m21 - m12) / s, 0.25 * s, (m01 + m10) / s, (m02 + m20) / s};
    } else if (m11 > m22) {
        const double s = 2 * std::sqrt(1 + m11 - m00 - m22);
        *this = {(m02 - m20) / s, (m01 + m10) / s, 0.25 * s, (m12 + m21) / s};
    } else {
        const double s = 2 * std::sqrt(1 + m22 - m00 - m11);
        *this = {(m10 - m01) / s, (m02 + m20) / s, (m12 + m21) / s, 0.25 * s};
    }
    *this = GetNormalized();
}

Quaternion::Quaternion(const Vector3d& from, const Vector3d& to)
{
    const Vector3d a = scaled(from, 1 / std::sqrt(dot(from, from)));
    const Vector3d b = scaled(to, 1 / std::sqrt(dot(to, to)));
    const double d = dot(a, b);
    if (d > nearOne) return;
    if (d < -nearOne) {
        // Always the half turn about x, even for directions along x, which it leaves in place: callers rely on it.
        *this = {0, 1, 0, 0};
        return;
    }
    const double s = std::sqrt(2 * (d + 1));
    *this = Quaternion(s / 2, (a[1] * b[2] - a[2] * b[1]) / s, (a[2] * b[0] - a[0] * b[2]) / s,
                       (a[0] * b[1] - a[1] * b[0]) / s)
                .GetNormalized();
}

Quaternion Quaternion::FromAxisAngle(const Vector3d& axis, double angle)
{
    if (std::abs(angle) > fullTurn) angle = std::fmod(angle, fullTurn);
    const double length = std::sqrt(dot(axis, axis));
    if (length == 0) return Invalid();
    double s = std::sin(angle / 2);
    if (std::abs(length - 1) > 2.2204e-13) s *= 1 / length;
    return Quaternion(std::cos(angle / 2), s * axis[0], s * axis[1], s * axis[2]).GetNormalized();
}

Quaternion Quaternion::Invalid()
{
    constexpr double nan = std::bit_cast<double>(std::uint64_t{0x7FF8000000000000});
    return {nan, nan, nan, nan};
}

Quaternion::operator bool() const { return !(std::isnan(w) || std::isnan(x) || std::isnan(y) || std::isnan(z)); }

Quaternion Quaternion::operator*(const Quaternion& b) const
{
    return {w * b.w - x * b.x - y * b.y - z * b.z, w * b.x + x * b.w + y * b.z - z * b.y,
            w * b.y - x * b.z + y * b.w + z * b.x, w * b.z + x * b.y - y * b.x + z * b.w};
}

double Quaternion::operator()(unsigned i, unsigned j) const
{
    if (i >= 3 || j >= 3) return 0.0;
    switch (3 * i + j) {
    case 0:
        return w * w + x * x - y * y - z * z;
    case 1:
        return 2 * (x * y - w * z);
    case 2:
        return 2 * (x * z + w * y);
    case 3:
        return 2 * (x * y + w * z);
    case 4:
        return w * w - x * x + y * y - z * z;
    case 5:
        return 2 * (y * z - w * x);
    case 6:
        return 2 * (x * z - w * y);
    case 7:
        return 2 * (y * z + w * x);
    default:
        return w * w - x * x - y * y + z * z;
    }
}

Vector3d Quaternion::Rotate(const Vector3d& v) const
{
    const Quaternion r = *this * Quaternion(0, v[0], v[1], v[2]) * ~*this;
    return {r.x, r.y, r.z};
}

double Quaternion::GetNorm() const { return std::sqrt(Dot(*this)); }

Quaternion Quaternion::GetNormalized() const
{
    double r = 1 / GetNorm();
    if (!std::isfinite(r)) return {};
    if (w < 0) r = -r;
    return {w * r, x * r, y * r, z * r};
}

double Quaternion::Distance(const Quaternion& q) const { return 2 * std::acos(std::min(std::abs(Dot(q)), 1.0)); }

double Quaternion::GetAngle() const { return 2 * std::atan2(std::sqrt(x * x + y * y + z * z), w); }

Vector3d Quaternion::GetAxis() const
{
    const double norm = std::sqrt(x * x + y * y + z * z);
    if (norm == 0) return {1, 0, 0};
    return {x / norm, y / norm, z / norm};
}

std::pair<Vector3d, double> Quaternion::GetAxisAngle() const { return {GetAxis(), GetAngle()}; }

Vector3d Quaternion::GetEulerAngles() const
{
    return {std::atan2(2 * (w * x + y * z), 1 - 2 * (x * x + y * y)),
            std::asin(std::clamp(2 * (w * y - x * z), -1.0, 1.0)),
            std::atan2(2 * (w * z + x * y), 1 - 2 * (y * y + z * z))};
}

Quaternion Quaternion::Slerp(const Quaternion& b, double a) const
{
    const double c = Dot(b);
    if (c + 1 > epsilon) {
        if (1 - c <= epsilon) return combine(1 - a, *this, a, b);
        const double omega = std::acos(c);
        return combine(std::sin((1 - a) * omega) / std::sin(omega), *this, std::sin(a * omega) / std::sin(omega), b);
    }
    // Antipodal: the path is open, and the real part is not interpolated but taken from our z. Callers rely on it.
    Quaternion result = combine(std::sin((1 - a) * quarterTurn), *this, std::sin(a * quarterTurn), b);
    result.w = z;
    return result;
}

void Quaternion::Dump() const { std::printf("%g + i*%g + j*%g + k*%g\n", w, x, y, z); }

} // namespace prereg
