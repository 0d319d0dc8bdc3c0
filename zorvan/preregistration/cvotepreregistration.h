// SPDX-License-Identifier: MIT
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

/// Settings of `CVotePreRegistration`. All lengths follow from the scans.
struct ZORVAN_API ConfigurationVote
{
    unsigned int uiNumRotations = 1500;        ///< spread evenly over all; 0: none
    unsigned int uiNumDirectedRotations = 200; ///< from faces and edges that match, at most; 0: none
    unsigned int uiNumRefined = 400;           ///< proposals of either source, at most
    unsigned int uiMaxCandidates = 200;        ///< in the end
    unsigned int uiNumTasks = 1;               ///< side by side; the result does not depend on it
};

/// A scan with what was measured on it.
struct VotingScan
{
    std::shared_ptr<const CFPFHPointSet> set; ///< finite points and unit normals; features are not used
    std::shared_ptr<const CScanView> view;    ///< of the same points
};

/// Proposes poses without features: for many rotations, a vote over translations. It finds what has no salient points,
/// flat parts for one, and small overlaps.
///
///     CVotePreRegistration vote({fix, fixView}, {flt, fltView}, {});
///     if (vote.Compute({})) for (const auto& candidate : vote.GetCandidates()) judge(candidate.pose);
///
/// Results are proposals, and all of them claim success. The right pose is among the best 50 more often than not, but
/// a flat part has many poses that a score cannot tell from the right one, and scans of two objects have some best pose
/// as well. So judge them.
///
/// Where the rotations come from: `EvenRotations` and `RotationsFromDirections`. For each, the peaks of
/// `CTranslationVote` are scored roughly by projection into the image of the other scan; the best that differ are
/// refined there, point to plane and edge to edge, and ranked by matches against contradictions.
///
/// Same scans and settings, same bytes, whatever the number of tasks. Used by one thread at a time.
class ZORVAN_API CVotePreRegistration : public IPreRegistration
{
public:
    struct Candidate
    {
        CTrafo pose;          ///< floating into fixed coordinates
        float score = 0.0F;   ///< matched samples and edges minus four times the contradictions
        float matched = 0.0F; ///< share of the samples of both scans
        float rmse = 0.0F;    ///< of these (mm)
    };

    /// @throws std::invalid_argument when a set or a view is missing
    CVotePreRegistration(VotingScan fix, VotingScan flt, const ConfigurationVote& config);

    /// An abort leaves the results that there were before. Nothing is found for an empty set.
    bool Compute(std::function<bool()> abort) override;
    [[nodiscard]] bool HasMoreResults() const override { return m_next < m_candidates.size(); }
    [[nodiscard]] ICPResult PeekBestResult() const override;
    ICPResult GetNextResult() override;
    /// Refines the pose and queues it by its score. A failure, which is not queued, when nothing matches under it.
    ICPResult InjectTrafo(CTrafo trafo) override;
    [[nodiscard]] const CFPFHPointSet& GetFixPointSet() const override { return *m_fix.set; }
    [[nodiscard]] const CFPFHPointSet& GetFltPointSet() const override { return *m_flt.set; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFixPointSetPtr() const override { return m_fix.set; }
    [[nodiscard]] std::shared_ptr<const CPointSet> GetFltPointSetPtr() const override { return m_flt.set; }

    /// All results, best first, also those that were taken out of the queue.
    [[nodiscard]] const std::vector<Candidate>& GetCandidates() const { return m_candidates; }
    /// Estimated edge length of the object (mm); all lengths of the search are in proportion to it.
    [[nodiscard]] float GetObjectSize() const { return m_size; }

private:
    struct Prepared;

    /// Both scans in the forms that the search wants; made once.
    [[nodiscard]] const Prepared& prepared();

    VotingScan m_fix;
    VotingScan m_flt;
    ConfigurationVote m_config;
    float m_size = 0.0F;
    std::shared_ptr<const Prepared> m_prepared;
    std::vector<Candidate> m_candidates;
    std::size_t m_next = 0; ///< in the queue
};

} // namespace prereg
