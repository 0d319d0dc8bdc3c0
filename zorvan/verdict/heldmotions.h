// SPDX-License-Identifier: MIT
#pragma once

// Which motions of a scan the surfaces hold. Not installed.

#include "zorvan/verdict/posematches.h"

#include <Eigen/Core>

#include <functional>
#include <vector>

namespace prereg::posefit {

/// The motions, told apart by whether the surfaces hold them, as seen while the limits of a match are rough.
class CHeldMotions
{
public:
    /// All of them.
    CHeldMotions() : m_held(Matrix6d::Identity()) {}

    /// What is held by no more than edges can feign is free.
    CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits);

    /// A weak hold is held that surfaces at the pose bear out.
    CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits, const CTrafo& pose,
                 CMatcher& matcher);

    [[nodiscard]] Eigen::Index GetHeldCount() const { return m_held.cols(); }

    /// Within the held motions, the inverse of the matrix times the vector.
    [[nodiscard]] Vector6d Solve(const Matrix6d& matrix, const Vector6d& vector) const;

    /// Of the matrix within the held motions.
    [[nodiscard]] Matrix6d Inverse(const Matrix6d& matrix) const;

    /// Of a pose whose free motions are off by `deviation` each. Where they are, least squares find the held ones a
    /// little elsewhere, since the normals err.
    [[nodiscard]] Matrix6d FreeCovariance(double deviation, const std::vector<Match>& matches,
                                          const Frame& frame) const;

private:
    using IsReal = std::function<bool(double hold, const Vector6d& direction)>;
    CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits, const IsReal& isReal);

    Eigen::MatrixXd m_held{6, 0};
    Eigen::MatrixXd m_free{6, 0};
};

} // namespace prereg::posefit
