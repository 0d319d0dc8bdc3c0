// SPDX-License-Identifier: MIT
#include "zorvan/verdict/heldmotions.h"

#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace prereg::posefit {

namespace {

/// Of a symmetric matrix, with the directions that nothing holds kept finite.
Eigen::MatrixXd boundedInverse(const Eigen::MatrixXd& matrix)
{
    if (matrix.cols() == 0) return matrix;
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(matrix);
    const double least = verdict::dPoseLeastHold * solver.eigenvalues()(matrix.cols() - 1);
    const Eigen::VectorXd inverse = solver.eigenvalues().cwiseMax(least).cwiseInverse();
    return solver.eigenvectors() * inverse.asDiagonal() * solver.eigenvectors().transpose();
}

/// Fitted normals lean beside an edge, in both scans, and a plane with edges seems to hold what slides in it. About
/// a tenth of the matches lies beside edges, their normals lean by up to what those of a match may differ by,
/// evenly, and hold by a third of its square.
double mostFeigned(std::size_t matches, double cosine)
{
    return verdict::dPoseEdgeShare / 3.0 * (1.0 - cosine * cosine) * static_cast<double>(matches);
}

/// Against what holds them, surfaces part as they are moved by up to a spacing, and pull back as the hold says. On
/// a plane the points find others like those that they left, and the pull is any.
bool bearsOut(double hold, const Vector6d& direction, const Frame& frame, const CTrafo& pose, const Limits& limits,
              CMatcher& matcher)
{
    if (!(hold > 0.0)) return false;
    const auto pullAt = [&](double step) {
        const CTrafo moved = Motion(step * direction, frame) * pose;
        return direction.dot(Equations(matcher.Matches(moved, limits), frame).pull);
    };
    return std::ranges::all_of(std::array{1.0, 0.5}, [&](double part) {
        const double step = part * limits.spacing;
        const double share = (pullAt(step) - pullAt(-step)) / (2.0 * step * hold);
        return std::abs(share - 1.0) < verdict::dPoseHoldPlay;
    });
}

} // namespace

CHeldMotions::CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits)
    : CHeldMotions(matches, frame, limits, [](double, const Vector6d&) { return false; })
{
}

CHeldMotions::CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits,
                           const CTrafo& pose, CMatcher& matcher)
    : CHeldMotions(matches, frame, limits, [&](double hold, const Vector6d& direction) {
          return bearsOut(hold, direction, frame, pose, limits, matcher);
      })
{
}

CHeldMotions::CHeldMotions(const std::vector<Match>& matches, const Frame& frame, const Limits& limits,
                           const IsReal& isReal)
{
    const double feigned = mostFeigned(matches.size(), limits.cosine);
    const Eigen::SelfAdjointEigenSolver<Matrix6d> solver(HoldOf(matches, frame));
    for (int k = 0; k < 6; ++k) {
        const double hold = solver.eigenvalues()(k);
        const Vector6d direction = solver.eigenvectors().col(k);
        Eigen::MatrixXd& motions = hold > feigned || isReal(hold, direction) ? m_held : m_free;
        motions.conservativeResize(6, motions.cols() + 1);
        motions.rightCols<1>() = direction;
    }
}

Vector6d CHeldMotions::Solve(const Matrix6d& matrix, const Vector6d& vector) const
{
    constexpr double dFarFromBound = 100.0; // a pivot is no eigenvalue
    if (m_held.cols() == 6) {
        const Eigen::LDLT<Matrix6d> factors(matrix);
        const Vector6d pivots = factors.vectorD();
        if (pivots.minCoeff() > dFarFromBound * verdict::dPoseLeastHold * pivots.maxCoeff())
            return factors.solve(vector);
    }
    return Inverse(matrix) * vector;
}

Matrix6d CHeldMotions::Inverse(const Matrix6d& matrix) const
{
    return m_held * boundedInverse(m_held.transpose() * matrix * m_held) * m_held.transpose();
}

Matrix6d CHeldMotions::FreeCovariance(double deviation, const std::vector<Match>& matches, const Frame& frame) const
{
    if (m_free.cols() == 0) return Matrix6d::Zero();
    const Matrix6d normal = Equations(matches, frame).normal;
    const Eigen::MatrixXd along = m_free - Inverse(normal) * normal * m_free;
    return deviation * deviation * along * along.transpose();
}

} // namespace prereg::posefit
