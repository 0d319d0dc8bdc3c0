// SPDX-License-Identifier: MIT
#pragma once

// The search of a vote, step by step. Not installed.

#include "zorvan/preregistration/cvotepreregistration.h"
#include "zorvan/preregistration/poserefinement.h"
#include "zorvan/preregistration/votescan.h"
#include "zorvan/verdict/scansampling.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace prereg {

/// All lengths of the search (mm).
struct VoteLimits
{
    VoteLimits(float size, const ScanSampling& fix, const ScanSampling& flt);

    float size;
    MatchLimits rough;
    RefinementSettings firstSteps; ///< of all proposals
    MatchLimits middle;
    RefinementSettings lastSteps; ///< of those that are still good then
    MatchLimits fine;
};

class CVoteSearch
{
public:
    using Candidate = CVotePreRegistration::Candidate;

    /// All that is given must outlive the search.
    CVoteSearch(const VoteScan& fix, const VoteScan& flt, const ConfigurationVote& config, const VoteLimits& limits,
                std::function<bool()> abort);

    /// Best first; nothing after an abort.
    [[nodiscard]] std::optional<std::vector<Candidate>> Run();
    /// The same for given rotations, on the fine surfels.
    [[nodiscard]] std::optional<std::vector<Candidate>> RunWith(const std::vector<CTrafo>& rotations);
    /// A pose from elsewhere, refined and scored.
    [[nodiscard]] Candidate Refined(const CTrafo& pose) const;

private:
    struct Proposal
    {
        CTrafo pose;
        float score = 0.0F;
    };

    /// f(index, task) for all indices, tasks side by side. @return false after an abort; then some are left out
    bool forEach(std::size_t count, const std::function<void(std::size_t, std::size_t)>& f) const;
    [[nodiscard]] std::vector<CTrafo> possible(const std::vector<CTrafo>& rotations) const;
    /// The peaks for all rotations, each with its rough score.
    bool vote(const std::vector<CTrafo>& rotations, const Surfels& fix, const Surfels& flt, const VoteScale& scale,
              std::vector<Proposal>& proposals) const;
    /// Appends the best of the peaks that differ.
    bool propose(const std::vector<CTrafo>& rotations, const Surfels& fix, const Surfels& flt, const VoteScale& scale,
                 std::vector<Proposal>& proposals) const;
    /// The first steps of all, then the last ones of the best, with the final score.
    [[nodiscard]] std::optional<std::vector<Candidate>> refine(std::vector<Proposal> proposals) const;
    [[nodiscard]] Candidate scored(const CTrafo& pose) const;
    /// The best that lie apart by more than an angle (its cosine) or a distance, at most so many.
    template <class T>
    [[nodiscard]] std::vector<T> distinct(std::vector<T> all, std::size_t most, float cosine, float distance) const;

    const VoteScan& m_fix;
    const VoteScan& m_flt;
    const ConfigurationVote& m_config;
    const VoteLimits& m_limits;
    std::function<bool()> m_abort;
    kdtree::Vector<3> m_middle; ///< of the floating scan
};

} // namespace prereg
