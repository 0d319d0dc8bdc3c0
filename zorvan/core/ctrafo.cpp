// SPDX-License-Identifier: MIT
#include "zorvan/core/ctrafo.h"

#include "zorvan/numerics/symsolvers.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <vector>

namespace prereg {

namespace {

using Vector3 = CTrafo::Vector3;

// Below this determinant a matrix counts as singular (single-precision epsilon).
constexpr float singularDeterminant = 1.1921e-7F;

std::vector<double> widened(const Vector3* points, std::size_t n)
{
    std::vector<double> result;
    result.reserve(3 * n);
    for (std::size_t i = 0; i < n; ++i) result.insert(result.end(), {points[i].x, points[i].y, points[i].z});
    return result;
}

std::array<Vector3, 3> transposed(const std::array<Vector3, 3>& r)
{
    return {Vector3(r[0].x, r[1].x, r[2].x), Vector3(r[0].y, r[1].y, r[2].y), Vector3(r[0].z, r[1].z, r[2].z)};
}

Vector3 toFloat(double x, double y, double z)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

template <typename T>
std::array<Vector3, 4> rowsOf(const HfMatrix4R<T>& m)
{
    const auto f = [&m](std::size_t i) { return static_cast<float>(m.data[i]); };
    return {Vector3(f(0), f(4), f(8)), Vector3(f(1), f(5), f(9)), Vector3(f(2), f(6), f(10)),
            Vector3(f(12), f(13), f(14))};
}

template <typename T>
HfMatrix4R<T> toMatrix(const CTrafo& trafo)
{
    HfMatrix4R<T> result;
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned col = 0; col < 4; ++col) result(row, col) = static_cast<T>(trafo(row, col));
    }
    return result;
}

} // namespace

CTrafo CTrafo::Invalid()
{
    constexpr auto nan = Vector3::Filled(std::bit_cast<float>(std::uint32_t{0x7FC00000}));
    return {nan, nan, nan, nan};
}

CTrafo::CTrafo(const Vector3& euler, const Vector3& t) : m_t(t)
{
    const float sa = std::sin(euler.x);
    const float ca = std::cos(euler.x);
    const float sb = std::sin(euler.y);
    const float cb = std::cos(euler.y);
    const float sc = std::sin(euler.z);
    const float cc = std::cos(euler.z);
    m_rows[0] = {cc * cb, cc * sb * sa - sc * ca, cc * sb * ca + sc * sa};
    m_rows[1] = {sc * cb, sc * sb * sa + cc * ca, sc * sb * ca - cc * sa};
    m_rows[2] = {-sb, cb * sa, cb * ca};
}

CTrafo::CTrafo(const Quaternion& q, const Vector3& t)
    : m_rows{toFloat(q(0, 0), q(0, 1), q(0, 2)), toFloat(q(1, 0), q(1, 1), q(1, 2)),
             toFloat(q(2, 0), q(2, 1), q(2, 2))},
      m_t(t)
{
}

CTrafo::CTrafo(const Vector3& axis, float angle, const Vector3& t) : m_t(t)
{
    const float scale = Zorvan::simd::ApproximateReciprocalSqrt(axis.LengthSq());
    const Vector3 a = kdtree::IsFinite(scale) ? axis * scale : axis;
    const float c = std::cos(angle);
    const float s = std::sin(angle);
    const float C = 1 - c;
    m_rows[0] = {a.x * a.x * C + c, a.x * a.y * C - a.z * s, a.x * a.z * C + a.y * s};
    m_rows[1] = {a.x * a.y * C + a.z * s, a.y * a.y * C + c, a.y * a.z * C - a.x * s};
    m_rows[2] = {a.x * a.z * C - a.y * s, a.y * a.z * C + a.x * s, a.z * a.z * C + c};
}

CTrafo::CTrafo(const HfMatrix4Rd& matrix)
{
    const auto rows = rowsOf(matrix);
    *this = CTrafo(rows[0], rows[1], rows[2], rows[3]);
}

CTrafo::CTrafo(const HfMatrix4Rf& matrix)
{
    const auto rows = rowsOf(matrix);
    *this = CTrafo(rows[0], rows[1], rows[2], rows[3]);
}

CTrafo CTrafo::operator*(const CTrafo& b) const
{
    const auto columns = transposed(b.m_rows);
    CTrafo result;
    for (std::size_t i = 0; i < 3; ++i) {
        result.m_rows[i] = {kdtree::Dot(m_rows[i], columns[0]), kdtree::Dot(m_rows[i], columns[1]),
                            kdtree::Dot(m_rows[i], columns[2])};
    }
    result.m_t = *this * b.m_t;
    return result;
}

float CTrafo::operator()(unsigned row, unsigned col) const
{
    if (row > 3 || col > 3) throw std::invalid_argument("invalid row or column index");
    if (row == 3) return col == 3 ? 1.0F : 0.0F;
    return col == 3 ? m_t[row] : m_rows[row][col];
}

std::array<std::array<float, 4>, 4> CTrafo::GetMatrix() const
{
    std::array<std::array<float, 4>, 4> result{};
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned col = 0; col < 4; ++col) result[row][col] = (*this)(row, col);
    }
    return result;
}

CTrafo::operator HfMatrix4Rd() const { return toMatrix<double>(*this); }
CTrafo::operator HfMatrix4Rf() const { return toMatrix<float>(*this); }

Quaternion CTrafo::GetQuaternion() const
{
    return {m_rows[0].x, m_rows[0].y, m_rows[0].z, m_rows[1].x, m_rows[1].y,
            m_rows[1].z, m_rows[2].x, m_rows[2].y, m_rows[2].z};
}

Vector3 CTrafo::GetEulerAngles() const
{
    const double m20 = m_rows[2].x;
    return {std::atan2(m_rows[2].y, m_rows[2].z), static_cast<float>(std::atan2(-m20, std::sqrt(1 - m20 * m20))),
            std::atan2(m_rows[1].x, m_rows[0].x)};
}

float CTrafo::GetRotationDistance(const CTrafo& o) const
{
    const auto angle = static_cast<float>(GetQuaternion().Distance(o.GetQuaternion()));
    // An invalid pose is infinitely far from everything.
    if (std::isnan(angle) || !*this || !o) return std::numeric_limits<float>::infinity();
    return angle;
}

CTrafo CTrafo::GetInverse(bool isOrthonormal) const
{
    CTrafo result;
    if (isOrthonormal) {
        result.m_rows = transposed(m_rows);
        result.m_t = -result.Rotate(m_t);
        return result;
    }

    const auto& [r0, r1, r2] = m_rows;
    const float det =
        (r1.y * r2.z - r1.z * r2.y) * r0.x - (r1.x * r2.z - r2.x * r1.z) * r0.y + (r1.x * r2.y - r2.x * r1.y) * r0.z;
    if (std::abs(det) < singularDeterminant) return result;

    result.m_rows[0] = {(r1.y * r2.z - r1.z * r2.y) / det, (r0.z * r2.y - r0.y * r2.z) / det,
                        (r0.y * r1.z - r0.z * r1.y) / det};
    result.m_rows[1] = {(r1.z * r2.x - r1.x * r2.z) / det, (r0.x * r2.z - r0.z * r2.x) / det,
                        (r0.z * r1.x - r0.x * r1.z) / det};
    result.m_rows[2] = {(r1.x * r2.y - r1.y * r2.x) / det, (r0.y * r2.x - r0.x * r2.y) / det,
                        (r0.x * r1.y - r0.y * r1.x) / det};
    result.m_t = -result.Rotate(m_t);
    return result;
}

CTrafo CTrafo::GetRotationPart(bool isOrthonormal) const
{
    if (isOrthonormal) return {m_rows[0], m_rows[1], m_rows[2], {}};
    return {GetQuaternion(), Vector3()};
}

CTrafo CTrafo::GetTransposedRotationPart(bool isOrthonormal) const
{
    if (!isOrthonormal) return {~GetQuaternion(), Vector3()};
    const auto rows = transposed(m_rows);
    return {rows[0], rows[1], rows[2], {}};
}

CTrafo CTrafo::Translate(const Vector3& v) const { return {m_rows[0], m_rows[1], m_rows[2], m_t + v}; }

CTrafo CTrafo::Scale(const Vector3& s) const { return {m_rows[0] * s.x, m_rows[1] * s.y, m_rows[2] * s.z, m_t * s}; }

CTrafo CTrafo::FlipHandedness() const
{
    // m12 keeps its sign, so this is not quite the conjugation by diag(1, -1, 1); callers rely on these signs.
    return {m_rows[0] * Vector3(1, -1, 1), m_rows[1] * Vector3(-1, 1, 1), m_rows[2] * Vector3(1, -1, 1),
            m_t * Vector3(1, -1, 1)};
}

CTrafo CTrafo::Lerp(const CTrafo& b, double a) const
{
    return {GetQuaternion().Slerp(b.GetQuaternion(), a), m_t + (b.m_t - m_t) * static_cast<float>(a)};
}

CTrafo CTrafo::Mean(const CTrafo* trafos, std::size_t n)
{
    Quaternion sum(0, 0, 0, 0);
    std::array<double, 3> t{};
    for (std::size_t i = 0; i < n; ++i) {
        const Quaternion q = trafos[i].GetQuaternion();
        sum = {sum.w + q.w, sum.x + q.x, sum.y + q.y, sum.z + q.z};
        for (unsigned k = 0; k < 3; ++k) t[k] += trafos[i].m_t[k];
    }
    const auto count = static_cast<double>(n);
    return {sum.GetNormalized(), toFloat(t[0] / count, t[1] / count, t[2] / count)};
}

CTrafo CTrafo::RotationBetween(const Vector3& a, const Vector3& b)
{
    return {Quaternion(std::array<double, 3>{a.x, a.y, a.z}, std::array<double, 3>{b.x, b.y, b.z}), Vector3()};
}

CTrafo CTrafo::LeastSquaresFit(const Vector3* from, const Vector3* to, std::size_t n, const double* weights)
{
    if (from == nullptr || to == nullptr) return Invalid();
    const auto f = widened(from, n);
    const auto g = widened(to, n);
    double q[4];
    double R[3][3];
    double t[3];
    if (!Zorvan::symsolvers::Procrustes(f.data(), g.data(), weights, q, R, t, static_cast<unsigned int>(n))) {
        return Invalid();
    }
    return {toFloat(R[0][0], R[0][1], R[0][2]), toFloat(R[1][0], R[1][1], R[1][2]), toFloat(R[2][0], R[2][1], R[2][2]),
            toFloat(t[0], t[1], t[2])};
}

void CTrafo::Dump() const
{
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned col = 0; col < 4; ++col) std::printf(" %5.3f", static_cast<double>((*this)(row, col)));
        std::printf("\n");
    }
}

} // namespace prereg
