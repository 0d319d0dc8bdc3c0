// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/citerativeprimitivefit.h"

#include <utility>

namespace Zorvan {

/// Fits a circular cone: parameters rho, phi, theta, sigma, tau, kappa; sigma and tau are the angles of its axis.
///
///     Zorvan::CIterativeConeFit fit(points, normals, count);
///     if (fit.Run() <= Zorvan::CNLSSolver::SmallStepSize) use(fit.GetApex(), fit.GetApexAngle());
///
/// kappa is the curvature across the line of the surface that comes nearest to the origin, negative where the axis runs
/// between the two. The start needs normals that stand at right angles; give one otherwise, as with many points, since
/// it takes all pairs of them. An axis through the origin leaves n open, and the parameters NaN.
class ZORVAN_API CIterativeConeFit final : public CIterativePrimitiveFit
{
public:
    /// Copies the arrays and estimates the start. @param normals  unit length, all outward or all inward
    CIterativeConeFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count);
    /// Starts from given parameters instead.
    CIterativeConeFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count,
                      const Eigen::VectorXd& params);
    CIterativeConeFit(CIterativeConeFit&&) = default;
    CIterativeConeFit& operator=(CIterativeConeFit&&) = default;
    ~CIterativeConeFit() = default;

    [[nodiscard]] Eigen::VectorXd EstimateInitialParams() const override;
    CNLSObjectiveFunction& CreateObjectiveFunction() override;

    using CIterativePrimitiveFit::SetParams;
    /// @param point, apexOffset  the apex is point + apexOffset * direction, with the direction as it is given
    /// @param halfAngle          between axis and surface, radians
    void SetParams(const Eigen::Vector3d& point, const Eigen::Vector3d& direction, double apexOffset, double halfAngle);

    /// All of these are NaN after the fit was moved away.
    [[nodiscard]] Eigen::Vector3d GetPointOnAxis() const;
    [[nodiscard]] Eigen::Vector3d GetAxisDirection() const;
    [[nodiscard]] Eigen::Vector3d GetApex() const;
    /// Half the opening, radians.
    [[nodiscard]] double GetApexAngle() const;
    /// Of the sphere that touches the cone along a circle through the point nearest to the origin.
    [[nodiscard]] double GetOsculatingSphereRadius() const;
    /// Where the points begin and end along the axis, from `GetPointOnAxis` in lengths of `GetAxisDirection`.
    [[nodiscard]] std::pair<double, double> GetLowerAndUpperEndParams() const;
    [[nodiscard]] std::pair<Eigen::Vector3d, Eigen::Vector3d> GetLowerAndUpperEnd() const;
    /// Radii of the cone at these two ends.
    [[nodiscard]] std::pair<double, double> GetLowerAndUpperRadius() const;
};

} // namespace Zorvan
