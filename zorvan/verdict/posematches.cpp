// SPDX-License-Identifier: MIT
#include "zorvan/verdict/posematches.h"

#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <cmath>

namespace prereg::posefit {

namespace {

using Vector3 = kdtree::Vector<3>;

constexpr double dPlay = 0.2; // spacings that a point may move before it is looked up anew

Eigen::Vector3d toEigen(const Vector3& v) { return {v.x, v.y, v.z}; }

} // namespace

Limits LimitsOf(const ScanSampling& fix, const ScanSampling& flt)
{
    const double spacing = std::max(fix.dSpacing, flt.dSpacing);
    const double noise = std::hypot(fix.dNoise, flt.dNoise);
    const double rough = std::max(verdict::dPoseResidualNoise * noise, spacing);
    const double reach = verdict::dPoseReach * spacing + verdict::dPoseResidualNoise * noise;
    return {static_cast<float>(reach * reach), rough,  verdict::dPoseCosine, verdict::dPoseResidualNoise * noise,
            verdict::dPosePatch * spacing,     spacing};
}

CMatcher::CMatcher(const IPointSet& fix, const IPointSet& flt, const Limits& limits, std::size_t stride)
    : m_fix(fix),
      m_flt(flt),
      m_stride(stride),
      m_tracker(fix.GetPoints(), fix.GetKdTree(), flt.Size() / stride + 1, limits.reachSq,
                static_cast<float>(dPlay * limits.spacing))
{
}

std::vector<Match> CMatcher::Matches(const CTrafo& pose, const Limits& limits)
{
    std::vector<Match> matches;
    matches.reserve(m_flt.Size() / m_stride + 1);
    const Vectors& fltPoints = m_flt.GetPoints();
    const Vectors& fltNormals = m_flt.GetNormals();
    for (std::size_t i = 0; i < fltPoints.size(); i += m_stride) {
        const Vector3 moved = pose * fltPoints[i];
        const int nearest = m_tracker.Nearest(i / m_stride, moved);
        if (nearest < 0) continue;
        const auto j = static_cast<std::size_t>(nearest);
        const Eigen::Vector3d fixNormal = toEigen(m_fix.GetNormals()[j]);
        const Eigen::Vector3d fltNormal = toEigen(pose.Rotate(fltNormals[i]));
        if (!(fixNormal.dot(fltNormal) > limits.cosine)) continue;
        Match match{toEigen(moved), fixNormal, fltNormal, (fixNormal + fltNormal).normalized(), 0.0};
        match.residual = match.normal.dot(match.moved - toEigen(m_fix.GetPoints()[j]));
        if (std::abs(match.residual) <= limits.residual) matches.push_back(match);
    }
    return matches;
}

Frame::Frame(const std::vector<Match>& matches)
{
    const auto count = static_cast<double>(matches.size());
    for (const Match& match : matches) centre += match.moved / count;
    double sum = 0.0;
    for (const Match& match : matches) sum += (match.moved - centre).squaredNorm() / count;
    if (sum > 0.0) radius = std::sqrt(sum);
    perRadius = 1.0 / radius;
}

Equations::Equations(const std::vector<Match>& matches, const Frame& frame)
{
    for (const Match& match : matches) {
        const Vector6d row = frame.Row(match, match.normal);
        normal += row * row.transpose();
        pull += row * match.residual;
        squares += match.residual * match.residual;
    }
}

Matrix6d HoldOf(const std::vector<Match>& matches, const Frame& frame)
{
    Matrix6d hold = Matrix6d::Zero();
    for (const Match& match : matches) hold += frame.HoldOf(match);
    return hold;
}

CTrafo Motion(const Vector6d& step, const Frame& frame)
{
    const Eigen::Vector3d turn = step.head<3>() / frame.radius;
    const double angle = turn.norm();
    const Eigen::Quaterniond q(
        Eigen::AngleAxisd(angle, angle > 0.0 ? Eigen::Vector3d(turn / angle) : Eigen::Vector3d::UnitX()));
    const Eigen::Vector3d shift = frame.centre - q * frame.centre + step.tail<3>();
    return {Quaternion(q.w(), q.x(), q.y(), q.z()),
            {static_cast<float>(shift.x()), static_cast<float>(shift.y()), static_cast<float>(shift.z())}};
}

} // namespace prereg::posefit
