// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/citerativeprimitivefit.h"

#include <utility>

namespace Zorvan {

/// Fits a circular cylinder: parameters rho, phi, theta, alpha, kappa; alpha turns the axis about n.
///
///     Zorvan::CIterativeCylinderFit fit(points, normals, count);
///     if (fit.Run() <= Zorvan::CNLSSolver::SmallStepSize) use(fit.GetLowerAndUpperEnd(), fit.GetRadius());
///
/// The start needs normals that stand at right angles, a fifth of the circumference; give one otherwise, as with many
/// points, since it takes all pairs of them. rho enters the error in single precision; an axis through the origin has
/// no direction n, and NaN parameters.
class ZORVAN_API CIterativeCylinderFit final : public CIterativePrimitiveFit
{
public:
    /// Copies the arrays and estimates the start. @param normals  unit length, all outward or all inward
    CIterativeCylinderFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count);
    /// Starts from given parameters instead.
    CIterativeCylinderFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count,
                          const Eigen::VectorXd& params);
    CIterativeCylinderFit(CIterativeCylinderFit&&) = default;
    CIterativeCylinderFit& operator=(CIterativeCylinderFit&&) = default;
    ~CIterativeCylinderFit() = default;

    [[nodiscard]] Eigen::VectorXd EstimateInitialParams() const override;
    CNLSObjectiveFunction& CreateObjectiveFunction() override;

    using CIterativePrimitiveFit::SetParams;
    /// @param point  anywhere on the axis; @param direction  of any length
    void SetParams(const Eigen::Vector3d& point, const Eigen::Vector3d& direction, double radius);

    /// All of these are NaN after the fit was moved away.
    [[nodiscard]] Eigen::Vector3d GetPointOnAxis() const;
    [[nodiscard]] Eigen::Vector3d GetAxisDirection() const;
    [[nodiscard]] double GetRadius() const;
    /// Where the points begin and end along the axis, from `GetPointOnAxis` in lengths of `GetAxisDirection`.
    [[nodiscard]] std::pair<double, double> GetLowerAndUpperEndParams() const;
    [[nodiscard]] std::pair<Eigen::Vector3d, Eigen::Vector3d> GetLowerAndUpperEnd() const;
};

} // namespace Zorvan
