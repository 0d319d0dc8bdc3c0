// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cjudgedsearch.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/preregistration/cvotepreregistration.h"
#include "zorvan/preregistration/planevote.h"
#include "zorvan/preregistration/surfelthinning.h"
#include "zorvan/verdict/boxtwins.h"
#include "zorvan/verdict/ellipsoidtwins.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <limits>
#include <numeric>
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

SearchedScan checked(SearchedScan scan)
{
    if (!scan.set || !scan.view)
        throw std::invalid_argument("a judged search needs the set and the view of both scans");
    return scan;
}

std::vector<CTrafo> posesOf(const std::vector<CJudgedSearch::Candidate>& candidates)
{
    std::vector<CTrafo> poses;
    poses.reserve(candidates.size());
    for (const auto& candidate : candidates) poses.push_back(candidate.refined.GetTrafo());
    return poses;
}

/// It stands, or what speaks against it is so little that a pixel may make the difference.
bool mayStand(const PoseVerdict& verdict)
{
    return verdict.eFinding != EFinding::Invalid && verdict.eFinding != EFinding::TooLittle &&
           verdict.counts.Contradiction() <= verdict::dMaxDoubt;
}

} // namespace

CJudgedSearch::CJudgedSearch(SearchedScan fix, SearchedScan flt, const ConfigurationFPFH& searchConfig,
                             const ConfigurationICP& refinementConfig)
    : m_fix(checked(std::move(fix))),
      m_flt(checked(std::move(flt))),
      m_searchConfig(searchConfig),
      m_refinementConfig(refinementConfig),
      m_judge(*m_fix.view, *m_flt.view),
      m_isPlanePart(std::max(PlaneShare(m_fix.set->GetNormals()), PlaneShare(m_flt.set->GetNormals())) >
                    verdict::dMaxPlaneShare)
{
}

bool CJudgedSearch::Compute(const Zorvan::Hooks& hooks)
{
    if (m_isPlanePart) thinPlanes();
    const bool hasFeatures = m_fix.set->SizeFeatures() > 0 && m_flt.set->SizeFeatures() > 0;
    if (hasFeatures && !(m_hasVote && m_isPlanePart)) {
        proposeByFeatures(hooks);
        proposeTurns();
    }
    if (m_hasVote && !hooks.IsAborted() && !IsSettled()) {
        proposeByVote(hooks);
        proposeTurns();
    }
    if (m_hasTwins && !hooks.IsAborted()) proposeTwins();
    SortByVerdict(m_candidates, m_verdict);
    return static_cast<bool>(m_verdict);
}

void CJudgedSearch::proposeByFeatures(const Zorvan::Hooks& hooks)
{
    std::vector<CTrafo> poses;
    {
        const CStopwatch watch(m_times.features);
        CFPFHPreRegistration search(m_fix.set, m_flt.set, m_searchConfig);
        bool isAborted = false;
        search.Compute(Zorvan::Hooks([&] { return isAborted = isAborted || hooks.IsAborted(); }, hooks.GetProgress()));
        if (isAborted) search.FinalizeAfterAbort();
        m_statistics = search.GetStatistics();
        for (const ICPResult& found : search.GetAllResults()) poses.push_back(found.GetTrafo());
    }
    refineAndAdd(hopeful(poses), EProposer::Features);
    weigh();
}

void CJudgedSearch::proposeTurns()
{
    if (m_verdict.explanations.empty()) return;
    const CTrafo best = m_candidates[m_verdict.explanations.front()].refined.GetTrafo();
    refineAndAdd(hopeful(m_judge.Turns(best)), EProposer::Turn);
    weigh();
}

/// Twins that the matched surface tells from the best pose have to share surface that explains the scans; the others
/// need not. Either is the truth as well as the best pose, however much more matches there: that much surface looks
/// alike from two sides.
void CJudgedSearch::proposeTwins()
{
    if (!m_verdict || !m_fix.view->HasImage() || !m_flt.view->HasImage()) return;
    const CTrafo pose = m_candidates[m_verdict.explanations.front()].refined.GetTrafo();
    std::vector<CTrafo> told;
    std::vector<Candidate> open;
    {
        const CStopwatch watch(m_times.judging);
        const std::vector<CPoseJudge::PlacedSample> samples = m_judge.Place(pose);
        std::vector<PoseTwin> twins = FindBoxTwins(m_judge, pose, samples);
        const std::vector<PoseTwin> ofEllipsoid = FindEllipsoidTwins(m_judge, pose, samples);
        twins.insert(twins.end(), ofEllipsoid.begin(), ofEllipsoid.end());
        for (const PoseTwin& twin : twins) {
            ICPResult there;
            there.trafo = twin.pose;
            if (twin.isTold)
                told.push_back(twin.pose);
            else
                open.push_back({there, {EFinding::NotRuledOut, twin.counts}, EProposer::Twin});
        }
    }
    addTold(told, pose);
    if (!m_verdict || open.empty()) return;
    m_candidates.insert(m_candidates.end(), open.begin(), open.end());
    m_numWeighed = m_candidates.size();
    decide();
}

/// @param pose  whose twins they are
void CJudgedSearch::addTold(const std::vector<CTrafo>& told, const CTrafo& pose)
{
    const std::size_t first = m_candidates.size();
    refineAndAdd(hopeful(told), EProposer::Twin);
    // One that shares no surface has nothing to be refined on.
    const auto added = m_candidates.begin() + static_cast<std::ptrdiff_t>(first);
    m_candidates.erase(std::remove_if(added, m_candidates.end(), [](const auto& c) { return !c.refined.GetTrafo(); }),
                       m_candidates.end());
    weigh();
    const double distinct = verdict::dDistinctPixels * m_judge.GetPixelSize();
    for (std::size_t i = first; i < m_candidates.size(); ++i) {
        Candidate& twin = m_candidates[i];
        const bool isElsewhere = m_judge.Distance(twin.refined.GetTrafo(), pose) > distinct;
        if (twin.verdict && isElsewhere) twin.verdict.eFinding = EFinding::NotRuledOut;
    }
    decide();
}

void CJudgedSearch::proposeByVote(const Zorvan::Hooks& hooks)
{
    std::vector<CTrafo> poses;
    std::vector<CTrafo> onPlane;
    {
        const CStopwatch watch(m_times.vote);
        onPlane = ProposeOnPlane({m_fix.set, m_fix.view}, {m_flt.set, m_flt.view}, m_uiNumTasks,
                                 [&] { return hooks.IsAborted(); });
        ConfigurationVote config;
        config.uiNumTasks = m_uiNumTasks;
        CVotePreRegistration vote({m_fix.set, m_fix.view}, {m_flt.set, m_flt.view}, config);
        vote.Compute([&] { return hooks.IsAborted(); });
        for (const auto& candidate : vote.GetCandidates()) poses.push_back(candidate.pose);
    }
    refineAndAdd(hopeful(onPlane), EProposer::Plane);
    refineAndAdd(hopeful(poses), EProposer::Vote);
    weigh();
}

/// Poses that may be right once they are refined, the best ones: judging costs less than refinement.
std::vector<CTrafo> CJudgedSearch::hopeful(const std::vector<CTrafo>& poses) const
{
    std::vector<PoseCounts> counts(poses.size());
    Zorvan::ForEachTask(poses.size(), m_uiNumTasks, [&](std::size_t i) { counts[i] = m_judge.Glance(poses[i]); });
    // A pose that part of the samples refuted has the counts of that part: shares compare, amounts do not.
    const auto merit = [&](std::size_t i) {
        const PoseCounts& c = counts[i];
        const double touching = c.uiMatched + c.uiTail + c.uiShallow;
        return (touching - verdict::dContradictionWeight * c.Contradictions()) / std::max(1U, c.uiSamples);
    };
    const auto isHopeless = [&](std::size_t i) {
        const PoseCounts& c = counts[i];
        const unsigned touching = c.uiMatched + c.uiTail + c.uiShallow;
        return c.Contradictions() > verdict::dMaxRoughContradiction * (c.Contradictions() + touching);
    };
    std::vector<std::size_t> order(poses.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return merit(a) > merit(b); });
    const std::vector<std::size_t> nearestMiss(order.begin(), order.begin() + (order.empty() ? 0 : 1));
    std::erase_if(order, isHopeless);
    if (order.empty()) order = nearestMiss; // so that the answer can say what speaks against it
    order.resize(std::min(order.size(), verdict::uiMaxHopeful));
    std::vector<CTrafo> kept;
    kept.reserve(order.size());
    for (const std::size_t i : order) kept.push_back(poses[i]);
    return kept;
}

void CJudgedSearch::refineAndAdd(std::span<const CTrafo> poses, EProposer eProposer)
{
    const CStopwatch watch(m_times.judging);
    const std::size_t before = m_candidates.size();
    m_candidates.resize(before + poses.size());
    Zorvan::ForEachTask(poses.size(), m_uiNumTasks, [&](std::size_t i) {
        m_candidates[before + i] = {refined(poses[i]), {}, eProposer};
    });
}

/// Where one plane holds most of the points, its noise is the RMSE, and all that would move the pose along it counts as
/// outliers. So poses are refined twice over as well: on samples of which no direction has more than a share, then on
/// all.
void CJudgedSearch::thinPlanes()
{
    const CPointSet& smaller = m_fix.set->Size() < m_flt.set->Size() ? *m_fix.set : *m_flt.set;
    const Surfels all{smaller.GetPoints(), smaller.GetNormals(), std::vector<std::uint32_t>(smaller.Size(), 1)};
    const Surfels thinned = ThinCrowds(all, verdict::dMostOfADirection);
    m_sparse = std::make_unique<const CPointSet>(thinned.points.data(), thinned.normals.data(), thinned.Size());
}

ICPResult CJudgedSearch::refined(const CTrafo& start) const
{
    CTrafo pose = start;
    if (m_sparse) {
        const bool isFix = m_fix.set->Size() < m_flt.set->Size();
        const ICPResult rough = isFix ? RefinePose(*m_sparse, *m_flt.set, m_refinementConfig, start)
                                      : RefinePose(*m_fix.set, *m_sparse, m_refinementConfig, start);
        if (rough.GetTrafo()) pose = rough.GetTrafo();
    }
    return RefinePose(*m_fix.set, *m_flt.set, m_refinementConfig, pose);
}

void CJudgedSearch::weigh()
{
    const CStopwatch watch(m_times.judging);
    const std::size_t first = m_numWeighed;
    Zorvan::ForEachTask(m_candidates.size() - first, m_uiNumTasks, [&](std::size_t i) {
        Candidate& candidate = m_candidates[first + i];
        if (!candidate.refined && m_requiresLimits) return;
        const CTrafo pose = candidate.refined.GetTrafo();
        // What may stand is judged where it settles.
        candidate.verdict = m_sparse ? m_judge.Judge(pose) : m_judge.JudgeCounts(pose);
    });
    settle(first);
    m_numWeighed = m_candidates.size();
    decide();
}

void CJudgedSearch::decide()
{
    std::vector<PoseVerdict> verdicts;
    for (const Candidate& candidate : m_candidates) verdicts.push_back(candidate.verdict);
    m_verdict = DecideOnPoses(m_judge, posesOf(m_candidates), std::move(verdicts));
}

/// Steps of the ICP that end early leave a pose on curved surface a pixel or more off. So what may stand is put where
/// the scans agree best, and stands or falls there. Many proposals come to the same place: those that start near one
/// that has been settled go where it went. Not on parts made of planes: they were refined on thinned directions, and
/// the noise of large planes would move them along these.
void CJudgedSearch::settle(std::size_t first)
{
    if (m_sparse) return;
    std::vector<std::size_t> order;
    for (std::size_t i = first; i < m_candidates.size(); ++i)
        if (mayStand(m_candidates[i].verdict)) order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return m_candidates[a].verdict.counts.Score() > m_candidates[b].verdict.counts.Score();
    });
    const double near = verdict::dDistinctPixels * m_judge.GetPixelSize();
    for (const std::size_t i : order) {
        Candidate& candidate = m_candidates[i];
        const CTrafo start = candidate.refined.GetTrafo();
        const auto isNear = [&](const Settled& s) {
            return m_judge.Distance(start, s.start) < near || m_judge.Distance(start, s.end) < near;
        };
        auto known = std::find_if(m_settled.begin(), m_settled.end(), isNear);
        if (known == m_settled.end()) {
            const CTrafo end =
                SettlePose(*m_fix.set, *m_flt.set, start, m_fix.view->GetSampling(), m_flt.view->GetSampling());
            if (!end) {
                candidate.verdict = m_judge.Judge(start);
                continue;
            }
            known = m_settled.insert(m_settled.end(), {start, end, m_judge.Judge(end)});
        }
        candidate.refined.trafo = known->end;
        candidate.verdict = known->verdict;
    }
}

bool CJudgedSearch::IsSettled() const
{
    return !m_isPlanePart && !m_judge.IsCoarse() && m_verdict &&
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
        sorted.back().verdict = verdict.poses[i]; // the comparison may have found that it slides
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
    case CJudgedSearch::EProposer::Twin:
        return "twin";
    case CJudgedSearch::EProposer::Vote:
        return "vote";
    case CJudgedSearch::EProposer::Plane:
        return "plane";
    }
    return "";
}

} // namespace prereg
