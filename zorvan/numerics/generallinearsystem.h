// SPDX-License-Identifier: MIT
#pragma once

#include <Eigen/Core>

#include <optional>

namespace Zorvan {

/// Every x with M x = c: column 0 of the kernel, plus any multiples of the other columns.
struct LinearSolutions
{
    int rank = 0;
    Eigen::MatrixXd kernel;        ///< n x (1 + n - rank); column 1 + t belongs to the t-th free variable
    Eigen::VectorXi freeVariables; ///< n - rank indices, ascending
};

/// Gaussian elimination with complete pivoting. A pivot counts as zero up to max(rows, 50) machine epsilons of the
/// largest coefficient, and so does what the equations below the rank leave on the right.
/// @return nothing when the equations contradict one another
[[nodiscard]] std::optional<LinearSolutions> SolveGeneralLinearSystem(Eigen::MatrixXd M, Eigen::VectorXd c);

} // namespace Zorvan
