// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/citerativeprimitivefit.h"
#include "zorvan/platform/cpufeatures.h"

#include <Eigen/Geometry>

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numbers>
#include <utility>
#include <vector>

/// What the fits of primitives share among themselves.
namespace Zorvan::primitives {

using Point = std::array<double, 3>;
using Eigen::Vector3d;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
[[nodiscard]] inline Vector3d NaNVector() { return Vector3d::Constant(nan); }

[[nodiscard]] inline Vector3d ToVector(const Point& p) { return {p[0], p[1], p[2]}; }

[[nodiscard]] inline double RoundToFloat(double value) { return static_cast<float>(value); }
[[nodiscard]] inline Vector3d RoundToFloat(const Vector3d& v) { return v.cast<float>().cast<double>(); }

/// The unit vector of azimuth phi and polar angle theta, and its derivatives by theta and by phi / sin(theta).
[[nodiscard]] inline Vector3d Direction(double phi, double theta)
{
    return {std::cos(phi) * std::sin(theta), std::sin(phi) * std::sin(theta), std::cos(theta)};
}
[[nodiscard]] inline Vector3d DirectionByTheta(double phi, double theta)
{
    return {std::cos(theta) * std::cos(phi), std::cos(theta) * std::sin(phi), -std::sin(theta)};
}
[[nodiscard]] inline Vector3d DirectionByPhi(double phi) { return {-std::sin(phi), std::cos(phi), 0.0}; }

/// Azimuth and polar angle of a unit vector.
[[nodiscard]] inline std::pair<double, double> AnglesOf(const Vector3d& u)
{
    return {std::atan2(u.y(), u.x()), std::acos(u.z())};
}

/// Where the lines P + s u and Q + t v come closest to one another: (s, t). Not finite for parallel lines.
[[nodiscard]] inline std::pair<double, double> ClosestParams(const Vector3d& P, const Vector3d& u, const Vector3d& Q,
                                                             const Vector3d& v)
{
    const Vector3d w = P - Q;
    const double a = u.dot(u);
    const double b = u.dot(v);
    const double c = v.dot(v);
    const double e = u.dot(w);
    const double f = v.dot(w);
    const double D = b * b - a * c;
    return {(e * c - f * b) / D, (e * b - f * a) / D};
}

/// t of the point of c + t a that is nearest to q; 0.5 where that is no number.
[[nodiscard]] inline double ProjectionParam(const Vector3d& q, const Vector3d& c, const Vector3d& a)
{
    const double t = (q - c).dot(a) / a.dot(a);
    return std::isnan(t) ? 0.5 : t;
}
[[nodiscard]] inline Vector3d ProjectOnLine(const Vector3d& q, const Vector3d& c, const Vector3d& a)
{
    return c + ProjectionParam(q, c, a) * a;
}

/// Whether two normals stand between 75 and 105 degrees to one another. The cosine decides far from the limits, at a
/// tenth of the cost of the angle: nearly all pairs.
/// @param lengths  the product of their lengths
[[nodiscard]] inline bool StandNearlyAtRightAngles(const Vector3d& a, const Vector3d& b, double lengths)
{
    constexpr double radians = 0.0174532925199433;
    const double dot = a.dot(b);
    if (std::abs(dot) > 0.2589 * lengths) return false; // cos 75 degrees is 0.25882
    if (std::abs(dot) < 0.2587 * lengths) return true;
    const double angle = std::atan2(a.cross(b).norm(), dot);
    return angle > 75.0 * radians && angle < 105.0 * radians;
}

/// Calls visit(i, j), j < i, for all pairs of normals that stand nearly at right angles.
template <typename Visit>
void VisitCrossingPairs(const std::vector<Point>& normals, const Visit& visit)
{
    std::vector<double> lengths(normals.size());
    for (std::size_t i = 0; i < normals.size(); ++i) {
        const Vector3d normal = ToVector(normals[i]);
        lengths[i] = normal.norm();
        for (std::size_t j = 0; j < i; ++j) {
            if (StandNearlyAtRightAngles(normal, ToVector(normals[j]), lengths[i] * lengths[j])) visit(i, j);
        }
    }
}

/// The root of the median of squared distances; NaN without any.
[[nodiscard]] double RootOfMedian(std::vector<double> squares);

/// A vector as loops over many points want it: Eigen's keep the compiler from computing several errors at once.
struct Coordinates
{
    double x, y, z;

    explicit Coordinates(const Vector3d& v) : x(v.x()), y(v.y()), z(v.z()) {}
    Coordinates(double vx, double vy, double vz) : x(vx), y(vy), z(vz) {}

    friend Coordinates operator-(const Coordinates& a, const Coordinates& b)
    {
        return {a.x - b.x, a.y - b.y, a.z - b.z};
    }
};

[[nodiscard]] inline double Dot(const Coordinates& a, const Coordinates& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
[[nodiscard]] inline Coordinates Cross(const Coordinates& a, const Coordinates& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/// The points of a fit as an objective keeps them: coordinate by coordinate, so that the errors of several points are
/// computed at once.
class CPointColumns
{
public:
    CPointColumns(const std::vector<Point>& points, const std::vector<FitPoint>& fitPoints)
        : m_coordinates(static_cast<Eigen::Index>(fitPoints.size()), 3)
    {
        for (std::size_t i = 0; i < fitPoints.size(); ++i)
            m_coordinates.row(static_cast<Eigen::Index>(i)) = ToVector(points[fitPoints[i].index]).transpose();
    }

    [[nodiscard]] int Size() const { return static_cast<int>(m_coordinates.rows()); }

    /// errorOfPoint(q) of every point, the same bits on every processor: two points at a time, or four where it has
    /// AVX.
    template <typename ErrorOfPoint>
    [[nodiscard]] Eigen::VectorXd Evaluate(const ErrorOfPoint& errorOfPoint) const
    {
        Eigen::VectorXd errors(m_coordinates.rows());
        GetCpuFeatures().bAvx ? EvaluateWide(errorOfPoint, errors.data())
                              : EvaluateBaseline(errorOfPoint, errors.data());
        return errors;
    }

    template <typename ErrorOfPoint>
    void EvaluateBaseline(const ErrorOfPoint& errorOfPoint, double* errors) const
    {
        evaluate(errorOfPoint, errors);
    }

    template <typename ErrorOfPoint>
    __attribute__((target("avx"))) void EvaluateWide(const ErrorOfPoint& errorOfPoint, double* errors) const
    {
        evaluate(errorOfPoint, errors);
    }

private:
    // The copy of errorOfPoint shows the compiler that no error is written over what it holds.
    template <typename ErrorOfPoint>
    [[gnu::always_inline]] void evaluate(const ErrorOfPoint& errorOfPoint, double* __restrict errors) const
    {
        const ErrorOfPoint errorOf = errorOfPoint;
        const double* x = m_coordinates.col(0).data();
        const double* y = m_coordinates.col(1).data();
        const double* z = m_coordinates.col(2).data();
        const Eigen::Index count = m_coordinates.rows();
        for (Eigen::Index i = 0; i < count; ++i) errors[i] = errorOf(Coordinates(x[i], y[i], z[i]));
    }

    Eigen::Matrix<double, Eigen::Dynamic, 3> m_coordinates;
};

} // namespace Zorvan::primitives
