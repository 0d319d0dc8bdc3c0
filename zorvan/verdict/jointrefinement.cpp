// SPDX-License-Identifier: MIT
#include "zorvan/verdict/jointrefinement.h"

#include "zorvan/core/rigid.h"
#include "zorvan/verdict/jointmatches.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>

namespace prereg {

namespace {

using namespace jointfit;

/// What one pair of scans adds to the equations.
struct PairEquations
{
    PairBlocks hold;
    Vector6d fixPull = Vector6d::Zero();
    Vector6d fltPull = Vector6d::Zero();
    FeignedHold feigned;

    PairEquations() = default;
    PairEquations(const std::vector<Match>& matches, const Eigen::Vector3d& fixCentre, const Eigen::Vector3d& fltCentre,
                  double radius)
        : feigned(matches, fixCentre, fltCentre, radius)
    {
        for (const Match& match : matches) {
            const Vector6d fix = -RowOf(match.fix, match.normal, fixCentre, radius);
            const Vector6d flt = RowOf(match.flt, match.normal, fltCentre, radius);
            hold.Add(fix, flt, 1.0);
            fixPull += fix * match.residual;
            fltPull += flt * match.residual;
        }
    }
};

kdtree::Vector<3> toVector(const Eigen::Vector3d& v)
{
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

/// Of a small motion about a centre; turns in units of 1 / radius.
CTrafo motionOf(const Vector6d& step, const Eigen::Vector3d& centre, double radius)
{
    const Eigen::Vector3d half = step.head<3>() / (2.0 * radius);
    const CTrafo turn(Quaternion(1.0, half.x(), half.y(), half.z()).GetNormalized(), kdtree::Vector<3>());
    const kdtree::Vector<3> middle = toVector(centre);
    return turn.Translate(middle - turn.Rotate(middle) + toVector(step.tail<3>()));
}

/// The scans on their way.
class CRefinement
{
public:
    CRefinement(std::span<const ScanInFrame> scans, unsigned uiSamples, const Group& group)
        : m_scans(scans.begin(), scans.end()),
          m_uiSamples(uiSamples),
          m_group(group),
          m_moved(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(6 * scans.size())))
    {
    }

    std::vector<CTrafo> Run()
    {
        constexpr int iMaxSteps = 5; // each looks up all matches anew; the second is a hundredth of the first
        const CTrafo first = m_scans.front().pose;
        double spacing = 0.0;
        for (const ScanInFrame& scan : m_scans) spacing = std::max(spacing, scan.sampling.dSpacing);
        for (int step = 0; step < iMaxSteps && move() > verdict::dPoseJointRest * spacing; ++step) {
        }
        const CTrafo back = first * m_scans.front().pose.GetInverse(true);
        std::vector<CTrafo> poses{first};
        for (std::size_t i = 1; i < m_scans.size(); ++i) poses.push_back(Rigid(back * m_scans[i].pose));
        return poses;
    }

private:
    /// @return the largest motion of a scan, mm
    double move()
    {
        std::vector<Moved> moved;
        for (const ScanInFrame& scan : m_scans) moved.emplace_back(scan);
        const double radius = RadiusOf(moved);
        const std::vector<ScanPair> pairs = OverlappingPairs(m_scans);
        std::vector<PairEquations> equations(pairs.size());
        ForEachPairOfMatches(m_scans, moved, pairs, m_uiSamples, m_group,
                             [&](std::size_t p, const std::vector<Match>& matches, std::size_t) {
                                 const auto [i, k] = pairs[p];
                                 equations[p] = PairEquations(matches, moved[i].centre, moved[k].centre, radius);
                             });
        const Eigen::VectorXd steps = solve(pairs, equations);
        m_moved += steps;
        double largest = 0.0;
        for (std::size_t i = 0; i < m_scans.size(); ++i) {
            const Vector6d step = steps.segment<6>(static_cast<Eigen::Index>(6 * i));
            largest = std::max(largest, step.norm());
            m_scans[i].pose = Rigid(motionOf(step, moved[i].centre, radius) * m_scans[i].pose);
        }
        return largest;
    }

    /// No scan is fixed: what is anchored is where each has come from. @return the steps from where they are
    [[nodiscard]] Eigen::VectorXd solve(const std::vector<ScanPair>& pairs,
                                        const std::vector<PairEquations>& equations) const
    {
        const std::size_t numScans = m_scans.size();
        CBlocks normal;
        CBlocks feigned;
        Eigen::VectorXd pull = Eigen::VectorXd::Zero(m_moved.size());
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            const auto [i, k] = pairs[p];
            normal.Add(pairs[p], equations[p].hold, 1.0);
            feigned.Add(i, i, equations[p].feigned.ofFix);
            feigned.Add(k, k, equations[p].feigned.ofFlt);
            pull.segment<6>(static_cast<Eigen::Index>(6 * i)) += equations[p].fixPull;
            pull.segment<6>(static_cast<Eigen::Index>(6 * k)) += equations[p].fltPull;
        }
        normal.Bound(numScans);
        const Sparse hold = normal.Assembled(numScans, 0);
        CAnchoredEquations anchored;
        anchored.Take(hold, feigned.Assembled(numScans, 0));
        return anchored.Solve(hold * m_moved - pull) - m_moved;
    }

    std::vector<ScanInFrame> m_scans;
    unsigned m_uiSamples;
    const Group& m_group;
    Eigen::VectorXd m_moved; ///< since the start
};

} // namespace

std::vector<CTrafo> RefineJointly(std::span<const ScanInFrame> scans, unsigned uiSamples,
                                  const std::shared_ptr<Zorvan::CJobScheduler::Group>& group)
{
    if (scans.empty()) return {};
    return CRefinement(scans, uiSamples, group).Run();
}

} // namespace prereg
