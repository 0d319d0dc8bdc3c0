// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/ellipsoid.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/core/vector.h"
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/cjobscheduler.h"

#include <cstddef>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace prereg {

/// What the multi-object ICP reads of a point set. All operations are const and are called from several threads.
class ZORVAN_API ICPPointSetIf
{
public:
    [[nodiscard]] virtual const Zorvan::TKdTree<3, 48>& GetKdTree() const = 0;
    [[nodiscard]] virtual const Ellipsoid& GetEllipsoid() const = 0;
    [[nodiscard]] virtual const kdtree::Vector<3>* GetPoints() const = 0;
    [[nodiscard]] virtual const kdtree::Vector<3>* GetPoint(std::size_t i) const = 0; ///< unchecked
    [[nodiscard]] virtual const kdtree::Vector<3>* GetNormals() const = 0;
    [[nodiscard]] virtual const kdtree::Vector<3>* GetNormal(std::size_t i) const = 0; ///< unchecked
    [[nodiscard]] virtual const float* GetWeights() const = 0;                         ///< one a point, or null
    [[nodiscard]] virtual bool HasWeights() const = 0;
    [[nodiscard]] virtual float GetWeight(std::size_t i) const = 0; ///< 1 without weights
    [[nodiscard]] virtual std::size_t Size() const = 0;             ///< of the tree
    virtual ~ICPPointSetIf();

protected:
    ICPPointSetIf() = default;
    ICPPointSetIf(const ICPPointSetIf&) = default;
    ICPPointSetIf(ICPPointSetIf&&) = default;
    ICPPointSetIf& operator=(const ICPPointSetIf&) = default;
    ICPPointSetIf& operator=(ICPPointSetIf&&) = default;
};

/// Refers to the arrays of a point set and keeps that set alive.
class ZORVAN_API ICPPointSet : public ICPPointSetIf
{
public:
    /// @param weights  one for each point, not copied; null: every point counts the same
    /// @throws std::invalid_argument "no point set" for null
    explicit ICPPointSet(std::shared_ptr<const CPointSet> set, const float* weights = nullptr);

    [[nodiscard]] const Zorvan::TKdTree<3, 48>& GetKdTree() const override { return m_set->GetKdTree(); }
    [[nodiscard]] const Ellipsoid& GetEllipsoid() const override { return m_set->GetEllipsoid(); }
    [[nodiscard]] const kdtree::Vector<3>* GetPoints() const override { return m_set->GetPoints().data(); }
    [[nodiscard]] const kdtree::Vector<3>* GetPoint(std::size_t i) const override { return GetPoints() + i; }
    [[nodiscard]] const kdtree::Vector<3>* GetNormals() const override { return m_set->GetNormals().data(); }
    [[nodiscard]] const kdtree::Vector<3>* GetNormal(std::size_t i) const override { return GetNormals() + i; }
    [[nodiscard]] const float* GetWeights() const override { return m_weights; }
    [[nodiscard]] bool HasWeights() const override { return m_weights != nullptr; }
    [[nodiscard]] float GetWeight(std::size_t i) const override { return HasWeights() ? m_weights[i] : 1.0F; }
    [[nodiscard]] std::size_t Size() const override { return GetKdTree().Size(); }

private:
    std::shared_ptr<const CPointSet> m_set;
    const float* m_weights;
};

/// Point sets, each with its pose (own to common coordinates).
using ICPPointSetsWithPoses = std::vector<std::pair<std::shared_ptr<const ICPPointSetIf>, CTrafo>>;

/// How many points the pairs of sets draw.
enum class EDraws
{
    OfEachPair, ///< each as many as the settings say
    Shared      ///< in a group of more than 32 sets, fewer where both sets of a pair have many partners
};

/// Refines the poses of many overlapping point sets at once, so that errors spread over the group instead of piling up
/// along a chain, and shows which sets hold together. Every pair of sets that overlap contributes point-to-plane
/// equations to one system with six unknowns a set.
///
///     ICPPointSetsWithPoses sets;
///     for (const auto& scan : scans) sets.emplace_back(std::make_shared<ICPPointSet>(scan.set), scan.pose);
///     const auto [results, classes] = ComputeICPRegistration(config, rng, sets, scheduler, 3.0, true, false, abort);
///     if (classes.GetNumClasses() == 1) use(results);
///
/// The group falls apart where sets do not touch, and where a set's residual stands out: above `dMaxRMSE`, or above
/// 0.85 of it with a robust z-score of at least `zScoreLimit`. Each part is then optimised by itself. Afterwards each
/// part as a whole is moved back as near as possible to its given poses, so only the inner corrections remain.
///
/// @param rng                copied for each pair of sets, never advanced
/// @param group              takes the work, as many jobs at a time as it may run; null: the calling thread does it
///                           all. Its scheduler must be running, and the caller must not occupy its last job.
/// @param computeStatistics  true: the largest slip of a set decides which iteration was the best, and results report
///                           their slip (0 for the first set of each part, the reference of the others); false: the
///                           0.75 quantile of the sets' RMSEs does, and stands in for the slip
/// @param abort              polled between steps; may be set by any thread through WriteSharedFlag (sharedflag.h). The
///                           results are then unreliable, and those of a call that never began have outcome 0.
/// @return  the results in the order of `sets`, and the classes of their indices. Outcomes: -1 for a set in a class of
///          several (judge by `fStop_RMSE` and `fStop_MOICP_ZScore`), 9 for a set alone in its class, 2 for a single
///          set. The start values describe the given poses, `trafo` is the pose of the best iteration.
/// @throws std::invalid_argument "no point set" for a null entry
///
/// The seventh argument has no effect. The same input gives the same bytes for any number of threads. Above 100
/// sets the system is solved by its blocks that are not zero, whose results agree with the dense ones to rounding.
/// Memory: some 30 m^2 bytes for m sets (350 m^2 up to 100 of them), 1 KiB a pair that touches and 16 bytes a
/// correspondence. Sources: Chen and Medioni, Image and Vision Computing 10
/// (1992); Pulli, 3DIM (1999).
[[nodiscard]] ZORVAN_API std::pair<std::vector<ICPResult>, Zorvan::CDisjointSets>
ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const ICPPointSetsWithPoses& sets,
                       const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, double zScoreLimit,
                       bool computeStatistics, bool, const bool& abort);
/// The same, stopped through the hooks, which are asked on the calling thread.
///
/// With shared draws a pass over all pairs draws each point of a set about once, however many partners the set has:
/// more of them would look at the same points again, whose noise is the same. The pairs of a set with few partners draw
/// all that they may, and so does a pair that finds next to nothing. So time and memory grow with the sets, not with
/// the pairs, while each pair that touches still counts; poses differ by less than their standard deviation.
[[nodiscard]] ZORVAN_API std::pair<std::vector<ICPResult>, Zorvan::CDisjointSets>
ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const ICPPointSetsWithPoses& sets,
                       const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, double zScoreLimit,
                       bool computeStatistics, const Zorvan::Hooks& hooks, EDraws eDraws = EDraws::OfEachPair);

} // namespace prereg
