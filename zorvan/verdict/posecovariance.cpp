// SPDX-License-Identifier: MIT
#include "zorvan/verdict/posecovariance.h"

#include "zorvan/verdict/heldmotions.h"
#include "zorvan/verdict/posematches.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <locale>
#include <map>
#include <optional>
#include <sstream>

namespace prereg {

namespace {

using namespace posefit;

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// What the residuals of most matches stay below: as wide as their middle half says, were they normal.
double nextResidual(const std::vector<Match>& matches, const Limits& limits)
{
    std::vector<double> sizes;
    sizes.reserve(matches.size());
    for (const Match& match : matches) sizes.push_back(std::abs(match.residual));
    const double spread = verdict::dPoseResidualNoise * 1.4826 * medianOf(std::move(sizes));
    return std::clamp(spread, std::min(limits.leastLimit, limits.residual), limits.residual);
}

/// What noise of the normals explains. A fitted normal is a mean over its neighbours, and beside an edge that of no
/// surface there; as the points of two scans lie differently about the edge, so do their normals. The error is the same
/// in every scan of the part: it would not average out but move the pose.
double nextCosine(const std::vector<Match>& matches)
{
    std::vector<double> angles;
    angles.reserve(matches.size());
    for (const Match& match : matches)
        angles.push_back(std::acos(std::clamp(match.fixNormal.dot(match.fltNormal), -1.0, 1.0)));
    const double angle = verdict::dPoseNormalNoise * medianOf(std::move(angles));
    return std::cos(std::clamp(angle, std::acos(verdict::dPoseLeastCosine), std::acos(verdict::dPoseCosine)));
}

/// A frame, and what is held in it.
struct Ground
{
    Frame frame;
    CHeldMotions held;
};

struct Polished
{
    CTrafo pose = CTrafo::Invalid();
    std::vector<Match> matches; ///< at the pose
    Limits limits;              ///< that they keep
    std::optional<Ground> ground;
};

struct Step
{
    Vector6d motion;
    double inNoise = 0.0; ///< in deviations that the pose would have, were the residuals independent
};

Step stepAt(const Polished& at)
{
    const Equations equations(at.matches, at.ground->frame);
    const Vector6d motion = -at.ground->held.Solve(equations.normal, equations.pull);
    const double meanSq = equations.squares / static_cast<double>(at.matches.size());
    return {motion, std::sqrt(std::max(0.0, motion.dot(equations.normal * motion)) / meanSq)};
}

/// Least-squares steps until they no longer count. What a rough pose leaves far off has to pull until the pose rests:
/// on a part most points lie on a few planes, fit within noise at once, and a limit drawn from these would leave out
/// the faces that hold the part against sliding. What nothing holds stays where it is.
/// @param isAllHeld  follows what leans at edges, too
/// @return           invalid where too few match
Polished settleRoughly(CMatcher& matcher, const CTrafo& start, const Limits& rough, bool isAllHeld)
{
    Polished at{start, {}, rough, std::nullopt};
    bool hasWeakHolds = false;
    for (int i = 0;; ++i) {
        at.matches = matcher.Matches(at.pose, rough);
        if (at.matches.size() < verdict::uiMinMatched) return {CTrafo::Invalid(), {}, rough, std::nullopt};
        if (!hasWeakHolds) {
            const Frame frame(at.matches);
            at.ground = Ground{frame, isAllHeld ? CHeldMotions() : CHeldMotions(at.matches, frame, rough)};
        }
        const Vector6d step = stepAt(at).motion;
        const bool isAtRest = step.norm() <= verdict::dPoseRest * rough.spacing;
        if (isAtRest && !hasWeakHolds && at.ground->held.GetHeldCount() < 6) {
            hasWeakHolds = true;
            at.ground->held = CHeldMotions(at.matches, at.ground->frame, rough, at.pose, matcher);
            continue;
        }
        at.pose = Motion(step, at.ground->frame) * at.pose;
        if (!isAtRest && i < verdict::iPoseMaxSteps) continue;
        at.limits.residual = std::max(0.5 * rough.residual, nextResidual(at.matches, rough));
        at.limits.cosine = nextCosine(at.matches);
        return at;
    }
}

/// The same of a pose at rest, with limits that leave out what noise does not explain. In the end a few points change
/// their matches to and fro, and the pose with them.
/// @param lastStep  in deviations of independent noise: below it, a step is the last one
Polished settleFinely(CMatcher& matcher, Polished at, double lastStep = 0.0)
{
    Vector6d last = Vector6d::Zero();
    for (int i = 0;; ++i) {
        at.matches = matcher.Matches(at.pose, at.limits);
        if (at.matches.size() < verdict::uiMinMatched) return {CTrafo::Invalid(), {}, at.limits, std::nullopt};
        const auto [step, inNoise] = stepAt(at);
        const bool isToAndFro = step.dot(last) < -0.5 * last.squaredNorm();
        if (isToAndFro || step.norm() < verdict::dPoseLastStep * at.limits.spacing || i == verdict::iPoseMaxSteps)
            return at;
        last = step;
        at.pose = Motion(step, at.ground->frame) * at.pose;
        if (inNoise < lastStep) return at;
        if (step.norm() > verdict::dPoseRest * at.limits.spacing) continue;
        at.limits.residual = std::max(0.5 * at.limits.residual, nextResidual(at.matches, at.limits));
    }
}

Polished polish(CMatcher& matcher, const CTrafo& start, const Limits& rough, bool isAllHeld = false)
{
    Polished at = settleRoughly(matcher, start, rough, isAllHeld);
    return at.pose ? settleFinely(matcher, std::move(at)) : at;
}

/// A deviation that few patches tell is itself known badly, and errors over it are those of Student: of the sum of
/// squared steps each principal direction is widened to the variance of these, v / (v - 2). The degrees of freedom v
/// are Satterthwaite's (Biometrics Bulletin 2 (1946)), with a third of the square of a squared normal error for the
/// square of its variance: as many as patches where all have an equal part in the direction, three where one patch has
/// all.
Matrix6d widened(const Matrix6d& sum, const std::vector<Vector6d>& steps)
{
    const Eigen::SelfAdjointEigenSolver<Matrix6d> solver(sum);
    Vector6d variances = solver.eigenvalues();
    for (int k = 0; k < 6; ++k) {
        double squares = 0.0;
        for (const Vector6d& step : steps) {
            const double along = solver.eigenvectors().col(k).dot(step);
            squares += along * along * along * along;
        }
        if (!(squares > 0.0)) continue;
        const double freedom = 3.0 * variances(k) * variances(k) / squares;
        variances(k) *= freedom / (freedom - 2.0);
    }
    return solver.eigenvectors() * variances.asDiagonal() * solver.eigenvectors().transpose();
}

/// What the estimate is made of, patch by patch.
class CPatches
{
public:
    CPatches(const std::vector<Match>& matches, const Frame& frame, double side, const CHeldMotions& held)
        : m_held(held)
    {
        auto patch = m_patches.end(); // of a match; as a rule of the next one, too
        for (const Match& match : matches) {
            const Eigen::Vector3d cell = match.moved / side;
            const std::array<long, 3> key{std::lround(cell.x()), std::lround(cell.y()), std::lround(cell.z())};
            if (patch == m_patches.end() || patch->first != key) patch = m_patches.try_emplace(key).first;
            const Vector6d pull = frame.Row(match, match.normal) * match.residual;
            patch->second.pull += pull;
            const SymmetricHalf hold = frame.HoldOf(match);
            patch->second.hold += hold;
            m_hold += hold;
            m_apart += SymmetricHalf::Square(pull);
        }
    }

    [[nodiscard]] std::size_t GetCount() const { return m_patches.size(); }

    /// Of the pose: the delete-one jackknife over the patches. A patch that alone holds a direction counts as what it
    /// is; the plain sum of squared pulls would take its residual, which the fit has made small, for its error.
    [[nodiscard]] Matrix6d Jackknife() const
    {
        std::vector<Vector6d> steps;
        steps.reserve(m_patches.size());
        Matrix6d sum = Matrix6d::Zero();
        const Matrix6d hold = m_hold.Whole();
        for (const auto& [key, patch] : m_patches) {
            steps.push_back(m_held.Solve(hold - patch.hold.Whole(), patch.pull));
            sum += steps.back() * steps.back().transpose();
        }
        const auto count = static_cast<double>(m_patches.size());
        return widened(sum, steps) * ((count - 1.0) / count);
    }

    /// As if all pairs were independent.
    [[nodiscard]] Matrix6d Apart() const
    {
        const Matrix6d inverse = m_held.Inverse(m_hold.Whole());
        return inverse * m_apart.Whole() * inverse;
    }

private:
    struct Patch
    {
        Vector6d pull = Vector6d::Zero();
        SymmetricHalf hold;
    };

    const CHeldMotions& m_held;
    std::map<std::array<long, 3>, Patch> m_patches;
    SymmetricHalf m_hold;
    SymmetricHalf m_apart;
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

/// As the pose moves, points find other matches, which fit a little better than the old ones: the pull grows less than
/// the normals say, the more the noise comes up to the spacing, and the pose is known so much worse. Measured along
/// each principal direction, by a motion of one deviation.
Matrix6d withResponse(const Matrix6d& covariance, const Polished& at, const Frame& frame, CMatcher& matcher)
{
    const std::vector<Match> matches = matcher.Matches(at.pose, at.limits);
    const Equations here(matches, frame);
    const Matrix6d hold = HoldOf(matches, frame);
    const Eigen::SelfAdjointEigenSolver<Matrix6d> solver(covariance);
    Vector6d variances = solver.eigenvalues();
    for (int k = 0; k < 6; ++k) {
        const double deviation = std::sqrt(std::max(0.0, variances(k)));
        if (!(deviation > 0.0)) continue;
        const Vector6d direction = solver.eigenvectors().col(k);
        const Equations there(matcher.Matches(Motion(deviation * direction, frame) * at.pose, at.limits), frame);
        const double expected = deviation * direction.dot(hold * direction);
        const double response = direction.dot(there.pull - here.pull) / expected;
        if (response > 0.0 && response < 1.0) variances(k) /= response * response;
    }
    return solver.eigenvectors() * variances.asDiagonal() * solver.eigenvectors().transpose();
}

PoseEstimate estimateAt(const Polished& at, CMatcher& matcher)
{
    const Limits& limits = at.limits;
    const auto& [frame, held] = *at.ground;
    const CPatches patches(at.matches, frame, limits.patch, held);
    if (patches.GetCount() < verdict::uiPoseMinPatches) return {};
    const Matrix6d known = withResponse(patches.Jackknife(), at, frame, matcher);
    const Matrix6d covariance = known + held.FreeCovariance(frame.radius, at.matches, frame);
    const auto count = static_cast<double>(at.matches.size());
    PoseEstimate estimate;
    estimate.pose = at.pose;
    estimate.covariance = unscaled(covariance, frame.radius);
    estimate.centre = {static_cast<float>(frame.centre.x()), static_cast<float>(frame.centre.y()),
                       static_cast<float>(frame.centre.z())};
    estimate.dRadius = frame.radius;
    estimate.uiPairs = at.matches.size();
    estimate.dEffectivePairs = count * std::min(1.0, patches.Apart().trace() / known.trace());
    double sumSq = 0.0;
    for (const Match& match : at.matches) sumSq += match.residual * match.residual;
    estimate.dResidual = std::sqrt(sumSq / count);
    estimate.free = freeMotions(covariance, frame.radius, verdict::dPoseFreeSpacings * limits.spacing);
    return estimate;
}

std::size_t strideOf(const IPointSet& flt) { return std::max<std::size_t>(1, flt.Size() / verdict::uiSettlePoints); }

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
    const Limits limits = LimitsOf(fixSampling, fltSampling);
    if (!start || !(limits.spacing > 0.0)) return {};
    // Of few points first: all of them are only for the last steps.
    CMatcher few(fix, flt, limits, strideOf(flt));
    CMatcher all(fix, flt, limits, 1);
    Polished polished = polish(few, start, limits);
    polished =
        polished.pose ? settleFinely(all, std::move(polished), verdict::dPoseStepInNoise) : polish(all, start, limits);
    return polished.pose ? estimateAt(polished, few) : PoseEstimate{};
}

CTrafo SettlePose(const IPointSet& fix, const IPointSet& flt, const CTrafo& start, const ScanSampling& fixSampling,
                  const ScanSampling& fltSampling)
{
    const Limits limits = LimitsOf(fixSampling, fltSampling);
    if (!start || !(limits.spacing > 0.0)) return CTrafo::Invalid();
    CMatcher matcher(fix, flt, limits, strideOf(flt));
    return polish(matcher, start, limits, true).pose;
}

} // namespace prereg
