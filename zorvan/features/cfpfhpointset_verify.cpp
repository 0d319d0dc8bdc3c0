// SPDX-License-Identifier: MIT
// Whether the features that an alignment brings together look alike.

#include "zorvan/features/cfpfhpointset.h"

#include "zorvan/core/icpregistration.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_map>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr double searchRadiusScaling = 2.6666666666666665;
constexpr double minSkewness = 0.15;     // right alignments: most pairs close, a tail to the right
constexpr std::size_t minNonPlanar = 15; // one in so many inliers must not be flat
constexpr double negligibleSpread = 1e-150;

// Histogram of distances, for their most frequent value.
class Mode
{
public:
    void Add(float distance)
    {
        constexpr float binWidth = 0.04F;
        const float key = std::round(distance / binWidth) * binWidth;
        const auto [position, isNew] = m_positions.emplace(std::bit_cast<std::uint32_t>(key), m_bins.size());
        if (isNew) m_bins.push_back({key, 0});
        ++m_bins[position->second].count;
    }

    struct Bin
    {
        float value;
        unsigned count;
    };

    /// The first met of the fullest bins; -1 when there is none.
    [[nodiscard]] Bin Get() const
    {
        const auto fullest = std::max_element(m_bins.begin(), m_bins.end(),
                                              [](const Bin& a, const Bin& b) { return a.count < b.count; });
        return fullest == m_bins.end() ? Bin{-1.0F, 0} : *fullest;
    }

private:
    std::vector<Bin> m_bins;
    std::unordered_map<std::uint32_t, std::size_t> m_positions;
};

// Running mean, spread and skewness. Source: Pebay, Formulas for Robust, One-Pass Parallel Computation of Covariances
// and Arbitrary-Order Statistical Moments, Sandia report SAND2008-6212.
class Moments
{
public:
    void Add(double value)
    {
        const double before = m_n;
        m_n += 1;
        const double delta = value - m_mean;
        const double deltaN = delta / m_n;
        const double term = delta * deltaN * before;
        m_mean += deltaN;
        m_m3 += term * deltaN * (m_n - 2) - 3 * deltaN * m_m2;
        m_m2 += term;
    }

    [[nodiscard]] double Mean() const { return m_mean; }
    [[nodiscard]] double StdDev() const { return m_n < 2 ? 0.0 : std::sqrt(m_m2 / (m_n - 1)); }

    /// NaN for a single value, which then passes every test of it.
    [[nodiscard]] double Skewness() const
    {
        if (m_n == 0) return 0.0;
        if (m_n == 1) return std::numeric_limits<double>::quiet_NaN();
        if (m_m2 < negligibleSpread) return 0.0;
        return std::sqrt((m_n - 1) / m_m2) * ((m_n - 1) / (m_n * m_m2)) * m_m3;
    }

private:
    double m_n = 0;
    double m_mean = 0;
    double m_m2 = 0;
    double m_m3 = 0;
};

struct Agreement
{
    std::size_t numInliers = 0;
    std::size_t numNonPlanar = 0;
    std::size_t numSimilar = 0;
    Mode mode;
    Moments moments;
};

// Features of flt with the feature of fix that each comes to lie on, best fitting first.
std::vector<PairWithError> pairFeatures(const ConfigurationICP& config, const CFPFHPointSet& fix,
                                        const CFPFHPointSet& flt, const CTrafo& trafo)
{
    const double radius = config.dMinQueryRadius * searchRadiusScaling;
    const auto radiusSq = static_cast<float>(radius * radius);
    const auto minCosine = static_cast<float>(std::cos(config.dNormalAngleTolerance));
    std::vector<PairWithError> pairs;
    for (std::size_t i = 0; i < flt.SizeFeatures(); ++i) {
        Zorvan::NearestQuery query{trafo * flt.GetFeaturePoint(i), -1, radiusSq};
        fix.GetFeaturePointsKdTree().FindNearest(query);
        if (query.index < 0) continue;
        const auto j = static_cast<std::size_t>(query.index);
        const Vector3 fixNormal = fix.GetFeatureNormal(j);
        const Vector3 fltNormal = trafo.Rotate(flt.GetFeatureNormal(i));
        if (!(Dot(fltNormal, fixNormal) > minCosine)) continue;
        const Vector3 offset = query.point - fix.GetFeaturePoint(j);
        const float e1 = Dot(offset, fixNormal);
        const float e2 = Dot(-offset, fltNormal);
        pairs.push_back({query.index, static_cast<int>(i), query.distSq, std::max(e1 * e1, e2 * e2)});
    }
    std::sort(pairs.begin(), pairs.end());
    return pairs;
}

Agreement compare(const ConfigurationFPFH& config, const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                  const std::vector<PairWithError>& pairs)
{
    const auto maxDistance = static_cast<float>(config.dVerifyTrafoMaxFeatureDistance);
    const auto maxDistanceSq =
        static_cast<float>(config.dVerifyTrafoMaxFeatureDistance * config.dVerifyTrafoMaxFeatureDistance);
    Agreement result;
    result.numInliers = std::get<0>(ComputeNumberOfInliers(pairs, config.icpConfig.dInlierScaling));
    for (std::size_t k = 0; k < result.numInliers; ++k) {
        const auto& a = fix.GetFeature(static_cast<std::size_t>(pairs[k].fixIndex));
        const auto& b = flt.GetFeature(static_cast<std::size_t>(pairs[k].fltIndex));
        if (!(a.SquaredEuclideanDistanceToPlane() > maxDistanceSq)) continue;
        ++result.numNonPlanar;
        const float distance = std::sqrt(a.SquaredEuclideanDistance(b));
        result.mode.Add(distance);
        result.moments.Add(distance);
        if (distance <= maxDistance) ++result.numSimilar;
    }
    return result;
}

double ratio(std::size_t part, std::size_t whole) { return static_cast<double>(part) / static_cast<double>(whole); }

// Makes all tests, so that the log holds every reason.
bool judge(const ConfigurationFPFH& config, const Agreement& a)
{
    const auto maxDistance = static_cast<float>(config.dVerifyTrafoMaxFeatureDistance);
    const float mode = a.mode.Get().value;
    const double skewness = a.moments.Skewness();
    bool isAccepted = true;
    if (mode > maxDistance) {
        logger.Warn(L"VerifyAlignmentFeatureBased: rejecting trafo (mode %.3f > %.3f)", mode, maxDistance);
        isAccepted = false;
    }
    if (skewness < minSkewness) {
        logger.Warn(L"VerifyAlignmentFeatureBased: rejecting trafo (skewness %.3f <= 0.150)", skewness);
        isAccepted = false;
    }
    if (a.numNonPlanar * minNonPlanar < a.numInliers) {
        logger.Warn(L"VerifyAlignmentFeatureBased: rejecting trafo (only %.1fp non-planar inliers)",
                    100 * ratio(a.numNonPlanar, a.numInliers));
        isAccepted = false;
    }
    // Without a pair that is not flat the share is NaN, and passes.
    const double confidence = ratio(a.numSimilar, a.numNonPlanar);
    if (config.dVerifyTrafoMinConfidence > confidence) {
        logger.Warn(L"VerifyAlignmentFeatureBased: rejecting trafo (confidence level %.1fp < %.1fp; similar: %zi, "
                    L"inliers: %zi)",
                    100 * confidence, 100 * config.dVerifyTrafoMinConfidence, a.numSimilar, a.numInliers);
        isAccepted = false;
    }
    return isAccepted;
}

} // namespace

bool CFPFHPointSet::VerifyAlignmentFeatureBased(const ConfigurationFPFH& config, const CFPFHPointSet& flt,
                                                const CTrafo& trafo) const
{
    if (config.dVerifyTrafoMaxFeatureDistance <= 0 || config.dVerifyTrafoMinConfidence <= 0) return true;
    const auto pairs = pairFeatures(config.icpConfig, *this, flt, trafo);
    const Agreement agreement = compare(config, *this, flt, pairs);
    const auto mode = agreement.mode.Get();
    logger.Trace(L"mode: %.3f (%u), #inliers: %zi => #nonplanar: %zi => #matching: %zi (%.1fp), mean=%g, stddev=%g, "
                 L"skewness=%g",
                 mode.value, mode.count, agreement.numInliers, agreement.numNonPlanar, agreement.numSimilar,
                 100 * ratio(agreement.numSimilar, agreement.numNonPlanar), agreement.moments.Mean(),
                 agreement.moments.StdDev(), agreement.moments.Skewness());
    return judge(config, agreement);
}

} // namespace prereg
