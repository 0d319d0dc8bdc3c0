// SPDX-License-Identifier: MIT
// The run of a pairwise ICP: start, loop, acceptance.

#include "zorvan/core/icpregistration.h"

#include "zorvan/core/icpsamples.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Tree = Zorvan::TKdTree<3, 48>;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr std::size_t minInliers = 6; // as many as unknowns
constexpr std::size_t minTreeSize = 6;
constexpr double minPairShare = 0.01;
constexpr float slipStagnation = 0.0005F; // a smaller change of the slip (mm) counts as none
constexpr unsigned maxStagnations = 4;
constexpr unsigned maxItersWithoutProgress = 4;
constexpr double finalRadiusScaling = 2;
constexpr unsigned finalDrawsPerSample = 4;
constexpr double twoSided99 = 2.576; // 99 % quantile of the normal distribution, both tails

// One side of a registration.
struct Surfels
{
    const Vector3* points;
    const Vector3* normals;
    const Tree& tree;
};

class Run
{
public:
    Run(const ConfigurationICP& config, std::mt19937& rng, const Surfels& fix, const Surfels& flt,
        const CTrafo& initial);

    [[nodiscard]] ICPResult Compute(const Ellipsoid& ellipsoid, const CTrafo* oracle);

private:
    // The pose with the smallest slip so far.
    struct Kept
    {
        CTrafo trafo;
        float rmse = infinity;
        int inliers = -1;
        unsigned iteration = 0;
        Vector3 stdDev = Vector3::Filled(infinity);
        float slipSq = infinity;
    };

    bool start();
    bool iterate();
    bool resample();
    bool accept(const Ellipsoid& ellipsoid, const CTrafo* oracle);
    bool fail(EICPResult reason);
    void keep(unsigned iteration, const Vector3& stdDev);
    [[nodiscard]] bool hasStopped(unsigned iteration, float slipSq);

    float samplePairs(float radiusSq, const CTrafo& trafo, std::vector<int>* indices, bool checkNormals);
    [[nodiscard]] float inlierRadiusSq() const;
    [[nodiscard]] float smallBigRatio();
    [[nodiscard]] float finalOverlap();

    const ConfigurationICP& m_config;
    const Surfels m_fix;
    const Surfels m_flt;
    const float m_minRadiusSq;
    const std::size_t m_minPairs;
    std::mt19937 m_engine; // a copy: the caller's sequence stays where it is
    std::function<int()> m_random;

    CTrafo m_trafo;
    Kept m_kept;
    std::vector<PairWithError> m_pairs;
    std::size_t m_inliers = 0;
    float m_rmse = infinity;
    float m_previousSlipSq = infinity;
    unsigned m_stagnations = 0;
    ICPResult m_result;
};

Run::Run(const ConfigurationICP& config, std::mt19937& rng, const Surfels& fix, const Surfels& flt,
         const CTrafo& initial)
    : m_config(config),
      m_fix(fix),
      m_flt(flt),
      m_minRadiusSq(static_cast<float>(config.dMinQueryRadius * config.dMinQueryRadius)),
      m_minPairs(std::max(minInliers, static_cast<std::size_t>(config.uiNumSamples * minPairShare))),
      m_engine(rng),
      m_random([this, draw = std::uniform_int_distribution<int>(0, static_cast<int>(m_flt.tree.Size()) - 1)]() mutable {
          return draw(m_engine);
      }),
      m_trafo(initial)
{
    m_kept.trafo = initial;
}

ICPResult Run::Compute(const Ellipsoid& ellipsoid, const CTrafo* oracle)
{
    if (!start() || !iterate()) return m_result;

    m_result.iStop_NumberOfInliers = m_kept.inliers;
    m_result.fStop_RMSE = m_kept.rmse;
    m_result.iStop_Iterations = static_cast<int>(m_kept.iteration);
    m_result.vStop_StdDev = m_kept.stdDev;
    m_result.trafo = m_kept.trafo;
    if (!accept(ellipsoid, oracle)) return m_result;

    m_result.eICPResult = ICP_Success;
    m_result.ellipsoid = ellipsoid.Transform(m_result.trafo);
    return m_result;
}

bool Run::fail(EICPResult reason)
{
    m_result.eICPResult = reason;
    return false;
}

bool Run::start()
{
    const double radius = m_config.dInitialQueryRadiusScaling * m_config.dMinQueryRadius;
    m_result.fStart_RMSE = samplePairs(static_cast<float>(radius * radius), m_trafo, nullptr, true);
    m_result.fStart_OverlapRatio = static_cast<float>(m_pairs.size()) / static_cast<float>(m_config.uiNumSamples);
    if (m_pairs.size() < m_minPairs) return fail(ICP_InitialOverlapTooSmall);

    std::tie(m_inliers, m_rmse) = ComputeNumberOfInliers(m_pairs, m_config.dInlierScaling);
    m_result.iStart_NumberOfInliers = static_cast<int>(m_inliers);
    m_result.fStart_RMSE = m_rmse;
    return m_inliers >= minInliers || fail(ICP_TooFewInitialInliers);
}

bool Run::iterate()
{
    for (unsigned i = 0;; ++i) {
        Vector3 stdDev;
        const CTrafo update = ComputeTrafoUpdate(m_config, m_fix.points, m_fix.normals, m_flt.points, m_flt.normals,
                                                 m_pairs, m_trafo, m_inliers, &stdDev);
        // The slip belongs to the pose that the pairs were found at, so that pose is kept, not the updated one.
        const float slipSq = stdDev.LengthSq();
        if (slipSq < m_kept.slipSq) keep(i, stdDev);
        if (hasStopped(i, slipSq)) return true;
        m_trafo = update * m_trafo;
        if (!resample()) return false;
        m_previousSlipSq = slipSq;
    }
}

void Run::keep(unsigned iteration, const Vector3& stdDev)
{
    m_kept = {m_trafo, m_rmse, static_cast<int>(m_inliers), iteration, stdDev, stdDev.LengthSq()};
}

bool Run::hasStopped(unsigned iteration, float slipSq)
{
    const bool isStagnating = std::abs(std::sqrt(slipSq) - std::sqrt(m_previousSlipSq)) < slipStagnation;
    m_stagnations = isStagnating ? m_stagnations + 1 : 0;
    if (m_stagnations >= maxStagnations) {
        logger.Trace(L"ICP: aborting (iter.: %u) convergence detected (stagnating sigma)", iteration);
        return true;
    }
    if (iteration - m_kept.iteration >= maxItersWithoutProgress) {
        logger.Trace(L"ICP: aborting (iter.: %u) divergence detected (lack of progress)", iteration);
        return true;
    }
    return iteration == m_config.uiMaxNumIterations;
}

bool Run::resample()
{
    samplePairs(inlierRadiusSq(), m_trafo, nullptr, true);
    if (m_pairs.size() < m_minPairs) return fail(ICP_IterationOverlapTooSmall);
    std::tie(m_inliers, m_rmse) = ComputeNumberOfInliers(m_pairs, m_config.dInlierScaling);
    return m_inliers >= minInliers || fail(ICP_IterationTooFewInliers);
}

// The radius shrinks to what the inliers needed.
float Run::inlierRadiusSq() const
{
    float radiusSq = m_minRadiusSq;
    for (std::size_t k = 0; k < m_inliers; ++k) radiusSq = std::max(radiusSq, m_pairs[k].distSq);
    return radiusSq;
}

float Run::samplePairs(float radiusSq, const CTrafo& trafo, std::vector<int>* indices, bool checkNormals)
{
    return SamplePairs(m_config, radiusSq, m_fix.points, m_fix.normals, m_fix.tree, m_flt.points, m_flt.normals,
                       m_flt.tree, trafo, m_random, &m_pairs, indices, checkNormals);
}

bool Run::accept(const Ellipsoid& ellipsoid, const CTrafo* oracle)
{
    const ConfigurationICP& c = m_config;
    if (c.dMaxStdDev > 0 && m_result.vStop_StdDev.LengthSq() > c.dMaxStdDev * c.dMaxStdDev) {
        return fail(ICP_TooMuchSlip);
    }
    if (c.dMinSmallBigRatio > 0) {
        m_result.fStop_SmallBigRatio = smallBigRatio();
        if (c.dMinSmallBigRatio > m_result.fStop_SmallBigRatio) return fail(ICP_FinalMismatches);
    }
    m_result.fStop_OverlapRatio = finalOverlap();
    if (m_result.fStop_RMSE > c.dMaxRMSE) return fail(ICP_RMSETooLarge);
    if (c.dMinOverlapRatio > m_result.fStop_OverlapRatio) return fail(ICP_FinalOverlapTooSmall);
    if (oracle != nullptr && c.SupportsOracleCheck()) {
        const float distanceSq = ellipsoid.Transform(m_result.trafo).DistanceSq(ellipsoid.Transform(*oracle));
        if (std::sqrt(distanceSq) > c.dMaxMovement) return fail(ICP_TooFarFromOracle);
    }
    return true;
}

// How many of the points that have anything within the big radius have it within the small one: low where two
// different surfaces pass near each other.
float Run::smallBigRatio()
{
    std::vector<int> indices(m_config.uiNumSamples);
    std::generate(indices.begin(), indices.end(), m_random);
    samplePairs(m_minRadiusSq, m_kept.trafo, &indices, true);
    const auto numSmall = static_cast<float>(m_pairs.size());
    const double scaling = m_config.dSmallBigQueryRadiusScaling;
    samplePairs(static_cast<float>(scaling * scaling) * m_minRadiusSq, m_kept.trafo, &indices, false);
    return numSmall / static_cast<float>(m_pairs.size());
}

// Share of the floating points whose normal meets the fixed surface within the noise. Taken at the pose that the loop
// ended with, which need not be the kept one; the limits of hosts are tuned to that.
float Run::finalOverlap()
{
    const auto minCosine = static_cast<float>(std::cos(m_config.dNormalAngleTolerance));
    const auto maxDistance = static_cast<float>(m_config.dMaxRMSE * twoSided99);
    const std::size_t draws = std::size_t{finalDrawsPerSample} * m_config.uiNumSamples;
    const auto radius = static_cast<float>(finalRadiusScaling * m_config.dMinQueryRadius);
    std::size_t overlapping = 0;
    const auto draw = [this](std::size_t) { return m_random(); };
    const auto find = [&](const MovedSurfel& surfel) {
        return m_fix.tree.FindNearestToLine({surfel.point, radius * radius}, surfel.normal);
    };
    const auto use = [&](const MovedSurfel& surfel, int j) {
        const Vector3& n = m_fix.normals[j];
        if (!(kdtree::Dot(surfel.normal, n) > minCosine)) return;
        const float d = kdtree::Dot(surfel.point, n) - kdtree::Dot(m_fix.points[j], n);
        if (maxDistance > std::abs(d)) ++overlapping;
    };
    ForEachMovedSurfel(draws, m_flt.points, m_flt.normals, m_fix.points, m_fix.normals, m_fix.tree, m_trafo, draw, find,
                       use);
    return static_cast<float>(overlapping) / static_cast<float>(draws);
}

} // namespace

ICPResult ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const Vector3* fixPoints,
                                 const Vector3* fixNormals, const Tree& fixTree, const Vector3* fltPoints,
                                 const Vector3* fltNormals, const Tree& fltTree, const Ellipsoid& fltEllipsoid,
                                 const CTrafo& initial, const CTrafo* oracle, bool)
{
    if (fixTree.Size() < minTreeSize || fltTree.Size() < minTreeSize) {
        ICPResult tooSmall;
        tooSmall.eICPResult = ICP_InitialOverlapTooSmall;
        tooSmall.fStart_OverlapRatio = 0;
        return tooSmall;
    }
    return Run(config, rng, {fixPoints, fixNormals, fixTree}, {fltPoints, fltNormals, fltTree}, initial)
        .Compute(fltEllipsoid, oracle);
}

} // namespace prereg
