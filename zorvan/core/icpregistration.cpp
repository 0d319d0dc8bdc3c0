// SPDX-License-Identifier: MIT
#include "zorvan/core/icpregistration.h"

#include "zorvan/core/icpsamples.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float madToSigma = 1.4826F;        // median absolute deviation of a normal distribution
constexpr double minInlierThreshold = 0.001; // mm
constexpr std::size_t fewPairs = 16;
constexpr std::size_t maxReserve = 1 << 20; // the number of samples is a setting, and may be mistyped

float medianOf(std::vector<float>& values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) return *middle;
    return (*std::max_element(values.begin(), middle) + *middle) / 2;
}

float errorOf(const PairWithError& pair) { return std::sqrt(pair.errorSq); }

// The robust limit of a pair's error, above the median.
struct InlierScale
{
    float median;
    double threshold;
};

InlierScale inlierScaleOf(const std::vector<PairWithError>& pairs, double inlierScaling)
{
    const std::size_t n = pairs.size();
    const float upper = errorOf(pairs[n / 2]);
    const float median = n % 2 == 1 ? upper : (errorOf(pairs[n / 2 - 1]) + upper) / 2;

    std::vector<float> deviations(n);
    std::transform(pairs.begin(), pairs.end(), deviations.begin(),
                   [median](const PairWithError& pair) { return std::abs(errorOf(pair) - median); });
    const float sigma = medianOf(deviations) * madToSigma;
    return {median, std::max(minInlierThreshold, sigma * inlierScaling)};
}

// Below 16 pairs there is no scale to speak of: the worst pair goes, but not of fewer than three.
std::size_t inliersOfFew(std::size_t n)
{
    return n - static_cast<std::size_t>(std::floor(std::min(1.0, 0.2 * static_cast<double>(n)) + 0.5));
}

std::size_t inliersOfMany(const std::vector<PairWithError>& pairs, double inlierScaling)
{
    const InlierScale scale = inlierScaleOf(pairs, inlierScaling);
    const auto firstOutlier = std::find_if(pairs.begin(), pairs.end(), [&scale](const PairWithError& pair) {
        return !(scale.threshold >= errorOf(pair) - scale.median);
    });
    return static_cast<std::size_t>(firstOutlier - pairs.begin());
}

// What one least-squares step reads, gathered from the inliers in double.
struct StepData
{
    std::vector<double> moved;
    std::vector<double> fixed;
    std::vector<double> normals;
};

void append(std::vector<double>& values, const Vector3& v) { values.insert(values.end(), {v.x, v.y, v.z}); }

StepData gather(const Vector3* fixPoints, const Vector3* fixNormals, const Vector3* fltPoints,
                const std::vector<PairWithError>& pairs, const CTrafo& trafo, std::size_t count)
{
    StepData data;
    data.moved.reserve(3 * count);
    data.fixed.reserve(3 * count);
    data.normals.reserve(3 * count);
    for (std::size_t k = 0; k < count; ++k) {
        append(data.moved, trafo * fltPoints[pairs[k].fltIndex]);
        append(data.fixed, fixPoints[pairs[k].fixIndex]);
        append(data.normals, fixNormals[pairs[k].fixIndex]);
    }
    return data;
}

// The mean of the first third of the points. Slips are reported, and limits tuned, at this point.
std::array<double, 3> centreOfFirstThird(const std::vector<double>& points, std::size_t count)
{
    std::array<double, 3> centre{};
    const std::size_t used = count == 0 ? 0 : (count - 1) / 3 + 1;
    for (std::size_t k = 0; k < used; ++k) {
        for (std::size_t i = 0; i < 3; ++i) centre[i] += (points[3 * k + i] - centre[i]) / static_cast<double>(k + 1);
    }
    return centre;
}

Vector3 toFloat(const double* v)
{
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

CTrafo updateWithoutSlip(const ConfigurationICP& config, const StepData& data, std::size_t count)
{
    const double weight = 1.0 / config.uiNumSamples;
    double angles[3];
    double translation[3];
    if (!Zorvan::symsolvers::PointToPlaneUpdateLS(data.moved.data(), data.fixed.data(), data.normals.data(), &weight,
                                                  angles, translation, static_cast<int>(count), true)) {
        logger.Warn(L"computation of PtP update trafo failed; returning identity (%i pairs)", static_cast<int>(count));
        return CTrafo::Identity();
    }
    return {toFloat(angles), toFloat(translation)};
}

CTrafo updateWithSlip(const ConfigurationICP& config, const StepData& data, std::size_t count, Vector3& stdDev)
{
    double angles[3];
    double translation[3];
    double covariance[21];
    if (!Zorvan::symsolvers::PointToPlaneUpdateLS(data.moved.data(), data.fixed.data(), data.normals.data(), nullptr,
                                                  angles, translation, static_cast<int>(count), covariance, false)) {
        stdDev = Vector3::Filled(infinity);
        logger.Warn(L"computation of PtP covariances failed (no error)");
        return CTrafo::Invalid();
    }

    const auto centre = centreOfFirstThird(data.moved, count);
    const double sigma[3] = {config.dPointAccuracy, config.dPointAccuracy, config.dPointAccuracy};
    double variance[3];
    Zorvan::symsolvers::PropagateTrafoErrors(false, variance, sigma, covariance, centre.data(), angles);
    for (double& value : variance) value = std::sqrt(value);
    stdDev = toFloat(variance);
    return {toFloat(angles), toFloat(translation)};
}

} // namespace

float SamplePairs(const ConfigurationICP& config, float radiusSq, const Vector3* fixPoints, const Vector3* fixNormals,
                  const Zorvan::TKdTree<3, 48>& fixTree, const Vector3* fltPoints, const Vector3* fltNormals,
                  const Zorvan::TKdTree<3, 48>& /*fltTree*/, const CTrafo& trafo, const std::function<int()>& random,
                  std::vector<PairWithError>* pairs, std::vector<int>* indices, bool checkNormals)
{
    const auto minCosine = static_cast<float>(std::cos(config.dNormalAngleTolerance));
    const std::size_t draws = indices != nullptr ? indices->size() : config.uiNumSamples;
    pairs->clear();
    pairs->reserve(std::min(draws, maxReserve));

    double sum = 0.0;
    const auto draw = [&](std::size_t k) { return indices != nullptr ? (*indices)[k] : random(); };
    const auto find = [&](const MovedSurfel& surfel) {
        Zorvan::NearestQuery query{surfel.point, -1, radiusSq};
        fixTree.FindNearest(query);
        return query.index;
    };
    const auto use = [&](const MovedSurfel& surfel, int j) {
        if (checkNormals && !(kdtree::Dot(surfel.normal, fixNormals[j]) > minCosine)) return;
        // The worse of the two planes: a pair must fit from either side.
        const float e1 = kdtree::Dot(surfel.point - fixPoints[j], fixNormals[j]);
        const float e2 = kdtree::Dot(fixPoints[j] - surfel.point, surfel.normal);
        const float errorSq = std::max(e1 * e1, e2 * e2);
        pairs->push_back({j, surfel.fltIndex, kdtree::DistanceSq(fixPoints[j], surfel.point), errorSq});
        sum += errorSq;
    };
    ForEachMovedSurfel(draws, fltPoints, fltNormals, fixPoints, fixNormals, fixTree, trafo, draw, find, use);
    if (pairs->empty()) return infinity;
    std::sort(pairs->begin(), pairs->end());
    return static_cast<float>(std::sqrt(sum / static_cast<double>(pairs->size())));
}

std::tuple<std::size_t, float> ComputeNumberOfInliers(const std::vector<PairWithError>& pairs, double inlierScaling)
{
    const std::size_t count =
        pairs.size() < fewPairs ? inliersOfFew(pairs.size()) : inliersOfMany(pairs, inlierScaling);
    if (count == 0) return {0, infinity};
    double sum = 0.0;
    for (std::size_t k = 0; k < count; ++k) sum += pairs[k].errorSq;
    return {count, static_cast<float>(std::sqrt(sum / static_cast<double>(count)))};
}

CTrafo ComputeTrafoUpdate(const ConfigurationICP& config, const Vector3* fixPoints, const Vector3* fixNormals,
                          const Vector3* fltPoints, const Vector3* /*fltNormals*/,
                          const std::vector<PairWithError>& pairs, const CTrafo& trafo, std::size_t count,
                          Vector3* stdDev)
{
    const StepData data = gather(fixPoints, fixNormals, fltPoints, pairs, trafo, count);
    if (stdDev == nullptr) return updateWithoutSlip(config, data, count);
    return updateWithSlip(config, data, count, *stdDev);
}

} // namespace prereg
