// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/cnlsobjectivefunction.h"
#include "zorvan/numerics/cnlssolver.h"
#include "zorvan/platform/export.h"

#include <Eigen/Core>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Zorvan {

/// A point of a fit, and how far off the primitive it lies; unset before the first success.
struct FitPoint
{
    std::uint32_t index;
    double residual;
};

/// What the fits of sphere, cylinder and cone share: points with normals, parameters, and the solver's run.
///
/// Every primitive is described from the point of its surface that is nearest to the origin: by the distance rho of
/// that point, negative where the origin lies inside; by the angles phi and theta of the direction n = (cos phi sin
/// theta, sin phi sin theta, cos theta) toward it; and by a curvature kappa in place of a radius, so that a plane is no
/// limit. The error of a point is close to its signed distance, positive outside. Source: Lukacs, Marshall and Martin,
/// Geometric Least-squares Fitting of Spheres, Cylinders, Cones and Tori (1997).
///
/// Nothing is checked: points and normals that leave the primitive open give NaN parameters or a result code.
class ZORVAN_API CIterativePrimitiveFit
{
public:
    CIterativePrimitiveFit(const CIterativePrimitiveFit&) = delete;
    CIterativePrimitiveFit& operator=(const CIterativePrimitiveFit&) = delete;

    /// The start as the points and normals suggest it; takes all pairs of points.
    [[nodiscard]] virtual Eigen::VectorXd EstimateInitialParams() const = 0;
    /// Replaces the objective by a new one of its kind, without any constraints.
    virtual CNLSObjectiveFunction& CreateObjectiveFunction() = 0;
    /// Improves the parameters. After a success the objective is a new one, and every point has its residual; otherwise
    /// both stay as they were.
    virtual CNLSSolver::EResult Run();

    /// Also begins a new objective. @throws std::invalid_argument "invalid number of parameters"
    void SetParams(const Eigen::VectorXd& params);
    [[nodiscard]] const Eigen::VectorXd& GetParams() const { return m_params; }
    [[nodiscard]] std::size_t GetNumParams() const { return static_cast<std::size_t>(m_params.size()); }

    /// Where a caller adds constraints before `Run`. @throws std::logic_error after the fit was moved away
    [[nodiscard]] CNLSObjectiveFunction& GetObjectiveFunction();
    [[nodiscard]] const CNLSObjectiveFunction& GetObjectiveFunction() const;

protected:
    CIterativePrimitiveFit(const std::array<float, 3>* points, const std::array<float, 3>* normals, std::size_t count,
                           std::size_t numParams);
    /// The objective goes with its points and stays valid, constraints and all. The source keeps its parameters alone,
    /// so they are copied, which may throw.
    CIterativePrimitiveFit(CIterativePrimitiveFit&& other);            // NOLINT(performance-noexcept-move-constructor)
    CIterativePrimitiveFit& operator=(CIterativePrimitiveFit&& other); // NOLINT(performance-noexcept-move-constructor)
    ~CIterativePrimitiveFit() = default;

    CNLSSolver::EResult runOptimization();

    /// A point on the axis of rotation and its direction: where the lines along pairs of normals at nearly right angles
    /// come closest to one another, their mean and the direction of their largest spread.
    [[nodiscard]] std::pair<Eigen::Vector3d, Eigen::Vector3d> estimateRotationAxis() const;
    /// Smallest and largest parameter of the points along an axis; NaN without points.
    [[nodiscard]] std::pair<double, double> rangeAlong(const Eigen::Vector3d& point,
                                                       const Eigen::Vector3d& direction) const;

    std::vector<std::array<double, 3>> m_points;
    std::vector<std::array<double, 3>> m_normals;
    std::vector<FitPoint> m_fitPoints;
    std::unique_ptr<CNLSObjectiveFunction> m_objective;
    Eigen::VectorXd m_params;
};

} // namespace Zorvan
