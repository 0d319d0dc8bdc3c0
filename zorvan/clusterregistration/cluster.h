// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/util/universaluniqueid.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace prereg {

using ConstPointSetPtr = std::shared_ptr<const CFPFHPointSet>;
using PointSetJobGroup = std::shared_ptr<Zorvan::CJobScheduler::Group>;

/// A point set that is made when it is first asked for: by a job that was given the work, or by the thread that needs
/// the result while the job still waits in its queue, was cancelled, or belongs to a scheduler that is paused. So
/// asking never hangs.
class CLazyPointSet
{
public:
    explicit CLazyPointSet(ConstPointSetPtr set) : m_set(std::move(set)) {}
    explicit CLazyPointSet(std::function<ConstPointSetPtr()> make) : m_make(std::move(make)) {}

    /// Thread-safe. @throws what making the set throws; the next call tries again
    [[nodiscard]] ConstPointSetPtr Get();

private:
    std::mutex m_mutex;
    std::function<ConstPointSetPtr()> m_make; ///< empty once the set is there, so that it lets go of its sources
    ConstPointSetPtr m_set;
};
using LazyPointSetPtr = std::shared_ptr<CLazyPointSet>;

/// One surface in a cluster.
struct Entity
{
    unsigned int ordinal = 0;            ///< entities are numbered as they come
    LazyPointSetPtr pointSet;            ///< never null; that of a loaded session is unpacked when it is needed
    CTrafo trafo;                        ///< entity to cluster coordinates
    CTrafo preTrafo = CTrafo::Invalid(); ///< what the caller gave

    [[nodiscard]] ConstPointSetPtr GetPointSet() const { return pointSet->Get(); }
};

/// Surfaces that are registered with each other. A plain record: its owner's lock guards it.
struct Cluster
{
    UniversalUniqueID primaryID;             ///< the entity that an optimisation leaves where it is
    CTrafo clusterTrafo = CTrafo::Invalid(); ///< cluster to world coordinates; invalid: it floats
    std::map<UniversalUniqueID, Entity> entities;
    bool mergedPointSetStale = false; ///< entities have changed since the merged set was ordered
    LazyPointSetPtr mergedPointSetJob;
    ConstPointSetPtr mergedPointSet; ///< the union of the surfaces in cluster coordinates

    /// Entity to world coordinates, or to cluster coordinates while the cluster floats; invalid for an unknown entity.
    [[nodiscard]] CTrafo GetTrafo(const UniversalUniqueID& entityID) const;
    /// @return false when the entity is unknown, or the pose is invalid or the old one within 0.01 mm and half a degree
    bool UpdateTrafo(const UniversalUniqueID& entityID, const CTrafo& pose);
    /// Orders the merged set anew where it is stale or missing.
    void refreshMergedPointSet(const ConfigurationFPFH& config, const PointSetJobGroup& group);
    /// Orders a merge of these sets, each moved by its pose.
    void orderMergedPointSet(const ConfigurationFPFH& config, const PointSetJobGroup& group,
                             std::vector<std::pair<LazyPointSetPtr, CTrafo>> sets);
    /// Waits for the set that was ordered.
    ConstPointSetPtr getMergedPointSet();

    /// The primary entity, then the others in map order; all in map order when the primary one has gone.
    [[nodiscard]] std::vector<UniversalUniqueID> entitiesPrimaryFirst() const;
    /// Refines the poses inside the cluster; the primary entity stays. An abort leaves all poses as they were.
    /// @param isFitToPrimary  see CClusterRegistration::SetFitToPrimary, and SetDraws for the next one
    /// @return  which entities still belong together, by their indices in `entitiesPrimaryFirst`
    [[nodiscard]] Zorvan::CDisjointSets OptimizeRegistration(const ConfigurationICP& config, std::mt19937& rng,
                                                             const PointSetJobGroup& group, bool computeStatistics,
                                                             const Zorvan::Hooks& hooks, bool isFitToPrimary,
                                                             EDraws eDraws);
};

} // namespace prereg
