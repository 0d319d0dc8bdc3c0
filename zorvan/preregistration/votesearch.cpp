// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/votesearch.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/preregistration/evenrotations.h"
#include "zorvan/preregistration/translationvote.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr float cosFarthestViews = -0.602F; // 127 degrees: beyond, two views share less than a tenth of the surface

/// Cosine of the angle between two rotations, from the trace of their quotient.
float cosineBetween(const CTrafo& a, const CTrafo& b)
{
    const auto m = a.GetMatrix();
    const auto n = b.GetMatrix();
    float trace = 0.0F;
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c) trace += m[r][c] * n[r][c];
    return 0.5F * (trace - 1.0F);
}

} // namespace

VoteLimits::VoteLimits(float size_, const ScanSampling& fix, const ScanSampling& flt) : size(size_)
{
    const auto spacing = static_cast<float>(std::max(fix.dSpacing, flt.dSpacing));
    const auto noise = static_cast<float>(std::max(fix.dNoise, flt.dNoise));
    constexpr int iMostAgainst = 40;
    rough = {0.03F * size, 0.0F, 0.04F * size, 0.8F, iMostAgainst, 120};
    firstSteps = {4, 0.05F * size, 0.03F * size, 0.8F, 0.35F * size, 100};
    middle = {0.02F * size, 0.02F * size, 0.04F * size, 0.85F, iMostAgainst, 120};
    lastSteps = {6, 0.035F * size, 0.012F * size, 0.8F, 0.35F * size, 250};
    fine = {3.0F * noise + 0.7F * spacing,          std::max(0.01F * size, 2.0F * spacing),
            std::max(0.02F * size, 4.0F * spacing), 0.9F,
            std::numeric_limits<int>::max(),        400};
}

CVoteSearch::CVoteSearch(const VoteScan& fix, const VoteScan& flt, const ConfigurationVote& config,
                         const VoteLimits& limits, std::function<bool()> abort)
    : m_fix(fix),
      m_flt(flt),
      m_config(config),
      m_limits(limits),
      m_abort(std::move(abort)),
      m_middle(MiddleOf(flt.matched.points))
{
}

// In blocks, so that the question whether to stop comes every few milliseconds.
bool CVoteSearch::forEach(std::size_t count, const std::function<void(std::size_t, std::size_t)>& f) const
{
    constexpr std::size_t block = 256;
    const std::size_t numTasks = std::max(1U, m_config.uiNumTasks);
    for (std::size_t first = 0; first < count; first += block) {
        if (m_abort && m_abort()) return false;
        const std::size_t end = std::min(count, first + block);
        std::atomic<std::size_t> next = first;
        const auto run = [&](std::size_t task) {
            for (std::size_t i = next.fetch_add(1); i < end; i = next.fetch_add(1)) f(i, task);
        };
        if (numTasks == 1) {
            run(0);
            continue;
        }
        Zorvan::CTaskCollection tasks;
        for (std::size_t task = 0; task < numTasks; ++task) tasks.Schedule([&run, task] { run(task); });
        tasks.RunAndWait();
    }
    return true;
}

std::vector<CTrafo> CVoteSearch::possible(const std::vector<CTrafo>& rotations) const
{
    if (!m_fix.matched.hasSensor || !m_flt.matched.hasSensor) return rotations;
    const Vector<3>& fix = m_fix.matched.sides.front().Direction();
    const Vector<3>& flt = m_flt.matched.sides.front().Direction();
    std::vector<CTrafo> kept;
    for (const CTrafo& rotation : rotations)
        if (kdtree::Dot(fix, rotation.Rotate(flt)) > cosFarthestViews) kept.push_back(rotation);
    return kept;
}

bool CVoteSearch::vote(const std::vector<CTrafo>& rotations, const Surfels& fix, const Surfels& flt,
                       const VoteScale& scale, std::vector<Proposal>& proposals) const
{
    const CTranslationVote vote(fix, flt, {scale.cell * m_limits.size, scale.maxNormalAngle});
    std::vector<std::vector<CTranslationVote::Peak>> peaks(rotations.size());
    std::vector<CTranslationVote::Ballot> ballots(std::max(1U, m_config.uiNumTasks));
    const auto find = [&](std::size_t i, std::size_t task) {
        vote.Find(rotations[i], scale.uiPeaks, ballots[task], peaks[i]);
    };
    if (!forEach(rotations.size(), find)) return false;
    for (const auto& ofRotation : peaks)
        for (const CTranslationVote::Peak& peak : ofRotation) proposals.push_back({peak.pose, 0.0F});
    return forEach(proposals.size(), [&](std::size_t i, std::size_t) {
        proposals[i].score = CountMatches(m_fix.matched, m_flt.matched, proposals[i].pose, m_limits.rough).Score();
    });
}

bool CVoteSearch::propose(const std::vector<CTrafo>& rotations, const Surfels& fix, const Surfels& flt,
                          const VoteScale& scale, std::vector<Proposal>& proposals) const
{
    constexpr float cosApart = 0.9903F; // 8 degrees: nearer ones end in the same pose when they are refined
    constexpr float apart = 0.03F;
    std::vector<Proposal> peaks;
    if (!vote(possible(rotations), fix, flt, scale, peaks)) return false;
    for (const Proposal& peak : distinct(std::move(peaks), m_config.uiNumRefined, cosApart, apart * m_limits.size))
        proposals.push_back(peak);
    return true;
}

template <class T>
std::vector<T> CVoteSearch::distinct(std::vector<T> all, std::size_t most, float cosine, float distance) const
{
    std::stable_sort(all.begin(), all.end(), [](const T& a, const T& b) { return a.score > b.score; });
    std::vector<T> kept;
    Vectors places; // of the middle of the floating scan; most pairs lie apart there already
    for (const T& candidate : all) {
        if (kept.size() == most) break;
        const Vector<3> place = candidate.pose * m_middle;
        bool isNear = false;
        for (std::size_t i = 0; i < kept.size() && !isNear; ++i)
            isNear = kdtree::DistanceSq(places[i], place) < distance * distance &&
                     cosineBetween(kept[i].pose, candidate.pose) > cosine;
        if (isNear) continue;
        kept.push_back(candidate);
        places.push_back(place);
    }
    return kept;
}

CVoteSearch::Candidate CVoteSearch::scored(const CTrafo& pose) const
{
    const MatchCounts counts = CountMatches(m_fix.matched, m_flt.matched, pose, m_limits.fine);
    const auto samples = static_cast<float>(m_fix.matched.points.size() + m_flt.matched.points.size());
    const auto matched = static_cast<float>(counts.iMatched);
    return {pose, counts.Score(), matched / std::max(1.0F, samples),
            std::sqrt(counts.fSumSquares / std::max(1.0F, matched))};
}

CVoteSearch::Candidate CVoteSearch::Refined(const CTrafo& pose) const
{
    const CTrafo near = RefinePose(m_fix.matched, m_flt.matched, pose, m_limits.firstSteps);
    return scored(RefinePose(m_fix.matched, m_flt.matched, near, m_limits.lastSteps));
}

std::optional<std::vector<CVoteSearch::Candidate>> CVoteSearch::refine(std::vector<Proposal> proposals) const
{
    constexpr std::size_t mostFinished = 250;
    constexpr float cosSame = 0.9986F; // 3 degrees
    constexpr float same = 0.015F;
    const auto begin = [&](std::size_t i, std::size_t) {
        Proposal& proposal = proposals[i];
        proposal.pose = RefinePose(m_fix.matched, m_flt.matched, proposal.pose, m_limits.firstSteps);
        proposal.score = CountMatches(m_fix.matched, m_flt.matched, proposal.pose, m_limits.middle).Score();
    };
    if (!forEach(proposals.size(), begin)) return {};
    proposals = distinct(std::move(proposals), mostFinished, cosSame, same * m_limits.size);
    std::vector<Candidate> candidates(proposals.size());
    const auto finish = [&](std::size_t i, std::size_t) {
        candidates[i] = scored(RefinePose(m_fix.matched, m_flt.matched, proposals[i].pose, m_limits.lastSteps));
    };
    if (!forEach(proposals.size(), finish)) return {};
    std::erase_if(candidates, [](const Candidate& candidate) { return candidate.matched == 0.0F; });
    return distinct(std::move(candidates), m_config.uiMaxCandidates, cosSame, same * m_limits.size);
}

std::optional<std::vector<CVoteSearch::Candidate>> CVoteSearch::Run()
{
    std::vector<Proposal> proposals;
    if (!propose(EvenRotations(m_config.uiNumRotations), m_fix.coarse, m_flt.coarse, evenScale, proposals)) return {};
    const auto directed = RotationsFromDirections(m_fix.directions, m_flt.directions, m_config.uiNumDirectedRotations);
    if (!propose(directed, m_fix.fine, m_flt.fine, directedScale, proposals)) return {};
    return refine(std::move(proposals));
}

std::optional<std::vector<CVoteSearch::Candidate>> CVoteSearch::RunWith(const std::vector<CTrafo>& rotations)
{
    std::vector<Proposal> proposals;
    if (!propose(rotations, m_fix.fine, m_flt.fine, directedScale, proposals)) return {};
    return refine(std::move(proposals));
}

} // namespace prereg
