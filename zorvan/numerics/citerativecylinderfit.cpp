// SPDX-License-Identifier: MIT
#include "zorvan/numerics/citerativecylinderfit.h"

#include "zorvan/numerics/primitivegeometry.h"

#include <cmath>
#include <memory>
#include <utility>

namespace Zorvan {

using namespace primitives;

namespace {

constexpr int numParams = 5;

Vector3d axisOf(const Eigen::VectorXd& params)
{
    return std::cos(params(3)) * DirectionByTheta(params(1), params(2)) +
           std::sin(params(3)) * DirectionByPhi(params(1));
}

class CCylinderFitObjFunc : public CNLSObjectiveFunction
{
public:
    explicit CCylinderFitObjFunc(CPointColumns points)
        : CNLSObjectiveFunction(numParams, points.Size()), m_points(std::move(points))
    {
    }

    Eigen::VectorXd Error(const Eigen::VectorXd& params) override
    {
        const Vector3d direction = Direction(params(1), params(2));
        const Coordinates n(direction);
        const Coordinates a(axisOf(params));
        const Coordinates surface(RoundToFloat(params(0)) * direction);
        const double halfCurvature = params(4) / 2.0;
        return m_points.Evaluate([=](const Coordinates& q) {
            const Coordinates d = q - surface;
            const Coordinates offAxis = Cross(a, d);
            return halfCurvature * Dot(offAxis, offAxis) - Dot(d, n);
        });
    }

private:
    CPointColumns m_points;
};

Eigen::VectorXd paramsOf(const Vector3d& point, const Vector3d& axis, double radius)
{
    const Vector3d nearest = ProjectOnLine(Vector3d::Zero(), point, axis);
    const double distance = nearest.norm();
    const Vector3d u = nearest / distance;
    const auto [phi, theta] = AnglesOf(u);
    const Vector3d reference = RoundToFloat(DirectionByTheta(phi, theta));
    const Vector3d turn = axis.cross(reference);
    const double angle = std::atan2(turn.norm(), axis.dot(reference));
    Eigen::VectorXd params(numParams);
    params << distance - radius, phi, theta, turn.dot(-u) < 0.0 ? -angle : angle, 1.0 / radius;
    return params;
}

bool isAlive(const std::unique_ptr<CNLSObjectiveFunction>& objective)
{
    return dynamic_cast<const CCylinderFitObjFunc*>(objective.get()) != nullptr;
}

} // namespace

CIterativeCylinderFit::CIterativeCylinderFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                             std::size_t count)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(CIterativeCylinderFit::EstimateInitialParams());
}

CIterativeCylinderFit::CIterativeCylinderFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                             std::size_t count, const Eigen::VectorXd& params)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(params);
}

CNLSObjectiveFunction& CIterativeCylinderFit::CreateObjectiveFunction()
{
    m_objective = std::make_unique<CCylinderFitObjFunc>(CPointColumns(m_points, m_fitPoints));
    return *m_objective;
}

Eigen::VectorXd CIterativeCylinderFit::EstimateInitialParams() const
{
    const auto [point, axis] = estimateRotationAxis();
    std::vector<double> squares;
    for (const Point& p : m_points) {
        const Vector3d q = ToVector(p);
        squares.push_back((q - ProjectOnLine(q, point, axis)).squaredNorm());
    }
    return paramsOf(point, axis, RootOfMedian(std::move(squares)));
}

void CIterativeCylinderFit::SetParams(const Eigen::Vector3d& point, const Eigen::Vector3d& direction, double radius)
{
    SetParams(paramsOf(point, direction / direction.norm(), radius));
}

Eigen::Vector3d CIterativeCylinderFit::GetPointOnAxis() const
{
    if (!isAlive(m_objective)) return NaNVector();
    return (m_params(0) + 1.0 / m_params(4)) * Direction(m_params(1), m_params(2));
}

Eigen::Vector3d CIterativeCylinderFit::GetAxisDirection() const
{
    return isAlive(m_objective) ? axisOf(m_params) : NaNVector();
}

double CIterativeCylinderFit::GetRadius() const { return isAlive(m_objective) ? 1.0 / m_params(4) : nan; }

std::pair<double, double> CIterativeCylinderFit::GetLowerAndUpperEndParams() const
{
    if (!isAlive(m_objective)) return {nan, nan};
    return rangeAlong(GetPointOnAxis(), GetAxisDirection());
}

std::pair<Eigen::Vector3d, Eigen::Vector3d> CIterativeCylinderFit::GetLowerAndUpperEnd() const
{
    const auto [lower, upper] = GetLowerAndUpperEndParams();
    return {GetPointOnAxis() + lower * GetAxisDirection(), GetPointOnAxis() + upper * GetAxisDirection()};
}

} // namespace Zorvan
