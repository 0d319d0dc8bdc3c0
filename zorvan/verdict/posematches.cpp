// SPDX-License-Identifier: MIT
#include "zorvan/verdict/posematches.h"

#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
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

/// A floating point that was moved, and the fixed point nearest to it, or -1.
struct CMatcher::Surfel
{
    std::size_t floating;
    Vector3 moved;
    int nearest;
};

void CMatcher::findNearest(std::span<Surfel> batch, std::size_t first, const CTrafo& pose)
{
    for (std::size_t k = 0; k < batch.size(); ++k) {
        const std::size_t i = (first + k) * m_stride;
        batch[k] = {i, pose * m_flt.GetPoints()[i], -1};
        m_tracker.Expect(first + k);
    }
    for (std::size_t k = 0; k < batch.size(); ++k) {
        batch[k].nearest = m_tracker.Nearest(first + k, batch[k].moved);
        if (batch[k].nearest >= 0) __builtin_prefetch(&m_fix.GetNormals()[static_cast<std::size_t>(batch[k].nearest)]);
    }
}

std::vector<Match> CMatcher::Matches(const CTrafo& pose, const Limits& limits)
{
    // In batches: what a point matches lies anywhere, and the waits for it overlap.
    std::array<Surfel, 32> batch;
    const std::size_t count = (m_flt.GetPoints().size() + m_stride - 1) / m_stride;
    std::vector<Match> matches;
    matches.reserve(count);
    for (std::size_t first = 0; first < count; first += batch.size()) {
        const std::span<Surfel> some(batch.data(), std::min(batch.size(), count - first));
        findNearest(some, first, pose);
        for (const Surfel& surfel : some) {
            if (surfel.nearest < 0) continue;
            const auto j = static_cast<std::size_t>(surfel.nearest);
            const Eigen::Vector3d fixNormal = toEigen(m_fix.GetNormals()[j]);
            const Eigen::Vector3d fltNormal = toEigen(pose.Rotate(m_flt.GetNormals()[surfel.floating]));
            if (!(fixNormal.dot(fltNormal) > limits.cosine)) continue;
            Match match{toEigen(surfel.moved), fixNormal, fltNormal, (fixNormal + fltNormal).normalized(), 0.0};
            match.residual = match.normal.dot(match.moved - toEigen(m_fix.GetPoints()[j]));
            if (std::abs(match.residual) <= limits.residual) matches.push_back(match);
        }
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
    SymmetricHalf half;
    for (const Match& match : matches) {
        const Vector6d row = frame.Row(match, match.normal);
        half += SymmetricHalf::Square(row);
        pull += row * match.residual;
        squares += match.residual * match.residual;
    }
    normal = half.Whole();
}

Matrix6d HoldOf(const std::vector<Match>& matches, const Frame& frame)
{
    SymmetricHalf hold;
    for (const Match& match : matches) hold += frame.HoldOf(match);
    return hold.Whole();
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
