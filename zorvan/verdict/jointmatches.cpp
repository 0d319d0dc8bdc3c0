// SPDX-License-Identifier: MIT
#include "zorvan/verdict/jointmatches.h"

#include "zorvan/core/orientedbox.h"
#include "zorvan/core/shareddraws.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace prereg::jointfit {

namespace {

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
        const Eigen::Vector3d fixNormal = ToEigen(fixPoints.normals[i]);
        const Eigen::Vector3d fltNormal = ToEigen(fltPoints.normals[k]);
        if (!(fixNormal.dot(fltNormal) > verdict::dPoseCosine)) continue;
        const Eigen::Vector3d normal = (fixNormal + fltNormal).normalized();
        const Eigen::Vector3d fixPoint = ToEigen(fixPoints.points[i]);
        const Eigen::Vector3d fltPoint = ToEigen(fltPoints.points[k]);
        matches.push_back({fixPoint, fltPoint, normal, fixNormal - fltNormal, normal.dot(fltPoint - fixPoint)});
    }
    eraseOutliers(matches);
    return matches;
}

/// Of each pair every how many-th point is looked at.
std::vector<std::size_t> stepsOf(std::span<const ScanInFrame> scans, const std::vector<ScanPair>& pairs,
                                 unsigned uiSamples)
{
    std::vector<std::size_t> steps(pairs.size(), 1);
    if (scans.size() <= uiMaxSetsOfFullDraws) return steps;
    std::vector<SampledSet> sets;
    for (const ScanInFrame& scan : scans) sets.push_back({scan.set->Size(), 0});
    for (const auto& [i, k] : pairs) {
        ++sets[i].uiPartners;
        ++sets[k].uiPartners;
    }
    for (std::size_t p = 0; p < pairs.size(); ++p) {
        const auto [i, k] = pairs[p];
        steps[p] = std::max(1U, uiSamples / std::max(1U, SharedDraws(sets[i], sets[k], uiSamples)));
    }
    return steps;
}

} // namespace

Moved::Moved(const ScanInFrame& scan)
{
    if (scan.set == nullptr || scan.set->Size() == 0 || !scan.pose)
        throw std::invalid_argument("a scan without points or pose");
    for (std::size_t i = 0; i < scan.set->Size(); ++i) {
        const auto [point, normal] = scan.pose.Transform(scan.set->GetPoint(i), scan.set->GetNormal(i));
        points.push_back(point);
        normals.push_back(normal);
        centre += ToEigen(point) / static_cast<double>(scan.set->Size());
    }
}

double RadiusOf(const std::vector<Moved>& scans)
{
    double sum = 0.0;
    std::size_t count = 0;
    for (const Moved& scan : scans) {
        for (const kdtree::Vector<3>& point : scan.points) sum += (ToEigen(point) - scan.centre).squaredNorm();
        count += scan.points.size();
    }
    return sum > 0.0 ? std::sqrt(sum / static_cast<double>(count)) : 1.0;
}

Vector6d RowOf(const Eigen::Vector3d& point, const Eigen::Vector3d& normal, const Eigen::Vector3d& centre,
               double radius)
{
    Vector6d row;
    row << (point - centre).cross(normal) / radius, normal;
    return row;
}

FeignedHold::FeignedHold(const std::vector<Match>& matches, const Eigen::Vector3d& fixCentre,
                         const Eigen::Vector3d& fltCentre, double radius)
{
    if (matches.empty()) return;
    std::vector<double> gaps;
    gaps.reserve(matches.size());
    for (const Match& match : matches) gaps.push_back((match.flt - match.fix).squaredNorm());
    std::vector<double> sorted = gaps;
    const auto quarter = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 4);
    std::nth_element(sorted.begin(), quarter, sorted.end());
    std::size_t count = 0;
    for (std::size_t m = 0; m < matches.size(); ++m) {
        if (gaps[m] > *quarter) continue;
        ++count;
        const Eigen::Vector3d lean = 0.5 * matches[m].difference; // of the mean of two normals
        const Vector6d fix = RowOf(matches[m].fix, lean, fixCentre, radius);
        const Vector6d flt = RowOf(matches[m].flt, lean, fltCentre, radius);
        ofFix += fix * fix.transpose();
        ofFlt += flt * flt.transpose();
    }
    const double all = static_cast<double>(matches.size()) / static_cast<double>(count);
    ofFix *= all;
    ofFlt *= all;
}

void CBlocks::Add(std::size_t row, std::size_t column, const Matrix6d& block)
{
    const auto [place, isNew] = m_blocks.try_emplace({row, column}, block);
    if (!isNew) place->second += block;
}

void CBlocks::Add(ScanPair pair, const PairBlocks& more, double weight)
{
    const auto [i, k] = pair;
    Add(i, i, weight * more.ofFix);
    Add(k, k, weight * more.ofFlt);
    Add(i, k, weight * more.between);
    Add(k, i, weight * more.between.transpose());
}

Sparse CBlocks::Assembled(std::size_t numScans, std::size_t first) const
{
    std::vector<Eigen::Triplet<double>> entries;
    for (const auto& [place, block] : m_blocks) {
        if (place.first < first || place.second < first) continue;
        for (int r = 0; r < 6; ++r) {
            for (int c = 0; c < 6; ++c) {
                const auto row = static_cast<int>(6 * (place.first - first)) + r;
                entries.emplace_back(row, static_cast<int>(6 * (place.second - first)) + c, block(r, c));
            }
        }
    }
    const auto size = static_cast<Eigen::Index>(6 * (numScans - first));
    Sparse matrix(size, size);
    matrix.setFromTriplets(entries.begin(), entries.end());
    return matrix;
}

void CBlocks::Bound(std::size_t numScans)
{
    for (std::size_t scan = 0; scan < numScans; ++scan) {
        Matrix6d& block = m_blocks.try_emplace({scan, scan}, Matrix6d::Zero()).first->second;
        const double largest = block.diagonal().maxCoeff();
        block.diagonal().array() += largest > 0.0 ? verdict::dPoseLeastHold * largest : 1.0;
    }
}

void CAnchoredEquations::Take(const Sparse& hold, const Sparse& feigned)
{
    m_anchors = verdict::dFeignedHold * feigned;
    m_factor.compute(hold + m_anchors);
}

std::pair<CAnchoredEquations::Columns, CAnchoredEquations::Columns>
CAnchoredEquations::solve(const Columns& right) const
{
    Columns round = m_factor.solve(right);
    Columns sum = round;
    for (int k = 1; k < verdict::iAnchorRounds && m_anchors.nonZeros() > 0; ++k) {
        round = m_factor.solve(m_anchors * round);
        sum += round;
    }
    return {sum, m_anchors * round};
}

std::vector<ScanPair> OverlappingPairs(std::span<const ScanInFrame> scans)
{
    std::vector<OrientedBox> boxes;
    for (const ScanInFrame& scan : scans)
        boxes.push_back(OrientedBox::FromCorners(scan.set->GetAABB()).Moved(scan.pose));
    std::vector<ScanPair> pairs;
    for (std::size_t k = 0; k < scans.size(); ++k)
        for (std::size_t i = 0; i < k; ++i)
            if (Overlap(boxes[i], boxes[k])) pairs.emplace_back(i, k);
    return pairs;
}

void ForEachPairOfMatches(std::span<const ScanInFrame> scans, const std::vector<Moved>& moved,
                          const std::vector<ScanPair>& pairs, unsigned uiSamples, const Group& group,
                          const std::function<void(std::size_t, const std::vector<Match>&, std::size_t)>& use)
{
    const std::vector<std::size_t> steps = stepsOf(scans, pairs, uiSamples);
    ForEachIndex(group, pairs.size(), [&](std::size_t p) {
        const auto [i, k] = pairs[p];
        Stride stride{i % steps[p], steps[p]};
        std::vector<Match> matches = matchesOf(scans[i], moved[i], scans[k], moved[k], stride);
        if (stride.step > 1 && matches.size() < verdict::uiMinMatched) { // as the optimisation does it
            stride = {};
            matches = matchesOf(scans[i], moved[i], scans[k], moved[k], stride);
        }
        if (matches.size() >= verdict::uiMinMatched) use(p, matches, stride.step);
    });
}

} // namespace prereg::jointfit
