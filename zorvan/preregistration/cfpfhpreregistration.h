// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/features/cfpfhclusteranalysis.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/featurecandidates.h"
#include "zorvan/preregistration/ipreregistration.h"
#include "zorvan/runtime/csharedflags.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace prereg {

/// The search by feature polygons: random polygons of one set propose poses, each is refined by ICP on the features,
/// those that agree form clusters, and the best of each cluster becomes a result if the features that it brings
/// together look alike.
///
///     CFPFHPreRegistration search(fix, flt, config);     // shared pointers to const point sets
///     if (search.Compute([&] { return isCancelled.load(); }))
///         use(search.GetNextResult());                    // best first
///
/// Polygons are drawn in the smaller of the two sets; poses that go in and come out always map the caller's floating
/// set into the caller's fixed set. A second `Compute` adds to the first. Same sets, settings and calls, same results.
/// Used by one thread at a time. After an abort the object can be used on: see `FinalizeAfterAbort`.
class ZORVAN_API CFPFHPreRegistration : public IPreRegistration
{
public:
    /// What became of the proposals so far.
    struct ZORVAN_API Statistics
    {
        unsigned int polygons = 0;       ///< allowed by the settings; fewer may have been drawn
        unsigned int proposedTrafos = 0; ///< different ones
        unsigned int icpSuccess = 0;
        unsigned int icpFailed = 0;                              ///< with those that the features rejected
        unsigned int icpSuccessRejected = 0;                     ///< always 0: hosts find these under cause 1
        std::vector<std::pair<int, unsigned int>> failureCauses; ///< EICPResult and how often, ascending

        [[nodiscard]] std::string ToString() const;
        [[nodiscard]] std::wstring ToWString() const;
    };

    CFPFHPreRegistration();
    /// @param config  logged as a warning where it makes no sense (`WhatIsWrong`), and taken as it is
    /// @param copy    false: refers to the caller's sets, which then have to outlive this object
    CFPFHPreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const ConfigurationFPFH& config,
                         bool copy);
    CFPFHPreRegistration(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt,
                         const ConfigurationFPFH& config);

    bool Compute(std::function<bool()> abort) override;
    /// Reports polygons; a quorum ends the search before all of them.
    bool Compute(const Zorvan::Hooks& hooks) override;
    [[nodiscard]] bool HasMoreResults() const override { return !m_results.empty(); }
    [[nodiscard]] ICPResult PeekBestResult() const override;
    ICPResult GetNextResult() override;
    ICPResult InjectTrafo(CTrafo trafo) override;
    [[nodiscard]] const CFPFHPointSet& GetFixPointSet() const override { return *m_fix; } ///< undefined without sets
    [[nodiscard]] const CFPFHPointSet& GetFltPointSet() const override { return *m_flt; } ///< undefined without sets
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFixPointSetPtr() const override { return m_fix; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFltPointSetPtr() const override { return m_flt; }

    [[nodiscard]] const ConfigurationFPFH& GetMatchingConfig() const { return m_config; }
    [[nodiscard]] ConfigurationFPFH& GetMatchingConfig() { return m_config; }
    void SetMatchingConfig(const ConfigurationFPFH& config) { m_config = config; }
    /// The flag "debug_icp" is read from here; closed until the caller opens a store.
    [[nodiscard]] Zorvan::CSharedFlags& GetSharedFlags() { return m_sharedFlags; }

    /// A pose known to be right; ICP results that stray from it by more than `dMaxMovement` fail. Refused (logged) when
    /// it is invalid, or `dMaxMovement` is negative.
    bool SetOracleTrafo(const CTrafo& trafo);
    /// Puts a result from elsewhere into the queue.
    void InjectICPResult(ICPResult result);
    /// All results, best first; the queue stays as it is.
    [[nodiscard]] std::vector<ICPResult> GetAllResults() const;
    /// Makes results of what an aborted search has found. @return whether there are any
    bool FinalizeAfterAbort();
    [[nodiscard]] Statistics GetStatistics() const;

private:
    struct Result
    {
        ICPResult icp;
        unsigned int clusterSize;

        friend bool operator>(const Result& a, const Result& b) { return a.icp > b.icp; }
    };
    struct TrafoHash
    {
        std::size_t operator()(const CTrafo& trafo) const;
    };
    using Results = std::vector<Result>; ///< a heap, best on top
    using Group = std::vector<unsigned int>;

    [[nodiscard]] const CFPFHPointSet& getFix() const { return m_isSwapped ? *m_flt : *m_fix; }
    [[nodiscard]] const CFPFHPointSet& getFlt() const { return m_isSwapped ? *m_fix : *m_flt; }
    /// Between the caller's roles and ours, both ways.
    [[nodiscard]] CTrafo crossed(const CTrafo& trafo) const;
    [[nodiscard]] ICPResult crossed(ICPResult result) const;
    [[nodiscard]] bool isUsable() const;
    [[nodiscard]] bool readFlag(const char* name) const;

    /// @return  whether proposals came since the last clustering
    [[nodiscard]] bool searchPolygons(const Zorvan::Hooks& hooks);
    [[nodiscard]] bool hasQuorum(unsigned int polygonsLookedAt) const;
    [[nodiscard]] ICPResult refine(const CTrafo& trafo);

    void clusterTransformations();
    /// Brings `m_successes` up to date. @return whether there are new ones
    bool refineProposals();
    /// After cached results have changed: the next `refineProposals` collects them anew.
    void forgetSuccesses();
    /// None when their positions cannot be clustered.
    [[nodiscard]] std::optional<std::vector<Group>> groupByPosition(const std::vector<ICPResult>& successes) const;
    [[nodiscard]] std::vector<Group> groupByOrientation(const std::vector<ICPResult>& successes, const Group& group,
                                                        unsigned int number) const;
    void pushBest(const std::vector<ICPResult>& successes, const Group& group);
    void filterTrafosFeatureBased();
    void push(const Result& result);

    std::shared_ptr<const CFPFHPointSet> m_fix;
    std::shared_ptr<const CFPFHPointSet> m_flt;
    ConfigurationFPFH m_config;
    std::mt19937 m_random;
    std::vector<CTrafo> m_proposed;
    Results m_results;
    std::unordered_map<CTrafo, ICPResult, TrafoHash> m_icpCache;
    std::vector<ICPResult> m_successes; ///< of the first `m_numRefined` proposals, in their order
    std::size_t m_numRefined = 0;
    CFPFHClusterAnalysis m_analysis;
    CFeatureCandidates m_candidates;
    CTrafo m_oracle = CTrafo::Invalid();
    bool m_isSwapped = false;
    Zorvan::CSharedFlags m_sharedFlags;
};

} // namespace prereg
