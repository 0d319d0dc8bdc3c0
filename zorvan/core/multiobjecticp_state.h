// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/icpregistration.h"
#include "zorvan/core/jointsystem.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/platform/stopwatch.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace prereg {

using Zorvan::Stopwatch;
using JobGroup = std::shared_ptr<Zorvan::CJobScheduler::Group>;

/// Unordered pairs of n sets are numbered from 0: (1, 0), (2, 0), (2, 1), (3, 0), ...
[[nodiscard]] constexpr std::size_t NumberOfPairs(std::size_t n) { return n < 2 ? 0 : n * (n - 1) / 2; }
[[nodiscard]] constexpr std::size_t PairIndex(std::size_t i, std::size_t j)
{
    return i > j ? NumberOfPairs(i) + j : NumberOfPairs(j) + i;
}
/// The pair (i, j), j < i, of a number.
[[nodiscard]] inline std::pair<std::size_t, std::size_t> PairOf(std::size_t k)
{
    const std::size_t i = static_cast<std::size_t>(std::sqrt(8.0 * static_cast<double>(k) + 1.0) + 1.0) / 2;
    return {i, k - NumberOfPairs(i)};
}

/// Poses and correspondences of one run.
class MultiObjectICPData
{
public:
    /// What one pass of sampling found.
    struct Sampling
    {
        float fMaxErrorSq = 0.0F;
        double dMeanRMSE = 0.0; ///< over the pairs of sets that overlap; NaN when none do
        Zorvan::CDisjointSets classes;
    };

    /// What the pairs of one set amount to.
    struct SetStatistics
    {
        double dMeanCount = 0.0; ///< correspondences with a partner, over the partners that it overlaps with
        double dRMSE = 0.0;      ///< median over these partners
    };

    MultiObjectICPData(const ConfigurationICP& config, const std::mt19937& rng, const ICPPointSetsWithPoses& sets,
                       JobGroup group, EDraws eDraws);

    /// Finds the inlier correspondences of all pairs of sets at the current poses. Every pair draws its samples from
    /// the same state of the engine, on every pass; with shared draws from one of its own, as together they should see
    /// all points.
    [[nodiscard]] Sampling SamplePairs(float radiusSq);

    [[nodiscard]] std::size_t Size() const { return m_poses.size(); }
    [[nodiscard]] const ConfigurationICP& Config() const { return m_config; }
    [[nodiscard]] const ICPPointSetIf& Set(std::size_t i) const { return *m_sets[i]; }
    [[nodiscard]] const CTrafo& Pose(std::size_t i) const { return m_poses[i]; }
    void Move(std::size_t i, const CTrafo& update) { m_poses[i] = update * m_poses[i]; }
    /// Of the k-th pair (i, j): set i is fixed, set j floating.
    [[nodiscard]] const std::vector<PairWithError>& Correspondences(std::size_t k) const { return m_pairs[k].list; }
    [[nodiscard]] SetStatistics StatisticsOf(std::size_t i) const;

private:
    struct SampledPair
    {
        std::vector<PairWithError> list; ///< inliers only
        double dRMSE = std::numeric_limits<double>::quiet_NaN();
        unsigned uiDraws = 0;
    };

    void samplePair(std::size_t k, float radiusSq);
    [[nodiscard]] std::vector<PairWithError> findMatches(std::size_t k, float radiusSq, unsigned draws) const;
    [[nodiscard]] bool areNear(std::size_t k, float radiusSq) const;
    void shareDraws(float radiusSq);
    [[nodiscard]] std::mt19937 engineOf(std::size_t k) const;
    [[nodiscard]] Sampling summary() const;

    ConfigurationICP m_config;
    const std::mt19937& m_rng;
    JobGroup m_group;
    std::vector<CTrafo> m_poses;
    std::vector<std::shared_ptr<const ICPPointSetIf>> m_sets;
    std::vector<SampledPair> m_pairs; ///< by pair number
    bool m_isShared;                  ///< pairs share the draws of their sets
    bool m_isFirstPass = true;
};

/// The system of all pairs: six unknowns for each set but the first, three rotation angles and a translation, to be
/// applied after the pose. Set 0 stays where it is and thereby fixes the others.
class MultiObjectICPUpdate
{
public:
    /// The slip of the sets, as lengths (mm).
    struct SlipRange
    {
        std::size_t uiNumSets;
        double dSmallest; ///< both NaN when there is no finite slip
        double dLargest;
    };

    MultiObjectICPUpdate(std::size_t numSets, JobGroup group);

    /// Builds the normal equations at the current poses.
    void UpdatePairs(const MultiObjectICPData& data);
    /// Solves them and moves the poses. @return false, with nothing moved, when they have no unique solution
    [[nodiscard]] bool UpdateTrafos(MultiObjectICPData& data);
    /// Finds the slip of each set from the residuals of the solution. After a successful `UpdateTrafos`.
    [[nodiscard]] SlipRange UpdateStatistics(const MultiObjectICPData& data);
    /// Standard deviation at the centre of the set; zero for set 0, and for all sets before `UpdateStatistics`.
    [[nodiscard]] const kdtree::Vector<3>& Slip(std::size_t i) const { return m_slips[i]; }

private:
    static constexpr std::size_t parameters = IJointSystem::uiParameters;

    /// Normal equations of one pair (i, j). A correspondence seen from set i has the row r for i and -r for j, so its
    /// equations act on the difference d = x_i - x_j alone, and six columns hold all of it.
    struct Equations
    {
        IJointSystem::Packed normal{};
        std::array<double, parameters> rhs{};
        double dSumSq = 0.0; ///< of the right-hand sides

        void Add(const kdtree::Vector<3>& point, const kdtree::Vector<3>& normal, const kdtree::Vector<3>& gap,
                 double weight);
        [[nodiscard]] double ResidualSumOfSquares(const std::array<double, parameters>& d) const;
    };
    struct PairSystem
    {
        Equations weighted; ///< what is solved
        Equations plain;    ///< what the residuals are reported by; filled only where there are weights
        bool bIsWeighted = false;

        [[nodiscard]] const Equations& Unweighted() const { return bIsWeighted ? plain : weighted; }
    };

    [[nodiscard]] static PairSystem pairSystem(const MultiObjectICPData& data, std::size_t k);
    void addToRhs(std::size_t set, const Equations& equations, double sign);
    void refine();
    [[nodiscard]] std::array<double, parameters> unknownsOf(std::size_t set) const;
    [[nodiscard]] double residualVariance(const MultiObjectICPData& data) const;
    [[nodiscard]] kdtree::Vector<3> slipOf(const MultiObjectICPData& data, std::size_t set, double variance) const;

    std::size_t m_numSets;
    std::size_t m_numUnknowns;
    JobGroup m_group;
    std::vector<std::size_t> m_touching; ///< numbers of the pairs that have correspondences
    std::vector<PairSystem> m_pairs;     ///< of these
    std::unique_ptr<IJointSystem> m_system;
    std::vector<double> m_rhs;
    std::vector<double> m_solution;
    std::vector<kdtree::Vector<3>> m_slips;
};

} // namespace prereg
