#pragma once

#include "zorvan/core/icpresult.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/ipreregistration.h"
#include "zorvan/verdict/cscanview.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace prereg {

/// Settings of `CVotePreRegistration`. What they leave open follows from the scans.
struct ZORVAN_API ConfigurationVote
{
    unsigned int uiNumRotations = 1500;        ///< spread over all; 0: none
    unsigned int uiNumDirectedRotations = 200; ///< at most, from faces and edges that match; 0: none
    unsigned int uiNumRefined = 400;           ///< of each of the two sources, best first
    unsigned int uiMaxCandidates = 200;        ///< in the end
    unsigned int uiNumTasks = 1;               ///< computed side by side; the result does not depend on it
};

/// A scan with what was measured on it.
struct VotingScan
{
    std::shared_ptr<const CFPFHPointSet> set; ///< its points and normals; features are not used
    std::shared_ptr<const CScanView> view;    ///< of the same points
};

/// Proposes poses without features: for many rotations, a vote over translations. It finds what has no salient points,
/// flat parts for one, and small overlaps.
///
///     CVotePreRegistration vote(fix, flt, {});
///     if (vote.Compute({})) for (const auto& candidate : vote.GetCandidates()) judge(candidate.pose);
///
/// The results are proposals: the right pose is nearly always among the best 50, but seldom known by its score alone.
/// Flat parts have many poses that a score cannot tell from the right one. Judge them all.
///
/// Same scans and settings, same bytes, whatever the number of tasks. Used by one thread at a time.
class ZORVAN_API CVotePreRegistration : public IPreRegistration
{
public:
    struct Candidate
    {
        CTrafo pose; ///< floating into fixed coordinates
        float score = 0.0F;
        float matched = 0.0F; ///< share of the samples of both scans
        float rmse = 0.0F;    ///< of these (mm)
    };

    CVotePreRegistration(VotingScan fix, VotingScan flt, const ConfigurationVote& config);

    /// An abort leaves the results that there were before.
    bool Compute(std::function<bool()> abort) override;
    [[nodiscard]] bool HasMoreResults() const override { return m_next < m_candidates.size(); }
    [[nodiscard]] ICPResult PeekBestResult() const override;
    ICPResult GetNextResult() override;
    /// Refines the pose and queues it by its score; a failure when nothing of the scans matches under it.
    ICPResult InjectTrafo(CTrafo trafo) override;
    [[nodiscard]] const CFPFHPointSet& GetFixPointSet() const override { return *m_fix.set; }
    [[nodiscard]] const CFPFHPointSet& GetFltPointSet() const override { return *m_flt.set; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFixPointSetPtr() const override { return m_fix.set; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFltPointSetPtr() const override { return m_flt.set; }

    /// All results, best first, also those that were taken out of the queue.
    [[nodiscard]] const std::vector<Candidate>& GetCandidates() const { return m_candidates; }
    /// Estimated edge length of the object (mm).
    [[nodiscard]] float GetObjectSize() const { return m_size; }

private:
    [[nodiscard]] ICPResult toResult(const Candidate& candidate) const;

    VotingScan m_fix;
    VotingScan m_flt;
    ConfigurationVote m_config;
    float m_size = 0.0F;
    std::vector<Candidate> m_candidates;
    std::size_t m_next = 0;
};

} // namespace prereg
