// SPDX-License-Identifier: MIT
#include "zorvan/numerics/citerativeconefit.h"

#include "zorvan/numerics/packedldlt.h"
#include "zorvan/numerics/primitivegeometry.h"

#include <cmath>
#include <memory>
#include <utility>

namespace Zorvan {

using namespace primitives;

namespace {

constexpr int numParams = 6;

class CConeFitObjFunc : public CNLSObjectiveFunction
{
public:
    explicit CConeFitObjFunc(CPointColumns points)
        : CNLSObjectiveFunction(numParams, points.Size()), m_points(std::move(points))
    {
    }

    Eigen::VectorXd Error(const Eigen::VectorXd& params) override
    {
        const Vector3d direction = Direction(params(1), params(2));
        const Coordinates n(direction);
        const Coordinates a(Direction(params(3), params(4)));
        const Coordinates surface(params(0) * direction);
        const double halfCurvature = params(5) / 2.0;
        const Coordinates turn = Cross(n, a);
        const double s = Dot(turn, turn);
        const double slope = params(5) * Dot(a, n);
        return m_points.Evaluate([=](const Coordinates& q) {
            const Coordinates d = q - surface;
            const double u = Dot(d, a);
            return (halfCurvature * (Dot(d, d) * s - u * u) - Dot(d, n) * s) / (u * slope + s);
        });
    }

private:
    CPointColumns m_points;
};

/// The line radius = offset + slope * t through (t, radius) of all points about an axis; NaN when they leave it open.
struct RadiusAlongAxis
{
    double offset = nan;
    double slope = nan;
};

RadiusAlongAxis fitRadius(const std::vector<Point>& points, const Vector3d& center, const Vector3d& axis)
{
    double normal[3] = {};
    double line[2] = {};
    double work[2] = {};
    for (const Point& p : points) {
        const Vector3d q = ToVector(p);
        const double row[2] = {1.0, ProjectionParam(q, center, axis)};
        const double radius = (q - (center + row[1] * axis)).norm();
        symsolvers::AddNormalEquation(normal, line, row, radius, 2);
    }
    if (!symsolvers::LDLtFactor(normal, 2, work)) return {};
    symsolvers::LDLtSolve(normal, line, 2);
    return {line[0], line[1]};
}

// Rodrigues' formula; k is a unit vector.
Vector3d rotated(const Vector3d& v, const Vector3d& k, double angle)
{
    return v * std::cos(angle) + k.cross(v) * std::sin(angle) + k * (k.dot(v) * (1.0 - std::cos(angle)));
}

// Turns the axis about the apex within the plane that holds the origin: that is the line of the surface nearest to it.
Eigen::VectorXd paramsOf(const Vector3d& apex, const Vector3d& center, const Vector3d& axis, double halfAngle)
{
    const Vector3d normal = (center - apex).cross(-apex).normalized();
    const Vector3d line = rotated(center - apex, normal, halfAngle).normalized();
    const Vector3d nearest = ProjectOnLine(Vector3d::Zero(), apex, line);
    const double rho = nearest.norm();
    const Vector3d u = nearest / rho;
    const auto [phi, theta] = AnglesOf(u);
    const auto [sigma, tau] = AnglesOf(axis);
    const double toAxis = ClosestParams(Vector3d::Zero(), u, center, axis).first;
    Eigen::VectorXd params(numParams);
    params << rho, phi, theta, sigma, tau, 1.0 / (toAxis - rho);
    return params;
}

bool isAlive(const std::unique_ptr<CNLSObjectiveFunction>& objective)
{
    return dynamic_cast<const CConeFitObjFunc*>(objective.get()) != nullptr;
}

} // namespace

CIterativeConeFit::CIterativeConeFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                     std::size_t count)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(CIterativeConeFit::EstimateInitialParams());
}

CIterativeConeFit::CIterativeConeFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                     std::size_t count, const Eigen::VectorXd& params)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(params);
}

CNLSObjectiveFunction& CIterativeConeFit::CreateObjectiveFunction()
{
    m_objective = std::make_unique<CConeFitObjFunc>(CPointColumns(m_points, m_fitPoints));
    return *m_objective;
}

Eigen::VectorXd CIterativeConeFit::EstimateInitialParams() const
{
    const auto [center, axis] = estimateRotationAxis();
    const auto [offset, slope] = fitRadius(m_points, center, axis);
    const double toApex = -offset / slope;
    return paramsOf(center + toApex * axis, center, axis, std::atan(offset / toApex));
}

void CIterativeConeFit::SetParams(const Eigen::Vector3d& point, const Eigen::Vector3d& direction, double apexOffset,
                                  double halfAngle)
{
    SetParams(paramsOf(point + apexOffset * direction, point, direction / direction.norm(), halfAngle));
}

Eigen::Vector3d CIterativeConeFit::GetPointOnAxis() const
{
    if (!isAlive(m_objective)) return NaNVector();
    return (m_params(0) + 1.0 / m_params(5)) * Direction(m_params(1), m_params(2));
}

Eigen::Vector3d CIterativeConeFit::GetAxisDirection() const
{
    return isAlive(m_objective) ? Direction(m_params(3), m_params(4)) : NaNVector();
}

Eigen::Vector3d CIterativeConeFit::GetApex() const
{
    const Vector3d a = GetAxisDirection();
    return GetPointOnAxis() - a / (a.dot(Direction(m_params(1), m_params(2))) * m_params(5));
}

double CIterativeConeFit::GetApexAngle() const
{
    return std::acos(Direction(m_params(1), m_params(2)).cross(GetAxisDirection()).norm());
}

double CIterativeConeFit::GetOsculatingSphereRadius() const { return isAlive(m_objective) ? 1.0 / m_params(5) : nan; }

std::pair<double, double> CIterativeConeFit::GetLowerAndUpperEndParams() const
{
    if (!isAlive(m_objective)) return {nan, nan};
    return rangeAlong(GetPointOnAxis(), GetAxisDirection());
}

std::pair<Eigen::Vector3d, Eigen::Vector3d> CIterativeConeFit::GetLowerAndUpperEnd() const
{
    const auto [lower, upper] = GetLowerAndUpperEndParams();
    return {GetPointOnAxis() + lower * GetAxisDirection(), GetPointOnAxis() + upper * GetAxisDirection()};
}

std::pair<double, double> CIterativeConeFit::GetLowerAndUpperRadius() const
{
    const auto [lower, upper] = GetLowerAndUpperEnd();
    const double slope = std::tan(GetApexAngle());
    return {(GetApex() - lower).norm() * slope, (GetApex() - upper).norm() * slope};
}

} // namespace Zorvan
