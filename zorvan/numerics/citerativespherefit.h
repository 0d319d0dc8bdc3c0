// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/citerativeprimitivefit.h"

namespace Zorvan {

/// Fits a sphere: parameters rho, phi, theta, kappa.
///
///     Zorvan::CIterativeSphereFit fit(points, normals, count);
///     fit.GetObjectiveFunction().AddBounds(3, 1 / 3.0, 1 / 2.0); // a radius of 2 to 3
///     if (fit.Run() <= Zorvan::CNLSSolver::SmallStepSize) use(fit.GetCenter(), fit.GetRadius());
///
/// The start needs normals that stand at right angles: more than a sixth of the sphere. Give one otherwise, as with
/// many points, since it takes all pairs of them. rho enters the error in single precision, and so does the radial
/// distance of the centre; a sphere around the origin has no direction, and NaN parameters.
class ZORVAN_API CIterativeSphereFit final : public CIterativePrimitiveFit
{
public:
    /// Copies the arrays and estimates the start. @param normals  unit length, all outward or all inward
    CIterativeSphereFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count);
    /// Starts from given parameters instead.
    CIterativeSphereFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count,
                        const Eigen::VectorXd& params);
    CIterativeSphereFit(CIterativeSphereFit&&) = default;
    CIterativeSphereFit& operator=(CIterativeSphereFit&&) = default;
    ~CIterativeSphereFit() = default;

    [[nodiscard]] Eigen::VectorXd EstimateInitialParams() const override;
    CNLSObjectiveFunction& CreateObjectiveFunction() override;

    using CIterativePrimitiveFit::SetParams;
    void SetParams(const Eigen::Vector3d& center, double radius);

    /// Both are NaN after the fit was moved away.
    [[nodiscard]] Eigen::Vector3d GetCenter() const;
    [[nodiscard]] double GetRadius() const;
};

} // namespace Zorvan
