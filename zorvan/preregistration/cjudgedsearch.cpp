// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cjudgedsearch.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/preregistration/cvotepreregistration.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace prereg {

namespace {

using Clock = std::chrono::steady_clock;

/// Adds the time until its end.
class CStopwatch
{
public:
    explicit CStopwatch(Clock::duration& sum) : m_sum(sum), m_start(Clock::now()) {}
    CStopwatch(const CStopwatch&) = delete;
    CStopwatch(CStopwatch&&) = delete;
    CStopwatch& operator=(const CStopwatch&) = delete;
    CStopwatch& operator=(CStopwatch&&) = delete;
    ~CStopwatch() { m_sum += Clock::now() - m_start; }

private:
    Clock::duration& m_sum;
    Clock::time_point m_start;
};

const SearchedScan& checked(const SearchedScan& scan)
{
    if (!scan.set || !scan.view)
        throw std::invalid_argument("a judged search needs the set and the view of both scans");
    return scan;
}

std::vector<CTrafo> posesOf(const std::vector<CJudgedSearch::Candidate>& candidates)
{
    std::vector<CTrafo> poses;
    for (const auto& candidate : candidates) poses.push_back(candidate.refined.GetTrafo());
    return poses;
}

/// Runs `work(i)` for each index, spread over the tasks.
template <typename Work>
void forEach(std::size_t count, unsigned numTasks, const Work& work)
{
    Zorvan::CTaskCollection tasks;
    const std::size_t step = std::max(1U, numTasks);
    for (std::size_t first = 0; first < std::min(step, count); ++first) {
        tasks.Schedule([&work, first, step, count] {
            for (std::size_t i = first; i < count; i += step) work(i);
        });
    }
    tasks.RunAndWait();
}

} // namespace

CJudgedSearch::CJudgedSearch(SearchedScan fix, SearchedScan flt, const ConfigurationFPFH& searchConfig,
                             const ConfigurationICP& refinementConfig)
    : m_fix(checked(fix)),
      m_flt(checked(flt)),
      m_searchConfig(searchConfig),
      m_refinementConfig(refinementConfig),
      m_judge(*m_fix.view, *m_flt.view)
{
}

bool CJudgedSearch::Compute(const Zorvan::Hooks& hooks)
{
    if (m_fix.set->SizeFeatures() > 0 && m_flt.set->SizeFeatures() > 0) {
        proposeByFeatures(hooks);
        proposeTurns();
    }
    if (m_hasVote && !hooks.IsAborted() && !isSettled()) {
        proposeByVote(hooks);
        proposeTurns();
    }
    SortByVerdict(m_candidates, m_verdict);
    return static_cast<bool>(m_verdict);
}

void CJudgedSearch::proposeByFeatures(const Zorvan::Hooks& hooks)
{
    {
        const CStopwatch watch(m_times.features);
        CRefinedPreRegistration search(m_fix.set, m_flt.set, m_searchConfig, m_refinementConfig);
        search.SetEffort(std::numeric_limits<std::size_t>::max(), true);
        search.Compute(hooks);
        m_statistics = search.GetStatistics();
        for (const auto& [found, refined] : search.GetCandidates())
            m_candidates.push_back({refined, {}, EProposer::Features});
    }
    weigh();
}

void CJudgedSearch::proposeTurns()
{
    if (m_verdict.explanations.empty()) return;
    const CTrafo best = m_candidates[m_verdict.explanations.front()].refined.GetTrafo();
    refineAndAdd(hopeful(m_judge.Turns(best)), EProposer::Turn);
    weigh();
}

void CJudgedSearch::proposeByVote(const Zorvan::Hooks& hooks)
{
    std::vector<CTrafo> poses;
    {
        const CStopwatch watch(m_times.vote);
        ConfigurationVote config;
        config.uiNumTasks = m_uiNumTasks;
        CVotePreRegistration vote({m_fix.set, m_fix.view}, {m_flt.set, m_flt.view}, config);
        vote.Compute([&] { return hooks.IsAborted(); });
        for (const auto& candidate : vote.GetCandidates()) poses.push_back(candidate.pose);
    }
    refineAndAdd(hopeful(poses), EProposer::Vote);
    weigh();
}

/// Poses that may be right once they are refined, the best ones: judging costs less than refinement.
std::vector<CTrafo> CJudgedSearch::hopeful(const std::vector<CTrafo>& poses) const
{
    std::vector<PoseCounts> counts(poses.size());
    forEach(poses.size(), m_uiNumTasks, [&](std::size_t i) { counts[i] = m_judge.Judge(poses[i]).counts; });
    // A pose that part of the samples refuted has the counts of that part: shares compare, amounts do not.
    const auto merit = [&](std::size_t i) {
        const PoseCounts& c = counts[i];
        const double touching = c.uiMatched + c.uiTail + c.uiShallow;
        return (touching - verdict::dContradictionWeight * c.Contradictions()) / std::max(1U, c.uiSamples);
    };
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < poses.size(); ++i) {
        const PoseCounts& c = counts[i];
        const unsigned touching = c.uiMatched + c.uiTail + c.uiShallow;
        if (c.Contradictions() <= verdict::dMaxRoughContradiction * (c.Contradictions() + touching)) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return merit(a) > merit(b); });
    order.resize(std::min(order.size(), verdict::uiMaxHopeful));
    std::vector<CTrafo> kept;
    for (const std::size_t i : order) kept.push_back(poses[i]);
    return kept;
}

void CJudgedSearch::refineAndAdd(std::span<const CTrafo> poses, EProposer eProposer)
{
    const CStopwatch watch(m_times.judging);
    const std::size_t before = m_candidates.size();
    m_candidates.resize(before + poses.size());
    forEach(poses.size(), m_uiNumTasks, [&](std::size_t i) {
        m_candidates[before + i] = {RefinePose(*m_fix.set, *m_flt.set, m_refinementConfig, poses[i]), {}, eProposer};
    });
}

void CJudgedSearch::weigh()
{
    const CStopwatch watch(m_times.judging);
    const std::size_t first = m_numWeighed;
    forEach(m_candidates.size() - first, m_uiNumTasks, [&](std::size_t i) {
        Candidate& candidate = m_candidates[first + i];
        if (candidate.refined || !m_requiresLimits) candidate.verdict = m_judge.Judge(candidate.refined.GetTrafo());
    });
    m_numWeighed = m_candidates.size();
    std::vector<PoseVerdict> verdicts;
    for (const Candidate& candidate : m_candidates) verdicts.push_back(candidate.verdict);
    m_verdict = DecideOnPoses(m_judge, posesOf(m_candidates), std::move(verdicts));
}

bool CJudgedSearch::isSettled() const
{
    const double planes = std::max(PlaneShare(m_fix.set->GetNormals()), PlaneShare(m_flt.set->GetNormals()));
    return planes <= verdict::dMaxPlaneShare && m_verdict &&
           m_judge.HoldRatio(m_candidates[m_verdict.explanations.front()].refined.GetTrafo()) >= verdict::dFirmHold;
}

void SortByVerdict(std::vector<CJudgedSearch::Candidate>& candidates, PairVerdict& verdict)
{
    std::vector<CJudgedSearch::Candidate> sorted;
    std::vector<unsigned char> isTaken(candidates.size());
    const auto take = [&](std::size_t i) {
        if (isTaken[i] != 0) return;
        isTaken[i] = 1;
        sorted.push_back(candidates[i]);
    };
    for (const std::size_t i : verdict.explanations) take(i);
    if (verdict.explanations.empty() && !candidates.empty()) take(verdict.uiNearest);
    for (std::size_t i = 0; i < candidates.size(); ++i) take(i);
    candidates = std::move(sorted);
    for (std::size_t i = 0; i < candidates.size(); ++i) verdict.poses[i] = candidates[i].verdict;
    for (std::size_t i = 0; i < verdict.explanations.size(); ++i) verdict.explanations[i] = i;
    verdict.uiNearest = 0;
}

const char* ProposerName(CJudgedSearch::EProposer eProposer)
{
    switch (eProposer) {
    case CJudgedSearch::EProposer::Start:
        return "start";
    case CJudgedSearch::EProposer::Features:
        return "features";
    case CJudgedSearch::EProposer::Turn:
        return "turn";
    case CJudgedSearch::EProposer::Vote:
        return "vote";
    }
    return "";
}

} // namespace prereg
