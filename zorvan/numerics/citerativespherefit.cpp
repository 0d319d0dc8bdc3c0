// SPDX-License-Identifier: MIT
#include "zorvan/numerics/citerativespherefit.h"

#include "zorvan/numerics/primitivegeometry.h"

#include <memory>
#include <utility>

namespace Zorvan {

using namespace primitives;

namespace {

constexpr int numParams = 4;

class CSphereFitObjFunc : public CNLSObjectiveFunction
{
public:
    explicit CSphereFitObjFunc(CPointColumns points)
        : CNLSObjectiveFunction(numParams, points.Size()), m_points(std::move(points))
    {
    }

    Eigen::VectorXd Error(const Eigen::VectorXd& params) override
    {
        const Vector3d direction = Direction(params(1), params(2));
        const Coordinates n(direction);
        const Coordinates surface(RoundToFloat(params(0)) * direction);
        const double halfCurvature = params(3) / 2.0;
        return m_points.Evaluate([=](const Coordinates& q) {
            const Coordinates d = q - surface;
            return halfCurvature * Dot(d, d) - Dot(d, n);
        });
    }

private:
    CPointColumns m_points;
};

Eigen::VectorXd paramsOf(const Vector3d& center, double radius)
{
    const double distance = center.norm();
    const auto [phi, theta] = AnglesOf(center / distance);
    return Eigen::Vector4d(distance - radius, phi, theta, 1.0 / radius);
}

bool isAlive(const std::unique_ptr<CNLSObjectiveFunction>& objective)
{
    return dynamic_cast<const CSphereFitObjFunc*>(objective.get()) != nullptr;
}

} // namespace

CIterativeSphereFit::CIterativeSphereFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                         std::size_t count)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(CIterativeSphereFit::EstimateInitialParams());
}

CIterativeSphereFit::CIterativeSphereFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                         std::size_t count, const Eigen::VectorXd& params)
    : CIterativePrimitiveFit(points, normals, count, numParams)
{
    SetParams(params);
}

CNLSObjectiveFunction& CIterativeSphereFit::CreateObjectiveFunction()
{
    m_objective = std::make_unique<CSphereFitObjFunc>(CPointColumns(m_points, m_fitPoints));
    return *m_objective;
}

Eigen::VectorXd CIterativeSphereFit::EstimateInitialParams() const
{
    double count = 0.0;
    Vector3d center = Vector3d::Zero();
    VisitCrossingPairs(m_normals, [&](std::size_t i, std::size_t j) {
        const Vector3d p = ToVector(m_points[i]);
        const Vector3d u = ToVector(m_normals[i]);
        const auto [s, t] = ClosestParams(p, u, ToVector(m_points[j]), ToVector(m_normals[j]));
        center += (p + (s + t) / 2.0 * u - center) / ++count;
    });
    std::vector<double> squares;
    for (const Point& p : m_points) squares.push_back((ToVector(p) - center).squaredNorm());
    return paramsOf(center, RootOfMedian(std::move(squares)));
}

void CIterativeSphereFit::SetParams(const Eigen::Vector3d& center, double radius)
{
    SetParams(paramsOf(center, radius));
}

Eigen::Vector3d CIterativeSphereFit::GetCenter() const
{
    if (!isAlive(m_objective)) return NaNVector();
    return RoundToFloat(m_params(0) + 1.0 / m_params(3)) * Direction(m_params(1), m_params(2));
}

double CIterativeSphereFit::GetRadius() const { return isAlive(m_objective) ? 1.0 / m_params(3) : nan; }

} // namespace Zorvan
