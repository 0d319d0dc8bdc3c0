// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"
#include "zorvan/verdict/cposejudge.h"
#include "zorvan/verdict/cscanview.h"
#include "zorvan/verdict/pairverdict.h"

#include <chrono>
#include <memory>
#include <span>
#include <vector>

namespace prereg {

/// A scan as a judged search wants it.
struct SearchedScan
{
    std::shared_ptr<const CFPFHPointSet> set; ///< to search and refine on; without features only the vote proposes
    std::shared_ptr<const CScanView> view;    ///< of all points as the sensor gave them: thinned ones have no raster
};

/// A search without a start pose that ends in a verdict. Proposers come cheap first: the features; where their best
/// pose is contradicted, has a rival or is held by so little that there may be others, the vote over rotations. Parts
/// made of planes, whose features agree in many places, go to the vote at once. What the judge does not refute at once
/// is refined on all points, weighed by a `CPoseJudge`, and compared with one another; turned copies of the best pose
/// are tried as rivals too.
///
///     CJudgedSearch search({fixSet, fixView}, {fltSet, fltView}, searchSettings, settingsForAllPoints);
///     search.Compute(Zorvan::Hooks::None());
///     if (search.GetVerdict()) use(search.GetCandidates().front().refined.GetTrafo());
///
/// Same scans and settings, same bytes, whatever the number of tasks. Used by one thread at a time.
class ZORVAN_API CJudgedSearch
{
public:
    enum class EProposer
    {
        Start, ///< the caller
        Features,
        Turn, ///< a better pose, turned about what holds it least
        Twin, ///< the best pose, turned so that the box which the scans span stays where it is
        Vote,
        Plane ///< the vote on what stands on a plane that both scans show
    };
    struct Candidate
    {
        ICPResult refined;   ///< on all points
        PoseVerdict verdict; ///< this one counts
        EProposer eProposer = EProposer::Features;
    };
    struct Times
    {
        std::chrono::steady_clock::duration features{}; ///< search on the feature points, and refinement
        std::chrono::steady_clock::duration vote{};
        std::chrono::steady_clock::duration judging{}; ///< with the refinement of what the vote proposed
    };

    /// @param searchConfig      of the search on the features
    /// @param refinementConfig  of the ICP on all points
    /// @throws std::invalid_argument when a set or a view is missing
    CJudgedSearch(SearchedScan fix, SearchedScan flt, const ConfigurationFPFH& searchConfig,
                  const ConfigurationICP& refinementConfig);

    /// A pose must also pass the limits of the ICP, as a user asks who sets them. As it comes, the verdict alone
    /// counts.
    void RequireLimits(bool isRequired) { m_requiresLimits = isRequired; }
    void SetNumTasks(unsigned uiNumTasks) { m_uiNumTasks = uiNumTasks; }
    /// Without the vote a search ends with what the features propose, settled or not: cheap, for many pairs of which
    /// most have nothing in common.
    void SetVote(bool isOn) { m_hasVote = isOn; }

    /// Before the scans are called aligned, looks for turns of the box that they span which nothing contradicts; see
    /// FindBoxTwins. Some 50 ms; as it comes, off.
    void SetTwins(bool isOn) { m_hasTwins = isOn; }

    /// Searches. An abort ends it with what has been found and weighed until then.
    /// @return whether the scans are aligned
    bool Compute(const Zorvan::Hooks& hooks);

    /// Whether the scans are aligned, and both surfaces hold the pose so firmly that the vote would find no rival.
    /// Where they do not, a search without the vote has not looked for rivals.
    [[nodiscard]] bool IsSettled() const;
    /// Indices are those of the candidates: explanations are the first ones.
    [[nodiscard]] const PairVerdict& GetVerdict() const { return m_verdict; }
    /// Explanations best first, then those that fell, in the order in which they were proposed.
    [[nodiscard]] const std::vector<Candidate>& GetCandidates() const { return m_candidates; }
    /// Of the search on the features.
    [[nodiscard]] const CFPFHPreRegistration::Statistics& GetStatistics() const { return m_statistics; }
    [[nodiscard]] const Times& GetTimes() const { return m_times; }

private:
    void proposeByFeatures(const Zorvan::Hooks& hooks);
    void proposeTurns();
    void proposeTwins();
    void proposeByVote(const Zorvan::Hooks& hooks);
    void refineAndAdd(std::span<const CTrafo> poses, EProposer eProposer);
    void thinPlanes();
    [[nodiscard]] ICPResult refined(const CTrafo& start) const;
    void addTold(const std::vector<CTrafo>& told, const CTrafo& pose);
    void weigh();
    void decide();
    void settle(std::size_t first);
    [[nodiscard]] std::vector<CTrafo> hopeful(const std::vector<CTrafo>& poses) const;

    SearchedScan m_fix;
    SearchedScan m_flt;
    std::unique_ptr<const CPointSet> m_sparse; ///< of a plane part: the smaller scan, with as much of each direction
    ConfigurationFPFH m_searchConfig;
    ConfigurationICP m_refinementConfig;
    CPoseJudge m_judge;
    /// The features of planes agree anywhere: thousands of polygons, of which the vote needs none.
    bool m_isPlanePart;
    bool m_requiresLimits = false;
    unsigned m_uiNumTasks = 1;
    bool m_hasVote = true;
    bool m_hasTwins = false;
    std::vector<Candidate> m_candidates;
    /// Where a pose went that was put where the scans agree best, and what the judge says there.
    struct Settled
    {
        CTrafo start;
        CTrafo end;
        PoseVerdict verdict;
    };
    std::vector<Settled> m_settled;
    std::size_t m_numWeighed = 0; ///< candidates that have their verdict
    PairVerdict m_verdict;
    CFPFHPreRegistration::Statistics m_statistics;
    Times m_times;
};

/// Puts the explanations of a verdict first, best first, or the nearest miss where there is none; the others keep their
/// order. The verdict's indices follow.
ZORVAN_API void SortByVerdict(std::vector<CJudgedSearch::Candidate>& candidates, PairVerdict& verdict);

/// A word for a proposer: "start", "features", "turn", "twin", "vote", "plane".
[[nodiscard]] ZORVAN_API const char* ProposerName(CJudgedSearch::EProposer eProposer);

} // namespace prereg
