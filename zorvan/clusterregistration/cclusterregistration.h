// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/multiobjecticp.h"
#include "zorvan/core/vector.h"
#include "zorvan/documents/bson.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/ipreregistration.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/runtime/csharedflags.h"
#include "zorvan/util/universaluniqueid.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace prereg {

struct Cluster;
struct Entity;

/// Keeps a growing set of scans registered. A scan is an *entity* under an identifier of the caller's choice; entities
/// that are registered with each other form a *cluster* with a frame of its own, all others are clusters of one. One
/// cluster, the *primary* one, is the model.
///
///     prereg::CClusterRegistration registration(config, nullptr, nullptr);
///     registration.AddPointSet(id, set, nullptr);     // for each scan; a rough pose in place of null makes it quick
///     registration.Run();                             // merges all clusters that fit together
///     bool abort = false;                             // set through WriteSharedFlag (sharedflag.h) by any thread
///     registration.OptimizeRegistration(true, false, abort);
///     for (const auto& [id, pose] : registration.GetChanges(true)) show(id, pose);
///
/// Every entity is in exactly one cluster, and entities keep their identifiers for good. Clusters do not: a merge keeps
/// one of the two, a split names its parts after their first entities. From the first entity on there is a primary
/// identifier; its cluster may be gone for a while after a cut.
///
/// Poses map entity to cluster coordinates, and the cluster's own pose maps those to the world; a cluster whose
/// entities came without a pose floats, and then its frame stands in for the world. Lengths in mm.
///
/// Any thread may call any operation. Each takes the one lock of the object for its whole time, also the long ones, so
/// calls queue behind a running `Run`; callbacks must not call back, and one that throws leaves all as it was. The same
/// calls in the same order give the same poses, for any number of threads.
class ZORVAN_API CClusterRegistration
{
public:
    using Group = std::shared_ptr<Zorvan::CJobScheduler::Group>;
    using PointSet = std::shared_ptr<const CFPFHPointSet>;
    using Trafos = std::map<UniversalUniqueID, CTrafo>;
    /// Identifier, pose in the cluster, pose that the caller gave (may be invalid), surface.
    using EntityTuple = std::tuple<UniversalUniqueID, CTrafo, CTrafo, PointSet>;
    /// Makes the search for the pose of the second set in the frame of the first one.
    /// @param oracle  a pose known to be right (see `CFPFHPreRegistration::SetOracleTrafo`), or null
    using SearchFactory = std::function<std::unique_ptr<IPreRegistration>(
        const PointSet& fix, const PointSet& flt, const ConfigurationFPFH& config, const CTrafo* oracle)>;

    /// Clusters with their entities.
    using ClusterContents = std::map<UniversalUniqueID, std::vector<EntityTuple>>;
    /// Says which entities belong together, and where they lie: poses to any common frame, a map for each cluster.
    using Arranger = std::function<std::vector<Trafos>(const ClusterContents& clusters, const Zorvan::Hooks& hooks)>;

    /// @param config logged as a warning where it makes no sense (`WhatIsWrong`), and taken as it is
    /// @param rng    the caller's engine, which is seeded with 47110815 and has to outlive this object. Null: an own
    ///               engine
    /// @param group  where jobs run; its scheduler has to outlive this object and must be running whenever it works.
    ///               Null: an own scheduler with one worker
    CClusterRegistration(const ConfigurationFPFH& config, std::mt19937* rng, Group group);
    /// A copy has clusters of its own and shares point sets, engine and group.
    CClusterRegistration(const CClusterRegistration& other);
    /// Leaves the other one without clusters, but usable.
    CClusterRegistration(CClusterRegistration&& other); // NOLINT(performance-noexcept-move-constructor): it locks
    CClusterRegistration& operator=(const CClusterRegistration& other);
    CClusterRegistration& operator=(CClusterRegistration&& other); // NOLINT(performance-noexcept-move-constructor)
    ~CClusterRegistration();

    /// Adds an entity as a cluster of its own.
    /// @param preTrafo  entity to world coordinates, roughly; null or invalid: not known
    /// @return          false, with nothing changed, for an invalid or known identifier and a set that is null or too
    ///                  lean
    bool AddPointSet(const UniversalUniqueID& id, const PointSet& set, const CTrafo* preTrafo);
    /// Adds a whole cluster, as it was saved.
    /// @return  false, with nothing changed, when it has no entities, the cluster's identifier is invalid or in use, an
    ///          entity's is in use, or a set is null
    bool CreateCluster(const UniversalUniqueID& clusterID, const UniversalUniqueID& primaryEntityID,
                       const CTrafo& preTrafo, const std::vector<EntityTuple>& entities);

    /// Tries to register all pairs of clusters and merges those that fit, until none does. A pair that failed is not
    /// tried again before one of the two has changed. Can take long; see the overload for a way to stop it.
    /// @return  whether anything was merged
    bool Run();
    /// The same, reporting merges. When it is stopped, what has been merged stays so, and the pair at hand counts as
    /// not tried. The hooks are called under the lock.
    bool Run(const Zorvan::Hooks& hooks);
    /// Refines the poses inside a cluster and takes it apart where the entities do not agree; see the multi-object
    /// ComputeICPRegistration, which documents the two flags.
    /// @param abort  polled; an aborted optimisation leaves everything as it was
    /// @return       the clusters that it became; empty for an unknown one
    std::vector<UniversalUniqueID> OptimizeRegistration(const UniversalUniqueID& clusterID, bool computeStatistics,
                                                        bool flag, const bool& abort);
    std::vector<UniversalUniqueID> OptimizeRegistration(const UniversalUniqueID& clusterID, bool computeStatistics,
                                                        const Zorvan::Hooks& hooks);
    /// The same for each cluster.
    std::vector<UniversalUniqueID> OptimizeRegistration(bool computeStatistics, bool flag, const bool& abort);
    std::vector<UniversalUniqueID> OptimizeRegistration(bool computeStatistics, const Zorvan::Hooks& hooks);
    /// Keeps of a cluster's surfaces what the predicate accepts in world coordinates. Entities that are left too lean
    /// go; the cluster falls apart where its entities no longer overlap; then `Run`'s search starts anew.
    /// @param predicate  called on this thread, under the lock
    void ApplyCut(const UniversalUniqueID& clusterID, std::function<bool(const kdtree::Vector<3>&)> predicate);

    /// Sets the pose of an entity (to the world, or to its cluster while that floats).
    /// @return  false for an unknown entity, an invalid pose, or a move below both 0.01 mm and half a degree
    bool UpdateTrafo(const UniversalUniqueID& entityID, const CTrafo& trafo);
    /// The same for several, and brings the merged surfaces up to date. @return whether any pose changed
    bool UpdateTrafos(const std::vector<std::pair<UniversalUniqueID, CTrafo>>& trafos);
    /// Names the model. When clusters of the old and of the new name exist, they swap names; when only the old one
    /// does, it takes the new name.
    void SetPrimaryClusterID(const UniversalUniqueID& id);
    /// Another way to search than `CFPFHPreRegistration`, such as `CRefinedPreRegistration`; empty: back to that one.
    void SetSearch(SearchFactory makeSearch);
    /// Another way to merge than pair by pair: `Run` asks once, and brings the clusters into the order that comes back;
    /// clusters may be taken apart as well. An entity that is left out of the answer comes to lie by itself. A cluster
    /// keeps its identifier and its frame while most of its entities stay together, the primary one goes first; an
    /// entity that is taken out floats, or is where the caller first said. Empty: back to merging pair by pair. Not
    /// saved with the state.
    ///
    /// `Run` throws std::invalid_argument, with nothing changed, for an answer with an unknown entity, one that occurs
    /// twice, or an invalid pose.
    void SetArranger(Arranger arrange);
    /// Where an optimisation puts a cluster. By itself it leaves the refined poses where the whole comes nearest to its
    /// old place, and the primary entity where it was; so that one alone is off, by what it would have moved itself.
    /// With true, all that belong with the primary entity move together until they fit it. In a strip of five patches
    /// the largest error fell from 0.04 to 0.007 mm. Not saved with the state.
    void SetFitToPrimary(bool isOn);
    /// How many points an optimisation draws; by itself each pair as many as the settings say. Shared draws are for
    /// clusters of many entities, of which each overlaps many others. Not saved with the state.
    void SetDraws(EDraws eDraws);
    /// The next `Run` tries all pairs again; for a search that looks harder than the last one.
    void ForgetFailures();

    /// Entities whose pose or surface has changed since they were last asked for, with their poses to the world.
    /// @param primaryOnly  reports and forgets only those of the primary cluster
    Trafos GetChanges(bool primaryOnly);
    [[nodiscard]] std::vector<UniversalUniqueID> GetClusterIDs() const;
    [[nodiscard]] UniversalUniqueID GetPrimaryClusterID() const;
    /// The cluster of an entity; invalid when there is none.
    [[nodiscard]] UniversalUniqueID GetClusterID(const UniversalUniqueID& entityID) const;
    // An unknown cluster gives 0, an invalid identifier or pose, or an empty list, and is logged.
    [[nodiscard]] std::size_t Size(const UniversalUniqueID& clusterID) const;
    [[nodiscard]] UniversalUniqueID GetClusterPrimaryID(const UniversalUniqueID& clusterID) const;
    [[nodiscard]] CTrafo GetClusterTrafo(const UniversalUniqueID& clusterID) const;
    /// @param local  poses in the cluster instead of the world
    [[nodiscard]] Trafos GetTrafos(const UniversalUniqueID& clusterID, bool local) const;
    [[nodiscard]] std::vector<UniversalUniqueID> GetEntityIDs(const UniversalUniqueID& clusterID) const; ///< not logged
    /// To the world; invalid for an unknown entity.
    [[nodiscard]] CTrafo GetTrafo(const UniversalUniqueID& entityID) const;
    /// Null and an invalid pose for an unknown entity.
    [[nodiscard]] std::pair<PointSet, CTrafo> GetPointSetAndTransform(const UniversalUniqueID& entityID) const;
    /// The merged surface of the model in world coordinates; empty when there is none.
    /// @throws std::runtime_error "primary cluster does not exist!" when there are clusters, but not this one
    [[nodiscard]] CFPFHPointSet GetPrimaryClusterPointSet() const;
    [[nodiscard]] ConfigurationFPFH GetRegistrationConfig() const;
    /// Clusters and entities in one line, identifiers cut to `idLength` characters.
    [[nodiscard]] std::string GetStatusString(std::size_t idLength) const;
    void SendCase() {} ///< does nothing; hosts call it

    /// The whole state as a document, see clusterpersistence.h.
    [[nodiscard]] bson::object ToObject() const;
    /// @param group  as in the constructor
    [[nodiscard]] static CClusterRegistration FromObject(const bson::object& document, const Group& group = nullptr);

private:
    using Clusters = std::map<UniversalUniqueID, std::shared_ptr<Cluster>>;
    using Predicate = std::function<bool(const kdtree::Vector<3>&)>;

    // Everything that the mutex guards.
    struct State
    {
        ConfigurationFPFH config;
        std::shared_ptr<std::mt19937> rng; ///< never advanced, so copies may share it
        UniversalUniqueID primaryClusterID;
        Clusters clusters;
        std::unordered_map<UniversalUniqueID, std::unordered_multiset<UniversalUniqueID>> failedRegistrations;
        Trafos changes;
        std::shared_ptr<Zorvan::CJobScheduler> scheduler; ///< only when it is our own
        Group group;
        unsigned int nextEntityOrdinal = 0;
        bson::object events; ///< the journal of calls
        Zorvan::CSharedFlags sharedFlags;
        /// By cluster: the merged set that was moved to the world, and the result.
        std::unordered_map<UniversalUniqueID, std::pair<std::weak_ptr<const CFPFHPointSet>, PointSet>>
            primaryPointSetCache;
        SearchFactory makeSearch;
        Arranger arrange;
        bool isFitToPrimary = false;
        EDraws eDraws = EDraws::OfEachPair;
    };

    [[nodiscard]] State copyState() const;
    [[nodiscard]] State takeState();

    bool createNewCluster(const UniversalUniqueID& id, const PointSet& set, const CTrafo& preTrafo);
    bool createCluster(const UniversalUniqueID& clusterID, const UniversalUniqueID& primaryEntityID,
                       const CTrafo& preTrafo, std::vector<std::pair<UniversalUniqueID, Entity>> entities);
    [[nodiscard]] bool updateTrafo(const UniversalUniqueID& entityID, const CTrafo& trafo);
    [[nodiscard]] Cluster* findCluster(const UniversalUniqueID& clusterID) const;
    /// The same, and logs that it is not there.
    [[nodiscard]] Cluster* demandCluster(const UniversalUniqueID& clusterID) const;
    [[nodiscard]] Clusters::const_iterator placeOf(const UniversalUniqueID& entityID) const;
    [[nodiscard]] Cluster* clusterOf(const UniversalUniqueID& entityID) const;
    [[nodiscard]] UniversalUniqueID getClusterID(const UniversalUniqueID& entityID) const;
    [[nodiscard]] std::string getStatusString(std::size_t idLength) const;
    bool renameCluster(const UniversalUniqueID& oldID, const UniversalUniqueID& newID);
    UniversalUniqueID renameCluster(const UniversalUniqueID& oldID);
    /// Inserts under `id`, or under a fresh identifier when a cluster has it already. @return the identifier
    UniversalUniqueID insertCluster(const UniversalUniqueID& id, std::shared_ptr<Cluster> cluster);

    void memoizeFailedRegistration(const UniversalUniqueID& a, const UniversalUniqueID& b);
    [[nodiscard]] bool registrationFailedPreviously(const UniversalUniqueID& a, const UniversalUniqueID& b) const;
    void resetRegistrationFailures(const UniversalUniqueID& id);

    bool registerClusters(const Zorvan::Hooks& hooks);
    /// As the arranger says. @return whether anything changed
    bool arrangeClusters(const Zorvan::Hooks& hooks);
    /// The next pair that fits is merged. @return whether there was one
    bool mergeNextPair(const Zorvan::Hooks& hooks);
    /// @return  b to a coordinates; invalid when they do not fit
    [[nodiscard]] CTrafo findPose(const UniversalUniqueID& a, const UniversalUniqueID& b,
                                  const Zorvan::Hooks& hooks) const;
    UniversalUniqueID mergeClusters(UniversalUniqueID into, UniversalUniqueID from, CTrafo trafo);
    [[nodiscard]] float estimateOverlapRatio(const Entity& a, const Entity& b) const;

    /// A new cluster of some members of an old one, in the frame of its first member.
    [[nodiscard]] static std::shared_ptr<Cluster> makePart(const Cluster& whole,
                                                           const std::vector<UniversalUniqueID>& members);
    std::vector<UniversalUniqueID> takeApart(const UniversalUniqueID& clusterID, const Cluster& whole,
                                             const Zorvan::CDisjointSets& classes);
    std::vector<UniversalUniqueID> splitCluster(const UniversalUniqueID& clusterID,
                                                std::vector<UniversalUniqueID>& changedIDs);
    [[nodiscard]] Zorvan::CDisjointSets findOverlaps(const Cluster& cluster) const;
    void cullEmptyEntities(Cluster& cluster) const;
    [[nodiscard]] static PointSet applyCutToPointSet(const CTrafo& pose, const PointSet& set, const Predicate& keep);
    [[nodiscard]] std::vector<UniversalUniqueID> cutEntities(Cluster& cluster, const Predicate& keep);
    void keepPrimaryID(const std::vector<UniversalUniqueID>& parts);

    [[nodiscard]] bson::object toObject() const;

    mutable std::mutex m_mutex;
    mutable State m_state; ///< const operations wait for merged sets and fill the cache
};

} // namespace prereg
