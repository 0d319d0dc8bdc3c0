// SPDX-License-Identifier: MIT
#include "zorvan/verdict/jointcovariance.h"

#include "zorvan/core/groupwork.h"
#include "zorvan/core/orientedbox.h"
#include "zorvan/core/shareddraws.h"
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>
#include <Eigen/SparseCholesky>

#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Vector6d = Eigen::Matrix<double, 6, 1>;
using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Columns = Eigen::Matrix<double, Eigen::Dynamic, 6>;
using Sparse = Eigen::SparseMatrix<double>;
using Cell = std::array<long, 3>;
using Blocks = std::map<std::pair<std::size_t, std::size_t>, Matrix6d>;

Eigen::Vector3d toEigen(const Vector3& v) { return {v.x, v.y, v.z}; }

/// A scan's points in common coordinates; single, as there are many.
struct Moved
{
    std::vector<Vector3> points;
    std::vector<Vector3> normals;
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();

    explicit Moved(const ScanInFrame& scan)
    {
        if (scan.set == nullptr || scan.set->Size() == 0 || !scan.pose)
            throw std::invalid_argument("a scan without points or pose");
        for (std::size_t i = 0; i < scan.set->Size(); ++i) {
            const auto [point, normal] = scan.pose.Transform(scan.set->GetPoint(i), scan.set->GetNormal(i));
            points.push_back(point);
            normals.push_back(normal);
            centre += toEigen(point) / static_cast<double>(scan.set->Size());
        }
    }
};

/// Points of two scans that match, fixed first.
struct Match
{
    Eigen::Vector3d fix;
    Eigen::Vector3d flt;
    Eigen::Vector3d normal;
    double residual = 0.0; ///< along it
};

/// How residuals along the normal change with a motion of their scan; turns in units of 1 / radius.
Vector6d rowOf(const Eigen::Vector3d& point, const Eigen::Vector3d& normal, const Eigen::Vector3d& centre,
               double radius)
{
    Vector6d row;
    row << (point - centre).cross(normal) / radius, normal;
    return row;
}

/// A symmetric matrix over the unknowns of two scans.
struct PairBlocks
{
    Matrix6d ofFix = Matrix6d::Zero();
    Matrix6d ofFlt = Matrix6d::Zero();
    Matrix6d between = Matrix6d::Zero(); ///< rows of the fixed one

    void Add(const Vector6d& fix, const Vector6d& flt, double weight)
    {
        ofFix += weight * fix * fix.transpose();
        ofFlt += weight * flt * flt.transpose();
        between += weight * fix * flt.transpose();
    }
};

/// What one pair of scans adds to the joint system.
struct PairSums
{
    PairBlocks hold;
    PairBlocks spread;       ///< squared pulls of single matches
    double takenShare = 0.0; ///< of the variance of a draw: what looking at some of the points only brings about
    std::map<Cell, std::pair<Vector6d, Vector6d>> pulls;
};

/// Those whose residual the spread of most explains.
void eraseOutliers(std::vector<Match>& matches)
{
    if (matches.empty()) return;
    std::vector<double> sizes;
    sizes.reserve(matches.size());
    for (const Match& match : matches) sizes.push_back(std::abs(match.residual));
    const double limit = verdict::dPoseResidualNoise * 1.4826 * Zorvan::Median(std::move(sizes));
    std::erase_if(matches, [&](const Match& match) { return std::abs(match.residual) > limit; });
}

/// Every how many-th point of the floating scan is looked at, from which one on: others for each of its pairs, as the
/// optimisation draws them.
struct Stride
{
    std::size_t first = 0;
    std::size_t step = 1;
};

std::vector<Match> matchesOf(const ScanInFrame& fix, const Moved& fixPoints, const ScanInFrame& flt,
                             const Moved& fltPoints, const Stride& stride)
{
    const double noise = std::hypot(fix.sampling.dNoise, flt.sampling.dNoise);
    const double reach = verdict::dPoseReach * std::max(fix.sampling.dSpacing, flt.sampling.dSpacing) +
                         verdict::dPoseResidualNoise * noise;
    const CTrafo toFix = fix.pose.GetInverse(true) * flt.pose;
    std::vector<Match> matches;
    for (std::size_t k = stride.first; k < fltPoints.points.size(); k += stride.step) {
        Zorvan::NearestQuery query{toFix * flt.set->GetPoint(k), -1, static_cast<float>(reach * reach)};
        fix.set->GetKdTree().FindNearest(query);
        if (query.index < 0) continue;
        const auto i = static_cast<std::size_t>(query.index);
        const Eigen::Vector3d fixNormal = toEigen(fixPoints.normals[i]);
        const Eigen::Vector3d fltNormal = toEigen(fltPoints.normals[k]);
        if (!(fixNormal.dot(fltNormal) > verdict::dPoseCosine)) continue;
        const Eigen::Vector3d normal = (fixNormal + fltNormal).normalized();
        const Eigen::Vector3d fixPoint = toEigen(fixPoints.points[i]);
        const Eigen::Vector3d fltPoint = toEigen(fltPoints.points[k]);
        matches.push_back({fixPoint, fltPoint, normal, normal.dot(fltPoint - fixPoint)});
    }
    eraseOutliers(matches);
    return matches;
}

PairSums sumsOf(const std::vector<Match>& matches, const Eigen::Vector3d& fixCentre, const Eigen::Vector3d& fltCentre,
                double radius, double patch)
{
    PairSums sums;
    for (const Match& match : matches) {
        const Vector6d fix = -rowOf(match.fix, match.normal, fixCentre, radius);
        const Vector6d flt = rowOf(match.flt, match.normal, fltCentre, radius);
        sums.hold.Add(fix, flt, 1.0);
        sums.spread.Add(fix, flt, match.residual * match.residual);
        const Eigen::Vector3d cell = match.flt / patch;
        const Cell key{std::lround(cell.x()), std::lround(cell.y()), std::lround(cell.z())};
        auto& [fixPull, fltPull] =
            sums.pulls.try_emplace(key, Vector6d(Vector6d::Zero()), Vector6d(Vector6d::Zero())).first->second;
        fixPull += fix * match.residual;
        fltPull += flt * match.residual;
    }
    return sums;
}

void add(Blocks& blocks, std::size_t row, std::size_t column, const Matrix6d& block)
{
    const auto [place, isNew] = blocks.try_emplace({row, column}, block);
    if (!isNew) place->second += block;
}

void add(Blocks& blocks, std::pair<std::size_t, std::size_t> pair, const PairBlocks& more, double weight)
{
    const auto [i, k] = pair;
    add(blocks, i, i, weight * more.ofFix);
    add(blocks, k, k, weight * more.ofFlt);
    add(blocks, i, k, weight * more.between);
    add(blocks, k, i, weight * more.between.transpose());
}

/// Without the first scan, which stays where it is.
Sparse assembled(const Blocks& blocks, std::size_t numScans)
{
    std::vector<Eigen::Triplet<double>> entries;
    for (const auto& [place, block] : blocks) {
        if (place.first == 0 || place.second == 0) continue;
        for (int r = 0; r < 6; ++r) {
            for (int c = 0; c < 6; ++c) {
                const auto row = static_cast<int>(6 * (place.first - 1)) + r;
                entries.emplace_back(row, static_cast<int>(6 * (place.second - 1)) + c, block(r, c));
            }
        }
    }
    const auto size = static_cast<Eigen::Index>(6 * (numScans - 1));
    Sparse matrix(size, size);
    matrix.setFromTriplets(entries.begin(), entries.end());
    return matrix;
}

double radiusOf(const std::vector<Moved>& scans)
{
    double sum = 0.0;
    std::size_t count = 0;
    for (const Moved& scan : scans) {
        for (const Vector3& point : scan.points) sum += (toEigen(point) - scan.centre).squaredNorm();
        count += scan.points.size();
    }
    return sum > 0.0 ? std::sqrt(sum / static_cast<double>(count)) : 1.0;
}

} // namespace

struct CJointCovariance::System
{
    std::vector<CTrafo> poses;
    std::vector<Eigen::Vector3d> centres;
    double radius = 1.0; ///< makes turns comparable to shifts
    Zorvan::CDisjointSets linked;
    Eigen::SimplicialLDLT<Sparse> factor;
    Sparse pulls; ///< over patches: sum of the squared pulls
    double scale = 1.0;

    System(std::span<const ScanInFrame> scans, unsigned uiSamples,
           const std::shared_ptr<Zorvan::CJobScheduler::Group>& group)
        : linked(static_cast<unsigned>(scans.size()))
    {
        std::vector<Moved> moved;
        for (const ScanInFrame& scan : scans) moved.emplace_back(scan);
        radius = radiusOf(moved);
        for (std::size_t i = 0; i < scans.size(); ++i) {
            poses.push_back(scans[i].pose);
            centres.push_back(moved[i].centre);
        }
        if (scans.size() < 2) return;
        // A draw with replacement counts a point of the n of a scan by chance: the variance of its weight is n over the
        // draws, times its mean squared.
        std::vector<double> variances;
        for (const ScanInFrame& scan : scans)
            variances.push_back(uiSamples > 0 ? static_cast<double>(scan.set->Size()) / uiSamples : 0.0);
        solve(variances, matchAll(scans, moved, uiSamples, group));
    }

    using Sums = std::vector<std::pair<std::pair<std::size_t, std::size_t>, PairSums>>;

    /// Of many scans the optimisation draws fewer points where they have many partners. As many times fewer are looked
    /// at here, so that a draw counts a point with the same variance as ever.
    [[nodiscard]] static std::vector<std::size_t> stepsOf(std::span<const ScanInFrame> scans, const Sums& pairs,
                                                          unsigned samples)
    {
        std::vector<std::size_t> steps(pairs.size(), 1);
        if (scans.size() <= uiMaxSetsOfFullDraws) return steps;
        std::vector<SampledSet> sets;
        for (const ScanInFrame& scan : scans) sets.push_back({scan.set->Size(), 0});
        for (const auto& [pair, sums] : pairs) {
            ++sets[pair.first].uiPartners;
            ++sets[pair.second].uiPartners;
        }
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            const auto [i, k] = pairs[p].first;
            steps[p] = std::max(1U, samples / std::max(1U, SharedDraws(sets[i], sets[k], samples)));
        }
        return steps;
    }

    [[nodiscard]] Sums matchAll(std::span<const ScanInFrame> scans, const std::vector<Moved>& moved, unsigned uiSamples,
                                const std::shared_ptr<Zorvan::CJobScheduler::Group>& group) const
    {
        double spacing = 0.0;
        std::vector<OrientedBox> boxes;
        for (const ScanInFrame& scan : scans) {
            spacing = std::max(spacing, scan.sampling.dSpacing);
            boxes.push_back(OrientedBox::FromCorners(scan.set->GetAABB()).Moved(scan.pose));
        }
        Sums all;
        for (std::size_t k = 0; k < scans.size(); ++k)
            for (std::size_t i = 0; i < k; ++i)
                if (Overlap(boxes[i], boxes[k])) all.push_back({{i, k}, {}});
        const std::vector<std::size_t> steps = stepsOf(scans, all, uiSamples);
        ForEachIndex(group, all.size(), [&](std::size_t p) {
            const auto [i, k] = all[p].first;
            Stride stride{i % steps[p], steps[p]};
            std::vector<Match> matches = matchesOf(scans[i], moved[i], scans[k], moved[k], stride);
            // A pair that hardly overlaps is looked at more closely, as the optimisation does it.
            if (stride.step > 1 && matches.size() < verdict::uiMinMatched) {
                stride = {};
                matches = matchesOf(scans[i], moved[i], scans[k], moved[k], stride);
            }
            if (matches.size() < verdict::uiMinMatched) return;
            all[p].second = sumsOf(matches, centres[i], centres[k], radius, verdict::dPosePatch * spacing);
            all[p].second.takenShare = 1.0 - 1.0 / static_cast<double>(stride.step);
        });
        std::erase_if(all, [](const auto& pair) { return pair.second.pulls.empty(); });
        return all;
    }

    /// @param drawVariances  of the weight of a point, for each scan
    void solve(const std::vector<double>& drawVariances, const Sums& all)
    {
        const std::size_t numScans = drawVariances.size();
        Blocks normal;
        Blocks squares;
        std::map<Cell, std::map<std::size_t, Vector6d>> patches;
        for (const auto& [pair, sums] : all) {
            const auto [i, k] = pair;
            linked.Unify(static_cast<unsigned>(i), static_cast<unsigned>(k));
            add(normal, pair, sums.hold, 1.0);
            add(squares, pair, sums.spread, std::max(0.0, drawVariances[k] - sums.takenShare));
            for (const auto& [cell, pull] : sums.pulls) {
                auto& patch = patches[cell];
                patch.try_emplace(i, Vector6d(Vector6d::Zero())).first->second += pull.first;
                patch.try_emplace(k, Vector6d(Vector6d::Zero())).first->second += pull.second;
            }
        }
        for (const auto& [cell, patch] : patches)
            for (const auto& [i, pullI] : patch)
                for (const auto& [k, pullK] : patch) add(squares, i, k, pullI * pullK.transpose());
        bound(numScans, normal);
        factor.compute(assembled(normal, numScans));
        pulls = assembled(squares, numScans);
        // A fit takes its share of the residuals along.
        const auto count = static_cast<double>(patches.size());
        const double unknowns = 6.0 * static_cast<double>(numScans - 1);
        scale = count > 2.0 * unknowns ? count / (count - unknowns) : 2.0;
    }

    /// Keeps what nothing holds finite.
    static void bound(std::size_t numScans, Blocks& normal)
    {
        for (std::size_t scan = 0; scan < numScans; ++scan) {
            Matrix6d& block = normal.try_emplace({scan, scan}, Matrix6d::Zero()).first->second;
            const double largest = block.diagonal().maxCoeff();
            block.diagonal().array() += largest > 0.0 ? verdict::dPoseLeastHold * largest : 1.0;
        }
    }

    [[nodiscard]] Columns inverseColumns(std::size_t scan) const
    {
        Columns unit = Columns::Zero(factor.rows(), 6);
        unit.middleRows<6>(static_cast<Eigen::Index>(6 * (scan - 1))).setIdentity();
        return factor.solve(unit);
    }

    [[nodiscard]] bool isKnown(std::size_t scan) const { return linked.SameClass(0, static_cast<unsigned>(scan)); }

    /// How a distance changes with the motion of a scan that one of its ends is on.
    [[nodiscard]] Vector6d rowOfEnd(std::size_t scan, const Eigen::Vector3d& end, const Eigen::Vector3d& along) const
    {
        return rowOf(end, along, centres.at(scan), radius);
    }
};

CJointCovariance::CJointCovariance(std::span<const ScanInFrame> scans, unsigned uiSamples,
                                   const std::shared_ptr<Zorvan::CJobScheduler::Group>& group)
    : m_system(std::make_unique<const System>(scans, uiSamples, group))
{
}

CJointCovariance::CJointCovariance(CJointCovariance&& other) noexcept = default;
CJointCovariance& CJointCovariance::operator=(CJointCovariance&& other) noexcept = default;
CJointCovariance::~CJointCovariance() = default;

bool CJointCovariance::IsKnown(std::size_t scan) const { return m_system->isKnown(scan); }

Vector3 CJointCovariance::CentreOf(std::size_t scan) const
{
    const Eigen::Vector3f centre = m_system->centres.at(scan).cast<float>();
    return {centre.x(), centre.y(), centre.z()};
}

Matrix6 CJointCovariance::Of(std::size_t scan) const
{
    Matrix6 result{};
    if (scan == 0) return result;
    Matrix6d covariance = Matrix6d::Constant(std::numeric_limits<double>::quiet_NaN());
    if (IsKnown(scan)) {
        const Columns columns = m_system->inverseColumns(scan);
        covariance = m_system->scale * columns.transpose() * (m_system->pulls * columns);
    }
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j)
            result[i][j] = covariance(i, j) / (i < 3 ? m_system->radius : 1.0) / (j < 3 ? m_system->radius : 1.0);
    return result;
}

double CJointCovariance::DistanceDeviation(std::size_t scanA, const Vector3& pointA, std::size_t scanB,
                                           const Vector3& pointB) const
{
    const System& system = *m_system;
    const Eigen::Vector3d a = toEigen(system.poses.at(scanA) * pointA);
    const Eigen::Vector3d b = toEigen(system.poses.at(scanB) * pointB);
    if (!IsKnown(scanA) || !IsKnown(scanB) || a == b) return std::numeric_limits<double>::quiet_NaN();
    if (scanA == scanB) return 0.0;
    const Eigen::Vector3d along = (a - b).normalized();
    Eigen::VectorXd step = Eigen::VectorXd::Zero(system.factor.rows());
    if (scanA > 0) step.segment<6>(static_cast<Eigen::Index>(6 * (scanA - 1))) += system.rowOfEnd(scanA, a, along);
    if (scanB > 0) step.segment<6>(static_cast<Eigen::Index>(6 * (scanB - 1))) -= system.rowOfEnd(scanB, b, along);
    const Eigen::VectorXd response = system.factor.solve(step);
    const double variance = system.scale * response.dot(system.pulls * response);
    return std::sqrt(std::max(0.0, variance));
}

} // namespace prereg
