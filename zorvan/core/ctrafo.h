// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/quaternion.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/platform/hfmatrix.h"

#include <array>
#include <cstddef>
#include <utility>

namespace prereg {

/// A pose: p' = M p + t, a 3x3 linear part and a translation in single precision. The linear part is normally a
/// rotation but need not be one. Angles in radians, lengths in the unit of the data. A plain value, safe to read from
/// any thread.
///
///     const CTrafo pose = CTrafo::LeastSquaresFit(from, to, n, nullptr);
///     if (!pose) return;                                  // there is no pose
///     const auto there = pose * point;                    // moved
///     const auto back = pose.GetInverse(true) * there;    // and home again
///
/// "There is no pose" is `CTrafo::Invalid()`, all lanes NaN. It compares unequal to itself: ask `operator bool`.
class ZORVAN_API CTrafo
{
public:
    using Vector3 = kdtree::Vector<3>;

    /// Identity rotation, no translation.
    CTrafo() : m_rows{Vector3(1, 0, 0), Vector3(0, 1, 0), Vector3(0, 0, 1)} {}
    [[nodiscard]] static CTrafo Identity() { return {}; }
    /// All sixteen lanes quiet NaN.
    [[nodiscard]] static CTrafo Invalid();

    /// The rows of M and the translation, stored as they are.
    CTrafo(const Vector3& r0, const Vector3& r1, const Vector3& r2, const Vector3& t) : m_rows{r0, r1, r2}, m_t(t) {}
    /// M = Rz(euler.z) Ry(euler.y) Rx(euler.x), in single precision.
    CTrafo(const Vector3& euler, const Vector3& t);
    /// The matrix of q, which is not normalised first, rounded to single precision.
    CTrafo(const Quaternion& q, const Vector3& t);
    /// Turn by `angle` about `axis` (Rodrigues). The axis is normalised to about 12 bits only; a zero axis stays zero.
    CTrafo(const Vector3& axis, float angle, const Vector3& t);
    explicit CTrafo(const HfMatrix4Rd& matrix);
    explicit CTrafo(const HfMatrix4Rf& matrix);

    /// True when the twelve values that matter are all finite.
    [[nodiscard]] explicit operator bool() const
    {
        return m_rows[0].IsFinite() && m_rows[1].IsFinite() && m_rows[2].IsFinite() && m_t.IsFinite();
    }
    /// Exact equality of the twelve values that matter, so an invalid pose never equals anything.
    friend bool operator==(const CTrafo& a, const CTrafo& b) { return a.m_rows == b.m_rows && a.m_t == b.m_t; }

    /// Composition: (a * b) * p is a * (b * p).
    [[nodiscard]] CTrafo operator*(const CTrafo& b) const;
    [[nodiscard]] Vector3 operator*(const Vector3& p) const { return Rotate(p) + Vector3(m_t.x, m_t.y, m_t.z); }
    [[nodiscard]] Vector3 Transform(const Vector3& p) const { return *this * p; }
    /// A point with its normal: (M p + t, M n).
    [[nodiscard]] std::pair<Vector3, Vector3> Transform(const Vector3& p, const Vector3& n) const
    {
        return {*this * p, Rotate(n)};
    }
    [[nodiscard]] Vector3 Rotate(const Vector3& v) const
    {
        return {kdtree::Dot(m_rows[0], v), kdtree::Dot(m_rows[1], v), kdtree::Dot(m_rows[2], v)};
    }

    /// Element of the 4x4 view whose last row is 0, 0, 0, 1.
    /// @throws std::invalid_argument "invalid row or column index"
    [[nodiscard]] float operator()(unsigned row, unsigned col) const;
    [[nodiscard]] const Vector3& GetTranslation() const { return m_t; }
    /// The 4x4 view, row-major.
    [[nodiscard]] std::array<std::array<float, 4>, 4> GetMatrix() const;
    [[nodiscard]] explicit operator HfMatrix4Rd() const;
    [[nodiscard]] explicit operator HfMatrix4Rf() const;
    /// The rotation, normalised.
    [[nodiscard]] Quaternion GetQuaternion() const;
    /// Inverts the constructor from Euler angles, away from gimbal lock (pitch +-pi/2).
    [[nodiscard]] Vector3 GetEulerAngles() const;
    /// Angle between the two rotations, in [0, pi]; +Infinity when either pose is invalid.
    [[nodiscard]] float GetRotationDistance(const CTrafo& o) const;

    /// @param isOrthonormal  true: the linear part is a rotation and its transpose is its inverse. false: a general
    ///                       inverse; a singular linear part gives the identity pose, not an invalid one.
    [[nodiscard]] CTrafo GetInverse(bool isOrthonormal) const;
    /// The pose without its translation; with false the rotation goes through a quaternion, which makes it orthonormal.
    [[nodiscard]] CTrafo GetRotationPart(bool isOrthonormal) const;
    /// The inverse rotation without translation; the flag as above.
    [[nodiscard]] CTrafo GetTransposedRotationPart(bool isOrthonormal) const;

    /// Translation t + v; v is not rotated.
    [[nodiscard]] CTrafo Translate(const Vector3& v) const;
    /// A scaling by s along the axes, applied after this pose: it scales the translation too.
    [[nodiscard]] CTrafo Scale(const Vector3& s) const;
    /// Negates m01, m10, m21 and ty.
    [[nodiscard]] CTrafo FlipHandedness() const;
    /// Between this pose (a = 0) and b (a = 1): straight for the translation, `Slerp` for the rotation.
    [[nodiscard]] CTrafo Lerp(const CTrafo& b, double a) const;

    /// Mean of n poses: mean translation, normalised sum of the quaternions. Invalid for n = 0.
    [[nodiscard]] static CTrafo Mean(const CTrafo* trafos, std::size_t n);
    /// The arc rotation that turns direction a into direction b, without translation.
    [[nodiscard]] static CTrafo RotationBetween(const Vector3& a, const Vector3& b);
    /// The rigid motion that carries `from` onto `to` with the least sum of squared distances. Source: Horn, J. Opt.
    /// Soc. Am. A 4 (1987).
    /// @param weights  n weights or null. They act on the two centroids only, not on the rotation.
    /// @return         invalid for fewer than 3 points, a null array, or a rotation that the points leave open
    [[nodiscard]] static CTrafo LeastSquaresFit(const Vector3* from, const Vector3* to, std::size_t n,
                                                const double* weights);

    /// Writes the 4x4 view to standard output, each element as " %5.3f", a row a line.
    void Dump() const;

private:
    std::array<Vector3, 3> m_rows;
    Vector3 m_t;
};

} // namespace prereg
