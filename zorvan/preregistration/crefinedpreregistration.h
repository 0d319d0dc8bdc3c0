// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"
#include "zorvan/preregistration/ipreregistration.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace prereg {

/// ICP from a rough pose, as searches refine theirs. Samples are drawn in the smaller set: a scan lies within the
/// model, and not the model within the scan. Same call, same result.
/// @param start  `flt` in the frame of `fix`, as the result is
[[nodiscard]] ZORVAN_API ICPResult RefinePose(const CPointSet& fix, const CPointSet& flt,
                                              const ConfigurationICP& config, const CTrafo& start);

/// A search that judges on all points. `CFPFHPreRegistration` proposes and ranks poses on the feature points, which is
/// quick; where these are sparser than the points, what looks right on them may still be wrong. So the candidates are
/// refined on all points, best first, and only those that pass become results.
///
///     CRefinedPreRegistration search(fix, flt, searchSettings, settingsForAllPoints);
///     if (search.Compute({})) use(search.GetNextResult());
///
/// Same sets, settings and calls, same results. Used by one thread at a time.
class ZORVAN_API CRefinedPreRegistration : public IPreRegistration
{
public:
    struct Candidate
    {
        ICPResult found;   ///< on the feature points
        ICPResult refined; ///< on all points; its verdict counts
    };

    /// @param searchConfig      of the search; its ICP runs on the feature points
    /// @param refinementConfig  of the ICP on all points
    /// @param oracle            see CFPFHPreRegistration::SetOracleTrafo; null: none
    CRefinedPreRegistration(std::shared_ptr<const CFPFHPointSet> fix, std::shared_ptr<const CFPFHPointSet> flt,
                            const ConfigurationFPFH& searchConfig, const ConfigurationICP& refinementConfig,
                            const CTrafo* oracle = nullptr);

    /// How many candidates of a search are refined at most, and whether it goes on after the first that passes.
    void SetEffort(std::size_t maxCandidates, bool refineAll);

    /// An abort ends the search of `CFPFHPreRegistration`; what it has found until then is still refined.
    bool Compute(std::function<bool()> abort) override;
    bool Compute(const Zorvan::Hooks& hooks) override;
    [[nodiscard]] bool HasMoreResults() const override { return !m_results.empty(); }
    [[nodiscard]] ICPResult PeekBestResult() const override;
    ICPResult GetNextResult() override;
    /// @return  the refined result, or the rough one when that failed already
    ICPResult InjectTrafo(CTrafo trafo) override;
    [[nodiscard]] const CFPFHPointSet& GetFixPointSet() const override { return *m_fix; } ///< undefined without sets
    [[nodiscard]] const CFPFHPointSet& GetFltPointSet() const override { return *m_flt; } ///< undefined without sets
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFixPointSetPtr() const override { return m_fix; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFltPointSetPtr() const override { return m_flt; }

    /// All that were refined: those that passed before the others, each kind in the order of the search.
    [[nodiscard]] const std::vector<Candidate>& GetCandidates() const { return m_candidates; }
    /// Of the search on the feature points.
    [[nodiscard]] CFPFHPreRegistration::Statistics GetStatistics() const { return m_search.GetStatistics(); }
    /// What `Compute` spent on the feature points.
    [[nodiscard]] std::chrono::steady_clock::duration GetSearchTime() const { return m_searchTime; }

private:
    void refineFound();

    std::shared_ptr<const CFPFHPointSet> m_fix;
    std::shared_ptr<const CFPFHPointSet> m_flt;
    ConfigurationICP m_refinementConfig;
    CFPFHPreRegistration m_search;
    std::size_t m_maxCandidates = 10;
    bool m_refineAll = false;
    std::chrono::steady_clock::duration m_searchTime{};
    std::vector<Candidate> m_candidates;
    std::deque<ICPResult> m_results; ///< accepted, best first
};

} // namespace prereg
