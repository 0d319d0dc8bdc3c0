// SPDX-License-Identifier: MIT
#include "zorvan/verdict/posecovariance.h"

#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <locale>
#include <map>
#include <sstream>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Vector6d = Eigen::Matrix<double, 6, 1>;
using Matrix6d = Eigen::Matrix<double, 6, 6>;

/// A moved floating point and the fixed point that it matches.
struct Match
{
    Eigen::Vector3d moved;
    Eigen::Vector3d fixNormal;
    Eigen::Vector3d fltNormal;
    Eigen::Vector3d normal; ///< between the two
    double residual = 0.0;  ///< along it, mm
};

struct Limits
{
    float reachSq;     ///< between the points of a match
    double residual;   ///< mm, while the pose is rough
    double leastLimit; ///< mm; noise alone may reach this
    double patch;      ///< side of a patch, mm
    double spacing;
};

Limits limitsOf(const ScanSampling& fix, const ScanSampling& flt)
{
    const double spacing = std::max(fix.dSpacing, flt.dSpacing);
    const double noise = std::hypot(fix.dNoise, flt.dNoise);
    const double rough = std::max(verdict::dPoseResidualNoise * noise, spacing);
    const double reach = verdict::dPoseReach * spacing + verdict::dPoseResidualNoise * noise;
    return {static_cast<float>(reach * reach), rough, verdict::dPoseResidualNoise * noise,
            verdict::dPosePatch * spacing, spacing};
}

Eigen::Vector3d toEigen(const Vector3& v) { return {v.x, v.y, v.z}; }

std::vector<Match> findMatches(const IPointSet& fix, const IPointSet& flt, const CTrafo& pose, const Limits& limits,
                               double mostResidual)
{
    std::vector<Match> matches;
    for (std::size_t i = 0; i < flt.Size(); ++i) {
        const Vector3 moved = pose * flt.GetPoint(i);
        Zorvan::NearestQuery query{moved, -1, limits.reachSq};
        fix.GetKdTree().FindNearest(query);
        if (query.index < 0) continue;
        const auto j = static_cast<std::size_t>(query.index);
        const Eigen::Vector3d fixNormal = toEigen(fix.GetNormal(j));
        const Eigen::Vector3d fltNormal = toEigen(pose.Rotate(flt.GetNormal(i)));
        if (!(fixNormal.dot(fltNormal) > verdict::dPoseCosine)) continue;
        Match match{toEigen(moved), fixNormal, fltNormal, (fixNormal + fltNormal).normalized(), 0.0};
        match.residual = match.normal.dot(match.moved - toEigen(fix.GetPoint(j)));
        if (std::abs(match.residual) <= mostResidual) matches.push_back(match);
    }
    return matches;
}

/// Where turns are about, and what makes a turn comparable to a shift.
struct Frame
{
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();
    double radius = 1.0;

    explicit Frame(const std::vector<Match>& matches)
    {
        const auto count = static_cast<double>(matches.size());
        for (const Match& match : matches) centre += match.moved / count;
        double sum = 0.0;
        for (const Match& match : matches) sum += (match.moved - centre).squaredNorm() / count;
        if (sum > 0.0) radius = std::sqrt(sum);
    }

    /// How a residual along `normal` changes with the motion; turns in units of 1 / radius.
    [[nodiscard]] Vector6d Row(const Match& match, const Eigen::Vector3d& normal) const
    {
        Vector6d row;
        row << (match.moved - centre).cross(normal) / radius, normal;
        return row;
    }
};

/// The matches as equations for a small motion.
struct Equations
{
    Matrix6d normal = Matrix6d::Zero(); ///< of the least squares
    Matrix6d hold = Matrix6d::Zero();   ///< the same without what noise of the normals adds
    Vector6d pull = Vector6d::Zero();
    double sumSq = 0.0;

    Equations(const std::vector<Match>& matches, const Frame& frame)
    {
        for (const Match& match : matches) {
            const Vector6d row = frame.Row(match, match.normal);
            const Vector6d fixRow = frame.Row(match, match.fixNormal);
            const Vector6d fltRow = frame.Row(match, match.fltNormal);
            normal += row * row.transpose();
            hold += 0.5 * (fixRow * fltRow.transpose() + fltRow * fixRow.transpose());
            pull += row * match.residual;
            sumSq += match.residual * match.residual;
        }
    }
};

CTrafo motion(const Vector6d& step, const Frame& frame)
{
    const Eigen::Vector3d turn = step.head<3>() / frame.radius;
    const double angle = turn.norm();
    const Eigen::Quaterniond q(
        Eigen::AngleAxisd(angle, angle > 0.0 ? Eigen::Vector3d(turn / angle) : Eigen::Vector3d::UnitX()));
    const Eigen::Vector3d shift = frame.centre - q * frame.centre + step.tail<3>();
    return {Quaternion(q.w(), q.x(), q.y(), q.z()),
            {static_cast<float>(shift.x()), static_cast<float>(shift.y()), static_cast<float>(shift.z())}};
}

/// The inverse, with the directions that nothing holds kept finite.
Matrix6d boundedInverse(const Matrix6d& matrix)
{
    const Eigen::SelfAdjointEigenSolver<Matrix6d> solver(matrix);
    const double least = verdict::dPoseLeastHold * solver.eigenvalues()(5);
    const Vector6d inverse = solver.eigenvalues().cwiseMax(least).cwiseInverse();
    return solver.eigenvectors() * inverse.asDiagonal() * solver.eigenvectors().transpose();
}

/// What the residuals of most matches stay below: as wide as their middle half says, were they normal.
double nextLimit(const std::vector<Match>& matches, const Limits& limits)
{
    std::vector<double> sizes;
    for (const Match& match : matches) sizes.push_back(std::abs(match.residual));
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), middle, sizes.end());
    const double spread = verdict::dPoseResidualNoise * 1.4826 * *middle;
    return std::clamp(spread, std::min(limits.leastLimit, limits.residual), limits.residual);
}

struct Polished
{
    CTrafo pose = CTrafo::Invalid();
    std::vector<Match> matches; ///< at the pose
};

/// Least-squares steps until they no longer count.
Polished polish(const IPointSet& fix, const IPointSet& flt, CTrafo pose, const Limits& limits)
{
    double mostResidual = limits.residual;
    for (int i = 0;; ++i) {
        std::vector<Match> matches = findMatches(fix, flt, pose, limits, mostResidual);
        if (matches.size() < verdict::uiMinMatched) return {};
        const Frame frame(matches);
        const Equations equations(matches, frame);
        const Vector6d step = -boundedInverse(equations.normal) * equations.pull;
        if (step.norm() < verdict::dPoseLastStep * limits.spacing || i == verdict::iPoseMaxSteps)
            return {pose, std::move(matches)};
        pose = motion(step, frame) * pose;
        mostResidual = nextLimit(matches, limits);
    }
}

/// Sum over patches of the squared pull of each.
struct PatchSums
{
    Matrix6d together = Matrix6d::Zero();
    Matrix6d apart = Matrix6d::Zero(); ///< as if all pairs were independent
    std::size_t patches = 0;

    PatchSums(const std::vector<Match>& matches, const Frame& frame, double side)
    {
        std::map<std::array<long, 3>, Vector6d> pulls;
        for (const Match& match : matches) {
            const Eigen::Vector3d cell = match.moved / side;
            const std::array<long, 3> key{std::lround(cell.x()), std::lround(cell.y()), std::lround(cell.z())};
            const Vector6d pull = frame.Row(match, match.normal) * match.residual;
            pulls.try_emplace(key, Vector6d::Zero()).first->second += pull;
            apart += pull * pull.transpose();
        }
        patches = pulls.size();
        for (const auto& [key, pull] : pulls) together += pull * pull.transpose();
        // Six parameters were fitted to these pulls.
        if (patches > 6) together *= static_cast<double>(patches) / static_cast<double>(patches - 6);
    }
};

/// @param covariance  turns in units of 1 / radius: its deviations are what a motion moves the points, in mm
std::vector<FreeMotion> freeMotions(const Matrix6d& covariance, double radius, double limit)
{
    const Eigen::SelfAdjointEigenSolver<Matrix6d> solver(covariance);
    std::vector<FreeMotion> motions;
    for (int k = 5; k >= 0; --k) {
        const double deviation = std::sqrt(std::max(0.0, solver.eigenvalues()(k)));
        if (deviation <= limit) break;
        const Vector6d direction = solver.eigenvectors().col(k);
        const bool isTurn = direction.head<3>().norm() > direction.tail<3>().norm();
        const Eigen::Vector3d part = isTurn ? direction.head<3>() : direction.tail<3>();
        const Eigen::Vector3d axis = part.normalized();
        motions.push_back({{static_cast<float>(axis.x()), static_cast<float>(axis.y()), static_cast<float>(axis.z())},
                           isTurn,
                           deviation * part.norm() / (isTurn ? radius : 1.0),
                           deviation});
    }
    return motions;
}

Matrix6 unscaled(const Matrix6d& covariance, double radius)
{
    Matrix6 result{};
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) result[i][j] = covariance(i, j) / (i < 3 ? radius : 1.0) / (j < 3 ? radius : 1.0);
    return result;
}

PoseEstimate estimateAt(const Polished& at, const Limits& limits)
{
    const Frame frame(at.matches);
    const PatchSums sums(at.matches, frame, limits.patch);
    if (sums.patches < verdict::uiPoseMinPatches) return {};
    const Equations equations(at.matches, frame);
    const Matrix6d inverse = boundedInverse(equations.hold);
    const Matrix6d covariance = inverse * sums.together * inverse;
    const auto count = static_cast<double>(at.matches.size());
    PoseEstimate estimate;
    estimate.pose = at.pose;
    estimate.covariance = unscaled(covariance, frame.radius);
    estimate.centre = {static_cast<float>(frame.centre.x()), static_cast<float>(frame.centre.y()),
                       static_cast<float>(frame.centre.z())};
    estimate.dRadius = frame.radius;
    estimate.uiPairs = at.matches.size();
    estimate.dEffectivePairs = count * std::min(1.0, (inverse * sums.apart * inverse).trace() / covariance.trace());
    estimate.dResidual = std::sqrt(equations.sumSq / count);
    estimate.free = freeMotions(covariance, frame.radius, verdict::dPoseFreeSpacings * limits.spacing);
    return estimate;
}

std::string rounded(double value)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(2);
    text << (std::abs(value) < 0.005 ? 0.0 : value);
    return text.str();
}

} // namespace

std::array<double, 6> PoseEstimate::GetStdDevs() const
{
    std::array<double, 6> deviations{};
    for (std::size_t i = 0; i < 6; ++i) deviations[i] = std::sqrt(std::max(0.0, covariance[i][i]));
    return deviations;
}

std::string PoseEstimate::ToString() const
{
    if (uiPairs == 0) return "too few points match to say how well the pose is known";
    if (free.empty()) return "the surfaces hold the pose in all directions";
    std::string text;
    for (const FreeMotion& motion : free) {
        text += text.empty() ? "free to " : "; free to ";
        text += motion.isTurn ? "turn about the axis (" : "shift along (";
        text += rounded(motion.axis.x) + ", " + rounded(motion.axis.y) + ", " + rounded(motion.axis.z) + "): ";
        text += motion.isTurn ? rounded(motion.dDeviation * (180.0 / 3.14159265358979)) + " degrees"
                              : rounded(motion.dDeviation) + " mm";
    }
    return text;
}

PoseEstimate EstimatePose(const IPointSet& fix, const IPointSet& flt, const CTrafo& start,
                          const ScanSampling& fixSampling, const ScanSampling& fltSampling)
{
    const Limits limits = limitsOf(fixSampling, fltSampling);
    if (!start || !(limits.spacing > 0.0)) return {};
    const Polished polished = polish(fix, flt, start, limits);
    return polished.pose ? estimateAt(polished, limits) : PoseEstimate{};
}

} // namespace prereg
