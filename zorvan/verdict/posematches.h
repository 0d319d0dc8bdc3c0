// SPDX-License-Identifier: MIT
#pragma once

// What EstimatePose and SettlePose work on: points that match at a pose, and what they say of a small motion. Not
// installed.

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/verdict/cnearesttracker.h"
#include "zorvan/verdict/scansampling.h"

#include <Eigen/Geometry>

#include <cstddef>
#include <span>
#include <vector>

namespace prereg::posefit {

using Vector6d = Eigen::Matrix<double, 6, 1>;
using Matrix6d = Eigen::Matrix<double, 6, 6>;

/// The lower half of a symmetric matrix, two columns at a time: what is summed over all matches stays in registers.
struct SymmetricHalf
{
    Eigen::Matrix<double, 6, 2> left = Eigen::Matrix<double, 6, 2>::Zero();
    Eigen::Matrix<double, 4, 2> middle = Eigen::Matrix<double, 4, 2>::Zero(); ///< from the third row and column on
    Eigen::Matrix<double, 2, 2> right = Eigen::Matrix<double, 2, 2>::Zero();

    /// Of a column times its transpose.
    [[nodiscard]] static SymmetricHalf Square(const Vector6d& a)
    {
        return {a * a.head<2>().transpose(), a.tail<4>() * a.segment<2>(2).transpose(),
                a.tail<2>() * a.tail<2>().transpose()};
    }
    /// Of the mean of both products of two columns.
    [[nodiscard]] static SymmetricHalf Mean(const Vector6d& a, const Vector6d& b)
    {
        return {0.5 * (a * b.head<2>().transpose() + b * a.head<2>().transpose()),
                0.5 * (a.tail<4>() * b.segment<2>(2).transpose() + b.tail<4>() * a.segment<2>(2).transpose()),
                0.5 * (a.tail<2>() * b.tail<2>().transpose() + b.tail<2>() * a.tail<2>().transpose())};
    }
    SymmetricHalf& operator+=(const SymmetricHalf& other)
    {
        left += other.left;
        middle += other.middle;
        right += other.right;
        return *this;
    }
    [[nodiscard]] Matrix6d Whole() const
    {
        Matrix6d whole;
        whole.leftCols<2>() = left;
        whole.block<4, 2>(2, 2) = middle;
        whole.bottomRightCorner<2, 2>() = right;
        whole.triangularView<Eigen::StrictlyUpper>() = whole.transpose();
        return whole;
    }
};

/// A moved floating point and the fixed point that it matches.
struct Match
{
    Eigen::Vector3d moved;
    Eigen::Vector3d fixNormal;
    Eigen::Vector3d fltNormal;
    Eigen::Vector3d normal; ///< between the two
    double residual = 0.0;  ///< along it, mm
};

/// What a match has to keep, and lengths that go with it.
struct Limits
{
    float reachSq;     ///< between the points of a match
    double residual;   ///< mm
    double cosine;     ///< between the normals of a match
    double leastLimit; ///< mm; noise alone may reach this
    double patch;      ///< side of a patch, mm
    double spacing;
};

/// Rough ones, for a pose that may be a spacing off.
[[nodiscard]] Limits LimitsOf(const ScanSampling& fix, const ScanSampling& flt);

/// Matches the floating points at one pose after the other; remembers where the last search ended.
class CMatcher
{
public:
    /// Of each `stride`-th point.
    CMatcher(const IPointSet& fix, const IPointSet& flt, const Limits& limits, std::size_t stride);

    [[nodiscard]] std::vector<Match> Matches(const CTrafo& pose, const Limits& limits);

private:
    struct Surfel;

    /// Looks up those from the one with this number on; what they match is read later.
    void findNearest(std::span<Surfel> batch, std::size_t first, const CTrafo& pose);

    const IPointSet& m_fix;
    const IPointSet& m_flt;
    std::size_t m_stride;
    CNearestTracker m_tracker;
};

/// Where turns are about, and what makes a turn comparable to a shift.
struct Frame
{
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();
    double radius = 1.0;
    double perRadius = 1.0;

    explicit Frame(const std::vector<Match>& matches);

    /// How a residual along `normal` changes with the motion; turns in units of 1 / radius.
    [[nodiscard]] Vector6d Row(const Match& match, const Eigen::Vector3d& normal) const
    {
        Vector6d row;
        row << (match.moved - centre).cross(normal) * perRadius, normal;
        return row;
    }

    /// From the normals of one scan times those of the other: noise of one alone looks like a hold.
    [[nodiscard]] SymmetricHalf HoldOf(const Match& match) const
    {
        return SymmetricHalf::Mean(Row(match, match.fixNormal), Row(match, match.fltNormal));
    }
};

/// The matches as equations of least squares for a small motion.
struct Equations
{
    Matrix6d normal = Matrix6d::Zero();
    Vector6d pull = Vector6d::Zero();
    double squares = 0.0; ///< of all residuals

    Equations(const std::vector<Match>& matches, const Frame& frame);
};

[[nodiscard]] Matrix6d HoldOf(const std::vector<Match>& matches, const Frame& frame);

/// The motion of a step in units of `Row`.
[[nodiscard]] CTrafo Motion(const Vector6d& step, const Frame& frame);

} // namespace prereg::posefit
