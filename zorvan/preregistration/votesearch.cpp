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

Vector<3> middleOf(const Vectors& points)
{
    Vector<3> sum;
    for (const Vector<3>& p : points) sum = sum + p;
    return points.empty() ? sum : (1.0F / static_cast<float>(points.size())) * sum;
}

bool areNear(const CTrafo& a, const CTrafo& b, const Vector<3>& middle, float cosine, float distance)
{
    float trace = 0.0F;
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) trace += a(r, c) * b(r, c);
    return 0.5F * (trace - 1.0F) > cosine && kdtree::DistanceSq(a * middle, b * middle) < distance * distance;
}

} // namespace

VoteLimits::VoteLimits(float size_, const ScanSampling& fix, const ScanSampling& flt) : size(size_)
{
    const auto spacing = static_cast<float>(std::max(fix.dSpacing, flt.dSpacing));
    const auto noise = static_cast<float>(std::max(fix.dNoise, flt.dNoise));
    rough = {0.03F * size, 0.0F, 0.04F * size, 0.8F, 120};
    refinement = {8, 0.05F * size, 0.012F * size, 0.8F, 0.35F * size, 250};
    fine = {3.0F * noise + 0.7F * spacing, std::max(0.01F * size, 2.0F * spacing),
            std::max(0.02F * size, 4.0F * spacing), 0.9F, 400};
}

CVoteSearch::CVoteSearch(const VoteScan& fix, const VoteScan& flt, const ConfigurationVote& config,
                         const VoteLimits& limits, std::function<bool()> abort)
    : m_fix(fix),
      m_flt(flt),
      m_config(config),
      m_limits(limits),
      m_abort(std::move(abort)),
      m_middle(middleOf(flt.matched.points))
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
    for (const T& candidate : all) {
        if (kept.size() == most) break;
        const auto isNear = [&](const T& other) {
            return areNear(other.pose, candidate.pose, m_middle, cosine, distance);
        };
        if (std::none_of(kept.begin(), kept.end(), isNear)) kept.push_back(candidate);
    }
    return kept;
}

CVoteSearch::Candidate CVoteSearch::Refined(const CTrafo& pose) const
{
    const CTrafo refined = RefinePose(m_fix.matched, m_flt.matched, pose, m_limits.refinement);
    const MatchCounts counts = CountMatches(m_fix.matched, m_flt.matched, refined, m_limits.fine);
    const auto samples = static_cast<float>(m_fix.matched.points.size() + m_flt.matched.points.size());
    const auto matched = static_cast<float>(counts.iMatched);
    return {refined, counts.Score(), matched / std::max(1.0F, samples),
            std::sqrt(counts.fSumSquares / std::max(1.0F, matched))};
}

std::optional<std::vector<CVoteSearch::Candidate>> CVoteSearch::Run()
{
    constexpr float cosApart = 0.9986F; // 3 degrees: within the reach of an ICP
    constexpr float apart = 0.015F;
    std::vector<Proposal> proposals;
    if (!propose(EvenRotations(m_config.uiNumRotations), m_fix.coarse, m_flt.coarse, evenScale, proposals)) return {};
    const auto directed = RotationsFromDirections(m_fix.directions, m_flt.directions, m_config.uiNumDirectedRotations);
    if (!propose(directed, m_fix.fine, m_flt.fine, directedScale, proposals)) return {};
    std::vector<Candidate> candidates(proposals.size());
    const auto refine = [&](std::size_t i, std::size_t) { candidates[i] = Refined(proposals[i].pose); };
    if (!forEach(proposals.size(), refine)) return {};
    std::erase_if(candidates, [](const Candidate& candidate) { return candidate.matched == 0.0F; });
    return distinct(std::move(candidates), m_config.uiMaxCandidates, cosApart, apart * m_limits.size);
}

} // namespace prereg
