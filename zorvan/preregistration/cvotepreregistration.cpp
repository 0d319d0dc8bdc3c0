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

/// A scan in all the forms that the search wants.
struct PreparedScan
{
    Surfels fine;
    Surfels coarse;
    MatchedScan matched;
    std::vector<MarkedDirection> directions;
};

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

/// The directions along which a scan is turned into images: its ray, or all sides of what has none.
std::vector<Vector<3>> sidesOf(const CScanView& view)
{
    if (view.HasImage()) return {view.GetRay().direction};
    return {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
}

std::vector<SurfaceEdge> edgesOf(const VotingScan& scan)
{
    const ScanSampling& sampling = scan.view->GetSampling();
    std::vector<SurfaceEdge> edges;
    const auto append = [&](const CRangeImage& image) {
        const CTrafo back = image.GetFrame().GetInverse(true);
        for (const SurfaceEdge& e : FindSurfaceEdges(image, static_cast<float>(sampling.dNoise)))
            edges.push_back({back * e.point, back.Rotate(e.normal), back.Rotate(e.outward)});
    };
    if (scan.view->HasImage()) {
        append(scan.view->GetImage());
    } else {
        for (const Vector<3>& side : sidesOf(*scan.view))
            append(CRangeImage(scan.set->GetPoints(), scan.set->GetNormals(), side, sampling.dSpacing));
    }
    return edges;
}

PreparedScan prepare(const VotingScan& scan, float size)
{
    constexpr double pixelShare = 0.008;
    const auto& points = scan.set->GetPoints();
    const auto& normals = scan.set->GetNormals();
    const ScanSampling& sampling = scan.view->GetSampling();
    const float fineCell = directedScale.cell * size;
    PreparedScan made;
    made.fine = ThinSurfels(points, normals, {}, fineCell);
    made.coarse = ThinSurfels(made.fine.points, made.fine.normals, made.fine.counts, evenScale.cell * size);
    MatchedScan& matched = made.matched;
    matched.points = spread(made.fine.points, 400);
    matched.normals = spread(made.fine.normals, 400);
    const std::vector<SurfaceEdge> edges = edgesOf(scan);
    matched.edges = spread(edges, 32767);
    matched.uiEdgeSamples = std::min<std::size_t>(120, matched.edges.size());
    matched.hasSensor = scan.view->HasImage();
    for (const Vector<3>& side : sidesOf(*scan.view))
        matched.sides.emplace_back(CRangeImage(points, normals, side, std::max(sampling.dSpacing, pixelShare * static_cast<double>(size))), matched.edges);
    made.directions = FindPlaneNormals(made.fine, fineCell, static_cast<float>(sampling.dNoise), 12);
    for (const auto& d : FindEdgeNormals(edges, 10)) {
        if (std::none_of(made.directions.begin(), made.directions.end(), [&](const auto& k) { return kdtree::Dot(k.direction, d.direction) > 0.9945F; }))
            made.directions.push_back(d);
    }
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
    const PreparedScan fix = prepare(m_fix, m_size);
    const PreparedScan flt = prepare(m_flt, m_size);
    const double t1 = now();
    Vector<3> middle;
    for (const auto& p : flt.matched.points) middle = middle + p;
    middle = (1.0F / static_cast<float>(std::max<std::size_t>(1, flt.matched.points.size()))) * middle;

    const auto vote = [&](const std::vector<CTrafo>& rotations, const Surfels& a, const Surfels& b,
                          const VoteScale& scale) {
        const double v0 = now();
        std::vector<CTrafo> kept;
        for (const CTrafo& r : rotations)
            if (!fix.matched.hasSensor || !flt.matched.hasSensor || kdtree::Dot(m_fix.view->GetRay().direction, r.Rotate(m_flt.view->GetRay().direction)) > cosFarthestViews) kept.push_back(r);
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
        const MatchLimits limits{0.03F * m_size, 0.0F, 0.04F * m_size, 0.8F, 120};
        for (const auto& list : peaks)
            for (const auto& peak : list) proposals.push_back({peak.pose, {}, 0});
        forEachIndex(m_config.uiNumTasks, proposals.size(), [&](std::size_t i) {
            proposals[i].counts = CountMatches(fix.matched, flt.matched, proposals[i].pose, limits);
            proposals[i].score = proposals[i].counts.Score();
        });
        const double v3 = now();
        if (talk) {
            const CTrafo T = debugTruth;
            float bestAng = 9, bestScore = -1e9F; std::size_t rank = 0; float near = -1e9F;
            for (const auto& r : kept) bestAng = std::min(bestAng, r.GetRotationDistance(debugTruth));
            const float ts = CountMatches(fix.matched, flt.matched, T, limits).Score();
            for (const auto& p : proposals) { bestScore = std::max(bestScore, p.score);
              if (p.pose.GetRotationDistance(T) < 0.35F && (p.pose * middle - T * middle).Length() < 0.1F * m_size) near = std::max(near, p.score); }
            for (const auto& p : proposals) rank += p.score > near;
            const auto c = CountMatches(fix.matched, flt.matched, T, limits);
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
    const float spacing = static_cast<float>(std::max(m_fix.view->GetSampling().dSpacing, m_flt.view->GetSampling().dSpacing));
    const float noise = static_cast<float>(std::max(m_fix.view->GetSampling().dNoise, m_flt.view->GetSampling().dNoise));
    const RefinementSettings settings{8, 0.05F * m_size, 0.012F * m_size, 0.8F, 0.35F * m_size, 250};
    const MatchLimits limits{3.0F * noise + 0.7F * spacing, std::max(0.01F * m_size, 2.0F * spacing), std::max(0.02F * m_size, 4.0F * spacing), 0.9F, 400};
    forEachIndex(m_config.uiNumTasks, all.size(), [&](std::size_t i) {
        all[i].pose = RefinePose(fix.matched, flt.matched, all[i].pose, settings);
        all[i].counts = CountMatches(fix.matched, flt.matched, all[i].pose, limits);
        all[i].score = all[i].counts.Score();
    });
    if (talk) {
        const CTrafo T = debugTruth;
        const CTrafo r = RefinePose(fix.matched, flt.matched, T, settings);
        const auto c = CountMatches(fix.matched, flt.matched, r, limits);
        const auto c0 = CountMatches(fix.matched, flt.matched, T, limits);
        { int n=0,near=0,oo=0,nn=0,best=0; for (const auto& e : flt.matched.edges) { ++n; const auto q = T*e.point; float bd=1e9F; const SurfaceEdge* b=nullptr; for (const auto& f: fix.matched.edges){ float d=(f.point-q).Length(); if(d<bd){bd=d;b=&f;} } if (bd<1.0F){++near; if(kdtree::Dot(b->outward,T.Rotate(e.outward))>0.8F)++oo; if(kdtree::Dot(b->normal,T.Rotate(e.normal))>0.8F)++nn; 
            int idx = fix.matched.sides[0].EdgeAt(fix.matched.sides[0].PixelOf(q)); best += idx>=0; } } std::fprintf(stderr,"    edges %d near %d outward %d normal %d indexed %d\n",n,near,oo,nn,best); }
        std::size_t rank = 0; for (const auto& p : all) rank += p.score > c.Score();
        std::fprintf(stderr, "    truth refined moves %.2f deg %.3f, score %.0f (m %d f %d u %d e %d) unrefined %.0f (m %d f %d u %d e %d) rank %zu\n", static_cast<double>(r.GetRotationDistance(T)) * 57.3, static_cast<double>((r * middle - T * middle).Length() / m_size),
          static_cast<double>(c.Score()), c.iMatched, c.iInFront, c.iUnseen, c.iEdges, static_cast<double>(c0.Score()), c0.iMatched, c0.iInFront, c0.iUnseen, c0.iEdges, rank);
    }
    const double t3 = now();
    all = distinct(std::move(all), m_config.uiMaxCandidates, middle, 0.9986F, 0.015F * m_size);
    m_candidates.clear();
    m_next = 0;
    for (const Proposal& p : all) {
        const float samples = static_cast<float>(std::min<std::size_t>(400, fix.matched.points.size()) + std::min<std::size_t>(400, flt.matched.points.size()));
        m_candidates.push_back({p.pose, p.score, static_cast<float>(p.counts.iMatched) / samples,
                                std::sqrt(p.counts.fSumSquares / static_cast<float>(std::max(1, p.counts.iMatched)))});
    }
    if (talk) std::fprintf(stderr, "size %.2f directions %zu %zu edges %zu %zu: prepare %.1f propose %.1f refine %.1f (%zu) last %.1f\n", static_cast<double>(m_size), fix.directions.size(), flt.directions.size(),
                           fix.matched.edges.size(), flt.matched.edges.size(), t1 - t0, t2 - t1, t3 - t2, all.size(), now() - t3);
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
