// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cfpfhpolygon.h"

#include "zorvan/platform/clogger.h"
#include "zorvan/preregistration/featurecandidates.h"
#include "zorvan/preregistration/polygonmatching.h"
#include "zorvan/preregistration/randomdraws.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Correspondence = CFPFHPolygon::Correspondence;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr std::size_t minFeaturesPerVertex = 5;
constexpr std::uint32_t numSeeds = 5;
constexpr std::uint32_t drawsPerPick = 10;
constexpr std::size_t minVertices = 3;
constexpr double negligibleError = 2.220446049250313e-13;

std::vector<int> toIndices(const std::vector<std::uint32_t>& values) { return {values.begin(), values.end()}; }

// A vertex with all that belongs to it.
struct Vertex
{
    std::size_t fltIndex;
    std::vector<CFPFHPolygon::IdxAndDist> candidates;
    RingVertex ring;
};

RingMatch match(const std::vector<Vertex>& vertices)
{
    std::vector<RingVertex> ring;
    ring.reserve(vertices.size());
    for (const Vertex& vertex : vertices) ring.push_back(vertex.ring);
    return matchRing(ring);
}

// Moves those that keep the shape to the front, and drops the others.
void keepGood(std::vector<Vertex>& vertices, const RingMatch& found, double maxError)
{
    std::size_t good = 0;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        if (found.errors[i] <= maxError) std::swap(vertices[i], vertices[good++]);
    }
    vertices.resize(good);
}

std::vector<Correspondence> weigh(const std::vector<Vertex>& vertices, const RingMatch& found)
{
    double worst = *std::max_element(found.errors.begin(), found.errors.end());
    if (!(worst > negligibleError)) worst = 1.0;
    std::vector<Correspondence> pairs;
    for (std::size_t i = 0; i < vertices.size(); ++i) {
        const double root = 10 - 9.9 * static_cast<double>(found.errors[i]) / worst;
        pairs.push_back({vertices[i].candidates[found.candidate[i]].index, vertices[i].fltIndex, root * root});
    }
    return pairs;
}

CTrafo fit(const CFPFHPointSet& fix, const CFPFHPointSet& flt, const std::vector<Correspondence>& pairs)
{
    std::vector<Vector3> from;
    std::vector<Vector3> to;
    std::vector<double> weights;
    for (const Correspondence& pair : pairs) {
        from.push_back(flt.GetFeaturePoint(pair.fltIndex));
        to.push_back(fix.GetFeaturePoint(pair.fixIndex));
        weights.push_back(pair.weight);
    }
    const CTrafo trafo = CTrafo::LeastSquaresFit(from.data(), to.data(), pairs.size(), weights.data());
    if (!trafo) logger.Trace(L"unreliable Procrustes result (%u points)", static_cast<unsigned>(pairs.size()));
    return trafo;
}

// The features around each of ten draws, counted up to what a disc can hold; the fullest wins.
std::vector<std::uint32_t> drawDense(std::mt19937& random, const CFPFHPointSet& flt, double radius, double spacing,
                                     std::size_t count)
{
    const auto numFeatures = static_cast<std::uint32_t>(flt.SizeFeatures());
    const double discArea = std::numbers::pi * radius * radius;
    const double full = std::round(discArea / (spacing * spacing)); // not finite for settings far out
    std::vector<unsigned> around;
    const auto coverage = [&](std::uint32_t i) {
        around.clear();
        flt.GetFeaturePointsKdTree().FindInBall(around, {flt.GetFeaturePoint(i), static_cast<float>(radius * radius)});
        return full < static_cast<double>(around.size()) ? static_cast<std::size_t>(full) : around.size();
    };
    std::vector<std::uint32_t> picks;
    while (picks.size() < count) {
        const auto draws = drawSubset(random, drawsPerPick, numFeatures);
        if (draws.empty()) return {};
        picks.push_back(*std::max_element(draws.begin(), draws.end(),
                                          [&](std::uint32_t a, std::uint32_t b) { return coverage(a) < coverage(b); }));
    }
    return picks;
}

} // namespace

CFPFHPolygon::CFPFHPolygon(std::mt19937& random, const CFPFHPointSet& flt, const CFPFHClusterAnalysis& analysis,
                           const ConfigurationFPFH& config, double spacing)
{
    if (flt.SizeFeatures() < config.uiNumPolygonVertices * minFeaturesPerVertex) {
        logger.Warn(L"too few points for seeding");
        return;
    }
    if (analysis.GetNumClusters() > 0) {
        drawFromClusters(random, analysis);
    } else {
        const bool isDone = config.dMaxPolygonDiameter >= 0 && drawFromBall(random, flt, config);
        if (!isDone) drawFromAnywhere(random, flt, config, spacing);
    }
}

void CFPFHPolygon::drawFromClusters(std::mt19937& random, const CFPFHClusterAnalysis& analysis)
{
    for (std::size_t k = 0; k < analysis.GetNumClusters(); ++k) {
        std::uint32_t skip = drawBelow(random, static_cast<std::uint32_t>(analysis.GetClusterSize(k)));
        auto member = analysis.GetCluster(k);
        while (skip-- > 0) ++member;
        m_indices.push_back(static_cast<int>(*member));
    }
}

bool CFPFHPolygon::drawFromBall(std::mt19937& random, const CFPFHPointSet& flt, const ConfigurationFPFH& config)
{
    const auto seeds = drawSubset(random, numSeeds, static_cast<std::uint32_t>(flt.SizeFeatures()));
    if (seeds.empty()) {
        logger.Warn(L"failed to create a random permutation (too few points for seeding?)");
        return true;
    }
    const double radius = config.dMaxPolygonDiameter / 2;
    std::vector<unsigned> near;
    for (std::size_t k = seeds.size(); k-- > 0;) {
        near.clear();
        flt.GetFeaturePointsKdTree().FindInBall(near,
                                                {flt.GetFeaturePoint(seeds[k]), static_cast<float>(radius * radius)});
        if (near.size() >= config.uiNumPolygonVertices * minFeaturesPerVertex) {
            for (const auto i :
                 drawSubset(random, config.uiNumPolygonVertices, static_cast<std::uint32_t>(near.size()))) {
                m_indices.push_back(static_cast<int>(near[i]));
            }
            if (!m_indices.empty()) return true;
        }
        logger.Trace(L"failed to create a polygon; %i tries left ...", static_cast<int>(k));
    }
    logger.Warn(L"failed to create a polygon; removing diameter restriction");
    return false;
}

void CFPFHPolygon::drawFromAnywhere(std::mt19937& random, const CFPFHPointSet& flt, const ConfigurationFPFH& config,
                                    double spacing)
{
    const unsigned n = config.uiNumPolygonVertices;
    m_indices = toIndices(drawSubset(random, n, static_cast<std::uint32_t>(flt.SizeFeatures())));
    if (m_indices.empty()) {
        logger.Warn(L"failed to create a random permutation (too few points for seeding?)");
        return;
    }
    if (spacing <= 0) return;
    m_indices = toIndices(drawDense(random, flt, config.dFeatureRadius, spacing, n));
    if (m_indices.empty()) logger.Warn(L"seeding failed");
}

std::pair<CTrafo, std::vector<Correspondence>> CFPFHPolygon::ComputePreRegistration(const CFPFHPointSet& fix,
                                                                                    const CFPFHPointSet& flt,
                                                                                    const ConfigurationFPFH& config,
                                                                                    bool) const
{
    CFeatureCandidates candidates;
    return ComputePreRegistration(fix, flt, config, candidates);
}

std::pair<CTrafo, std::vector<Correspondence>>
CFPFHPolygon::ComputePreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                                     const ConfigurationFPFH& config, CFeatureCandidates& candidates) const
{
    std::vector<Vertex> vertices;
    for (const int i : m_indices) {
        const auto fltIndex = static_cast<std::size_t>(i);
        Vertex vertex{fltIndex, {}, {flt.GetFeaturePoint(fltIndex), {}}};
        for (const auto& [index, distSq] : candidates.Of(fix, flt, fltIndex, config.uiNumNeighbors)) {
            vertex.candidates.push_back({index, distSq});
            vertex.ring.candidates.push_back(fix.GetFeaturePoint(index));
        }
        vertices.push_back(std::move(vertex));
    }
    RingMatch found = match(vertices);
    if (found.Empty()) return {CTrafo::Invalid(), {}};
    const std::size_t before = vertices.size();
    keepGood(vertices, found, config.dMaxPolygonVertexError);
    if (vertices.size() < minVertices) return {CTrafo::Invalid(), {}};
    // The ring closes over the gaps now, and its match may differ.
    if (vertices.size() < before) found = match(vertices);
    if (found.Empty()) return {CTrafo::Invalid(), {}};
    auto pairs = weigh(vertices, found);
    const CTrafo trafo = fit(fix, flt, pairs);
    if (!trafo) return {CTrafo::Invalid(), {}};
    return {trafo, std::move(pairs)};
}

} // namespace prereg
