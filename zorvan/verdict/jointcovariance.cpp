// SPDX-License-Identifier: MIT
#include "zorvan/verdict/jointcovariance.h"

#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/verdict/jointmatches.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using namespace jointfit;
using Vector3 = kdtree::Vector<3>;
using Cell = std::array<long, 3>;

/// What one pair of scans adds to the joint system.
struct PairSums
{
    PairBlocks hold;
    FeignedHold feigned;     ///< where scans may slide
    PairBlocks spread;       ///< squared pulls of single matches
    double takenShare = 0.0; ///< of the variance of a draw: what looking at some of the points only brings about
    std::map<Cell, std::pair<Vector6d, Vector6d>> pulls;
};

PairSums sumsOf(const std::vector<Match>& matches, const Eigen::Vector3d& fixCentre, const Eigen::Vector3d& fltCentre,
                double radius, double patch)
{
    PairSums sums;
    for (const Match& match : matches) {
        const Vector6d fix = -RowOf(match.fix, match.normal, fixCentre, radius);
        const Vector6d flt = RowOf(match.flt, match.normal, fltCentre, radius);
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

double spacingOf(const ScanInFrame& scan) { return scan.sampling.dSpacing; }

/// Of a motion that no surface holds: what lies too far to one side is contradicted from so many pixels on.
double freeVarianceOf(double spacing)
{
    const double furthest = verdict::dMissingPixels * verdict::dPixelPerSpacing * spacing;
    return furthest * furthest / 3.0;
}

} // namespace

struct CJointCovariance::System
{
    std::vector<CTrafo> poses;
    std::vector<Eigen::Vector3d> centres;
    double radius = 1.0; ///< makes turns comparable to shifts
    Zorvan::CDisjointSets linked;
    CAnchoredEquations equations;
    Sparse pulls;              ///< over patches: sum of the squared pulls
    double freeVariance = 0.0; ///< of a motion that no surface holds, mm^2
    double scale = 1.0;

    System(std::span<const ScanInFrame> scans, unsigned uiSamples, bool maySlide, const Group& group)
        : linked(static_cast<unsigned>(scans.size()))
    {
        std::vector<Moved> moved;
        for (const ScanInFrame& scan : scans) moved.emplace_back(scan);
        radius = RadiusOf(moved);
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
        const double spacing = std::ranges::max_element(scans, {}, spacingOf)->sampling.dSpacing;
        if (maySlide) freeVariance = freeVarianceOf(spacing);
        solve(variances, matchAll(scans, moved, uiSamples, verdict::dPosePatch * spacing, group));
    }

    struct OfPair
    {
        ScanPair pair;
        PairSums sums;
    };

    [[nodiscard]] std::vector<OfPair> matchAll(std::span<const ScanInFrame> scans, const std::vector<Moved>& moved,
                                               unsigned uiSamples, double patch, const Group& group) const
    {
        const std::vector<ScanPair> pairs = OverlappingPairs(scans);
        std::vector<OfPair> all(pairs.size());
        std::ranges::transform(pairs, all.begin(), [](const ScanPair& pair) { return OfPair{pair, {}}; });
        ForEachPairOfMatches(scans, moved, pairs, uiSamples, group,
                             [&](std::size_t p, const std::vector<Match>& matches, std::size_t step) {
                                 const auto [i, k] = pairs[p];
                                 all[p].sums = sumsOf(matches, centres[i], centres[k], radius, patch);
                                 if (freeVariance > 0.0)
                                     all[p].sums.feigned = FeignedHold(matches, centres[i], centres[k], radius);
                                 all[p].sums.takenShare = 1.0 - 1.0 / static_cast<double>(step);
                             });
        std::erase_if(all, [](const OfPair& pair) { return pair.sums.pulls.empty(); });
        return all;
    }

    /// @param drawVariances  of the weight of a point, for each scan
    void solve(const std::vector<double>& drawVariances, const std::vector<OfPair>& all)
    {
        const std::size_t numScans = drawVariances.size();
        CBlocks normal;
        CBlocks squares;
        CBlocks feigned;
        std::map<Cell, std::map<std::size_t, Vector6d>> patches;
        for (const auto& [pair, sums] : all) {
            const auto [i, k] = pair;
            linked.Unify(static_cast<unsigned>(i), static_cast<unsigned>(k));
            normal.Add(pair, sums.hold, 1.0);
            if (freeVariance > 0.0) {
                feigned.Add(i, i, sums.feigned.ofFix);
                feigned.Add(k, k, sums.feigned.ofFlt);
            }
            squares.Add(pair, sums.spread, std::max(0.0, drawVariances[k] - sums.takenShare));
            for (const auto& [cell, pull] : sums.pulls) {
                auto& patch = patches[cell];
                patch.try_emplace(i, Vector6d(Vector6d::Zero())).first->second += pull.first;
                patch.try_emplace(k, Vector6d(Vector6d::Zero())).first->second += pull.second;
            }
        }
        for (const auto& [cell, patch] : patches)
            for (const auto& [i, pullI] : patch)
                for (const auto& [k, pullK] : patch) squares.Add(i, k, pullI * pullK.transpose());
        normal.Bound(numScans);
        equations.Take(normal.Assembled(numScans, 1), feigned.Assembled(numScans, 1));
        pulls = squares.Assembled(numScans, 1);
        // A fit takes its share of the residuals along.
        const auto count = static_cast<double>(patches.size());
        const double unknowns = 6.0 * static_cast<double>(numScans - 1);
        scale = count > 2.0 * unknowns ? count / (count - unknowns) : 2.0;
    }

    /// Of functions of the poses, given as columns: what noise brings about, and where motions are not held.
    [[nodiscard]] Eigen::MatrixXd covarianceOf(const Eigen::MatrixXd& functions) const
    {
        const auto [ofNoise, ofStart] = equations.Influences(functions);
        return scale * ofNoise.transpose() * (pulls * ofNoise) + freeVariance * ofStart.transpose() * ofStart;
    }

    [[nodiscard]] bool isKnown(std::size_t scan) const { return linked.SameClass(0, static_cast<unsigned>(scan)); }

    /// How a distance changes with the motion of a scan that one of its ends is on.
    [[nodiscard]] Vector6d rowOfEnd(std::size_t scan, const Eigen::Vector3d& end, const Eigen::Vector3d& along) const
    {
        return RowOf(end, along, centres.at(scan), radius);
    }
};

CJointCovariance::CJointCovariance(std::span<const ScanInFrame> scans, unsigned uiSamples, bool maySlide,
                                   const std::shared_ptr<Zorvan::CJobScheduler::Group>& group)
    : m_system(std::make_unique<const System>(scans, uiSamples, maySlide, group))
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
        Eigen::MatrixXd unit = Eigen::MatrixXd::Zero(m_system->equations.Size(), 6);
        unit.middleRows<6>(static_cast<Eigen::Index>(6 * (scan - 1))).setIdentity();
        covariance = m_system->covarianceOf(unit);
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
    const Eigen::Vector3d a = ToEigen(system.poses.at(scanA) * pointA);
    const Eigen::Vector3d b = ToEigen(system.poses.at(scanB) * pointB);
    if (!IsKnown(scanA) || !IsKnown(scanB) || a == b) return std::numeric_limits<double>::quiet_NaN();
    if (scanA == scanB) return 0.0;
    const Eigen::Vector3d along = (a - b).normalized();
    Eigen::VectorXd step = Eigen::VectorXd::Zero(system.equations.Size());
    if (scanA > 0) step.segment<6>(static_cast<Eigen::Index>(6 * (scanA - 1))) += system.rowOfEnd(scanA, a, along);
    if (scanB > 0) step.segment<6>(static_cast<Eigen::Index>(6 * (scanB - 1))) -= system.rowOfEnd(scanB, b, along);
    return std::sqrt(std::max(0.0, system.covarianceOf(step)(0, 0)));
}

} // namespace prereg
