#include "zorvan/preregistration/cvotepreregistration.h"

#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/preregistration/evenrotations.h"
#include "zorvan/preregistration/matchingdirections.h"
#include "zorvan/preregistration/poserefinement.h"
#include "zorvan/preregistration/translationvote.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;
using Abort = std::function<bool()>;

/// Shares of the object's size and angles of one vote.
struct VoteScale
{
    float cell;
    float maxNormalAngle;
    unsigned uiPeaks;
};
constexpr VoteScale evenScale{0.045F, 0.384F, 3};      // 22 degrees
constexpr VoteScale directedScale{0.025F, 0.244F, 10}; // 14 degrees
constexpr float cosFarthestViews = -0.602F;            // 127 degrees: two views that can share a tenth of the surface

struct Prepared
{
    Surfels fine;
    Surfels coarse;
    MatchedView view;
    std::vector<MarkedDirection> directions;
};

/// A pose in image coordinates of both views.
struct Proposal
{
    CTrafo pose;
    MatchCounts counts;
    float score = 0.0F;
};

template <class T>
std::vector<T> spread(const std::vector<T>& all, std::size_t most)
{
    // golden-section order: any first part of the result is spread over the whole
    std::vector<T> out;
    std::vector<std::pair<std::uint32_t, std::size_t>> order(all.size());
    for (std::size_t i = 0; i < all.size(); ++i) order[i] = {static_cast<std::uint32_t>(i) * 2654435769U, i};
    std::sort(order.begin(), order.end());
    for (std::size_t i = 0; i < std::min(most, all.size()); ++i) out.push_back(all[order[i].second]);
    return out;
}

Prepared prepare(const VotingScan& scan, float size)
{
    const auto& points = scan.set->GetPoints();
    const auto& normals = scan.set->GetNormals();
    Prepared made{{}, {}, {CSurfaceImage(points, normals, scan.toSensor, std::max(1.5F * scan.spacing, 0.01F * size)), {}, {}, {}}, {}};
    made.fine = ThinSurfels(points, normals, {}, directedScale.cell * size);
    made.coarse = ThinSurfels(made.fine.points, made.fine.normals, made.fine.counts, evenScale.cell * size);
    const CTrafo& toImage = made.view.image.ToImage();
    for (const auto& p : spread(made.fine.points, 400)) made.view.points.push_back(toImage * p);
    for (const auto& n : spread(made.fine.normals, 400)) made.view.normals.push_back(toImage.Rotate(n));
    made.view.edges = spread(made.view.image.Edges(), 120);
    made.directions = FindPlaneNormals(made.fine, directedScale.cell * size, scan.noise, 12);
    std::vector<SurfaceEnd> ends;
    const CTrafo fromImage = toImage.GetInverse(true);
    for (const auto& edge : made.view.image.Edges())
        ends.push_back({fromImage.Rotate(edge.normal), fromImage.Rotate(edge.outward)});
    for (const auto& d : FindEdgeNormals(ends, 10)) made.directions.push_back(d);
    return made;
}

void forEachIndex(unsigned numTasks, std::size_t count, const std::function<void(std::size_t)>& f)
{
    if (numTasks <= 1) {
        for (std::size_t i = 0; i < count; ++i) f(i);
        return;
    }
    std::atomic<std::size_t> next = 0;
    Zorvan::CTaskCollection tasks;
    for (unsigned k = 0; k < numTasks; ++k) {
        tasks.Schedule([&] {
            for (std::size_t i = next.fetch_add(1); i < count; i = next.fetch_add(1)) f(i);
        });
    }
    tasks.RunAndWait();
}

bool areNear(const CTrafo& a, const CTrafo& b, const Vector<3>& middle, float cosine, float distance)
{
    float trace = 0.0F;
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) trace += a(r, c) * b(r, c);
    return 0.5F * (trace - 1.0F) > cosine && kdtree::DistanceSq(a * middle, b * middle) < distance * distance;
}

std::vector<Proposal> distinct(std::vector<Proposal> proposals, std::size_t most, const Vector<3>& middle, float cosine,
                               float distance)
{
    std::stable_sort(proposals.begin(), proposals.end(),
                     [](const Proposal& a, const Proposal& b) { return a.score > b.score; });
    std::vector<Proposal> kept;
    for (const Proposal& p : proposals) {
        if (kept.size() == most) break;
        if (std::none_of(kept.begin(), kept.end(),
                         [&](const Proposal& k) { return areNear(k.pose, p.pose, middle, cosine, distance); }))
            kept.push_back(p);
    }
    return kept;
}

double now() { return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

} // namespace

ZORVAN_API CTrafo debugTruth;
CVotePreRegistration::CVotePreRegistration(VotingScan fix, VotingScan flt, const ConfigurationVote& config)
    : m_fix(std::move(fix)), m_flt(std::move(flt)), m_config(config)
{
    m_size = std::max(EstimateSize(m_fix.set->GetPoints()), EstimateSize(m_flt.set->GetPoints()));
}

bool CVotePreRegistration::Compute(std::function<bool()>)
{
    const bool talk = std::getenv("VOTE_TALK") != nullptr;
    const double t0 = now();
    const Prepared fix = prepare(m_fix, m_size);
    const Prepared flt = prepare(m_flt, m_size);
    const double t1 = now();
    const CTrafo toFixImage = fix.view.image.ToImage();
    const CTrafo fromFltImage = flt.view.image.ToImage().GetInverse(true);
    Vector<3> middle;
    for (const auto& p : flt.view.points) middle = middle + p;
    middle = (1.0F / static_cast<float>(std::max<std::size_t>(1, flt.view.points.size()))) * middle;

    const auto vote = [&](const std::vector<CTrafo>& rotations, const Surfels& a, const Surfels& b,
                          const VoteScale& scale) {
        const double v0 = now();
        std::vector<CTrafo> kept;
        for (const CTrafo& r : rotations)
            if (kdtree::Dot(m_fix.toSensor, r.Rotate(m_flt.toSensor)) > cosFarthestViews) kept.push_back(r);
        const CTranslationVote box(a, b, {scale.cell * m_size, scale.maxNormalAngle});
        const double v1 = now();
        constexpr std::size_t chunk = 16;
        std::vector<std::vector<CTranslationVote::Peak>> peaks((kept.size() + chunk - 1) / chunk);
        forEachIndex(m_config.uiNumTasks, peaks.size(), [&](std::size_t c) {
            CTranslationVote::Ballot ballot;
            for (std::size_t i = c * chunk; i < std::min(kept.size(), (c + 1) * chunk); ++i)
                box.Find(kept[i], scale.uiPeaks, ballot, peaks[c]);
        });
        const double v2 = now();
        std::vector<Proposal> proposals;
        const MatchLimits limits{0.03F * m_size, 0.04F * m_size, 0.8F, false};
        for (const auto& list : peaks)
            for (const auto& peak : list) proposals.push_back({toFixImage * peak.pose * fromFltImage, {}, 0});
        forEachIndex(m_config.uiNumTasks, proposals.size(), [&](std::size_t i) {
            proposals[i].counts = CountMatches(fix.view, flt.view, proposals[i].pose, limits, 120);
            proposals[i].score = proposals[i].counts.Score();
        });
        const double v3 = now();
        if (talk) {
            const CTrafo T = toFixImage * debugTruth * fromFltImage;
            float bestAng = 9, bestScore = -1e9F; std::size_t rank = 0; float near = -1e9F;
            for (const auto& r : kept) bestAng = std::min(bestAng, r.GetRotationDistance(debugTruth));
            const float ts = CountMatches(fix.view, flt.view, T, limits, 120).Score();
            for (const auto& p : proposals) { bestScore = std::max(bestScore, p.score);
              if (p.pose.GetRotationDistance(T) < 0.35F && (p.pose * middle - T * middle).Length() < 0.1F * m_size) near = std::max(near, p.score); }
            for (const auto& p : proposals) rank += p.score > near;
            const auto c = CountMatches(fix.view, flt.view, T, limits, 120);
            std::fprintf(stderr, "    truth: nearest rotation %.1f deg, rough score %.0f (m %d f %d u %d) best %.0f near %.0f rank %zu of %zu\n", static_cast<double>(bestAng) * 57.3, static_cast<double>(ts), c.iMatched, c.iInFront, c.iUnseen, static_cast<double>(bestScore), static_cast<double>(near), rank, proposals.size());
        }
        auto d = distinct(std::move(proposals), m_config.uiNumRefined, middle, 0.990F, 0.03F * m_size);
        if (talk) std::fprintf(stderr, "  surfels %zu %zu rotations %zu: box %.1f vote %.1f rough %.1f distinct %.1f\n", a.Size(), b.Size(), kept.size(), v1 - v0, v2 - v1, v3 - v2, now() - v3);
        return d;
    };
    std::vector<Proposal> all;
    if (m_config.uiNumRotations > 0) all = vote(EvenRotations(m_config.uiNumRotations), fix.coarse, flt.coarse, evenScale);
    if (m_config.uiNumDirectedRotations > 0) {
        const auto rotations = RotationsFromDirections(fix.directions, flt.directions, m_config.uiNumDirectedRotations);
        for (auto& p : vote(rotations, fix.fine, flt.fine, directedScale)) all.push_back(p);
    }
    const double t2 = now();
    const float spacing = std::max(m_fix.spacing, m_flt.spacing);
    const float noise = std::max(m_fix.noise, m_flt.noise);
    const RefinementSettings settings{8, 0.05F * m_size, 0.012F * m_size, 0.35F * m_size, 250};
    const MatchLimits limits{3.0F * noise + 0.7F * spacing, std::max(0.02F * m_size, 4.0F * spacing), 0.9F, true};
    forEachIndex(m_config.uiNumTasks, all.size(), [&](std::size_t i) {
        all[i].pose = RefinePose(fix.view, flt.view, all[i].pose, settings);
        all[i].counts = CountMatches(fix.view, flt.view, all[i].pose, limits, 400);
        all[i].score = all[i].counts.Score();
    });
    if (talk) {
        const CTrafo T = toFixImage * debugTruth * fromFltImage;
        const CTrafo r = RefinePose(fix.view, flt.view, T, settings);
        const auto c = CountMatches(fix.view, flt.view, r, limits, 400);
        const auto c0 = CountMatches(fix.view, flt.view, T, limits, 400);
        std::size_t rank = 0; for (const auto& p : all) rank += p.score > c.Score();
        std::fprintf(stderr, "    truth refined moves %.2f deg %.3f, score %.0f (m %d f %d u %d e %d) unrefined %.0f (m %d f %d u %d e %d) rank %zu\n", static_cast<double>(r.GetRotationDistance(T)) * 57.3, static_cast<double>((r * middle - T * middle).Length() / m_size),
          static_cast<double>(c.Score()), c.iMatched, c.iInFront, c.iUnseen, c.iEdges, static_cast<double>(c0.Score()), c0.iMatched, c0.iInFront, c0.iUnseen, c0.iEdges, rank);
    }
    const double t3 = now();
    all = distinct(std::move(all), m_config.uiMaxCandidates, middle, 0.9986F, 0.015F * m_size);
    m_candidates.clear();
    m_next = 0;
    const CTrafo fromFixImage = toFixImage.GetInverse(true);
    for (const Proposal& p : all) {
        const float samples = static_cast<float>(std::min<std::size_t>(400, fix.view.points.size()) + std::min<std::size_t>(400, flt.view.points.size()));
        m_candidates.push_back({fromFixImage * p.pose * flt.view.image.ToImage(), p.score, static_cast<float>(p.counts.iMatched) / samples,
                                std::sqrt(p.counts.fSumSquares / static_cast<float>(std::max(1, p.counts.iMatched)))});
    }
    if (talk) std::fprintf(stderr, "size %.2f directions %zu %zu edges %zu %zu: prepare %.1f propose %.1f refine %.1f (%zu) last %.1f\n", static_cast<double>(m_size), fix.directions.size(), flt.directions.size(),
                           fix.view.image.Edges().size(), flt.view.image.Edges().size(), t1 - t0, t2 - t1, t3 - t2, all.size(), now() - t3);
    return HasMoreResults();
}

ICPResult CVotePreRegistration::toResult(const Candidate& candidate) const
{
    ICPResult result(candidate.pose);
    result.fStop_OverlapRatio = candidate.matched;
    result.fStop_RMSE = candidate.rmse;
    return result;
}

ICPResult CVotePreRegistration::PeekBestResult() const
{
    return HasMoreResults() ? toResult(m_candidates[m_next]) : ICPResult();
}

ICPResult CVotePreRegistration::GetNextResult()
{
    const ICPResult best = PeekBestResult();
    if (HasMoreResults()) ++m_next;
    return best;
}

ICPResult CVotePreRegistration::InjectTrafo(CTrafo) { return {}; }

} // namespace prereg
