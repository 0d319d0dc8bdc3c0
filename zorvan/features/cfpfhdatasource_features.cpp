// SPDX-License-Identifier: MIT
// The features of a source's points.

#include "zorvan/features/cfpfhdatasource.h"

#include "zorvan/core/csearchgrid.h"
#include "zorvan/features/indexparts.h"
#include "zorvan/features/neighbourhoods.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr unsigned minNeighbors = 12;                // the point itself among them; the kernels have it too
constexpr std::size_t pointsBetweenQuestions = 4096; // per task: some milliseconds

bool hasFeature(const CPointFeatureHistogram& feature) { return kdtree::IsFinite(feature.AsArray()[0]); }

// The points from `from` on, and of those before all that may be their neighbours.
std::vector<std::uint32_t> indicesAround(const std::vector<Vector3>& points, std::size_t from, double radius)
{
    constexpr double slack = 1.01; // for the rounding of large coordinates
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (std::size_t i = from; i < points.size(); ++i) box = {Min(box.low, points[i]), Max(box.high, points[i])};
    const float far = std::max(box.low.Length(), box.high.Length());
    const auto margin = Vector3::Filled(static_cast<float>(radius * slack) + far * 1e-5F);
    const Vector3 low = box.low - margin;
    const Vector3 high = box.high + margin;
    std::vector<std::uint32_t> indices;
    indices.reserve(points.size() - from);
    for (std::uint32_t i = 0; i < points.size(); ++i) {
        const Vector3& p = points[i];
        const bool isNear =
            p.x >= low.x && p.x <= high.x && p.y >= low.y && p.y <= high.y && p.z >= low.z && p.z <= high.z;
        if (isNear || i >= from) indices.push_back(i);
    }
    return indices;
}

} // namespace

bool CFPFHDataSource::computeFeatures(std::size_t from, const Zorvan::Hooks& hooks)
{
    try {
        const bool isDone = m_gpu != nullptr ? computeFeatures_GPU(from, hooks) : computeFeatures_CPU(from, hooks);
        isDone ? moveInvalidFeaturesBack() : invalidateFeatures(from);
        return isDone;
    } catch (...) {
        invalidateFeatures(from);
        throw;
    }
}

void CFPFHDataSource::invalidateFeatures(std::size_t from)
{
    m_simplified.resize(from);
    m_features.resize(from);
    m_simplified.resize(m_featurePoints.size());
    m_features.resize(m_featurePoints.size(), CPointFeatureHistogram::Invalid());
    m_dirtyMap.reset();
    moveInvalidFeaturesBack();
}

void CFPFHDataSource::rejectIrregularPoints()
{
    logger.Error(L"rejecting update: detected (only) irregular points (Inf/NaN/dupes) ?!");
    Clear();
}

bool CFPFHDataSource::computeFeatures_CPU(std::size_t from, const Zorvan::Hooks& hooks)
{
    if (from == m_featurePoints.size()) return true;
    const detail::CNeighbourGrid grid(m_featureRadius, m_featurePoints,
                                      indicesAround(m_featurePoints, from, m_featureRadius));
    if (grid.Empty()) {
        rejectIrregularPoints();
        return true;
    }
    // In the order of the grid: neighbours share their candidates, and tasks get regions of their own.
    std::vector<std::uint32_t> positions;
    positions.reserve(m_featurePoints.size() - from);
    for (std::uint32_t k = 0; k < grid.Size(); ++k) {
        if (grid.IndexOf(k) >= from) positions.push_back(k);
    }
    const auto radius = static_cast<float>(m_featureRadius);
    const auto computeBlock = [&](std::size_t begin, std::size_t size, auto compute) {
        forEachPart(m_numTasks, size, [&](std::size_t first, std::size_t last) {
            detail::CNeighbourhood neighbourhood(grid, m_featurePoints.data(), m_featureNormals.data(),
                                                 radius * radius);
            for (std::size_t k = begin + first; k < begin + last; ++k) {
                neighbourhood.Enter(positions[k]);
                compute(neighbourhood, grid.IndexOf(positions[k]));
            }
        });
    };
    const std::size_t most = pointsBetweenQuestions * std::max(1U, m_numTasks);
    const auto forEachNew = [&](auto compute) {
        for (std::size_t begin = 0; begin < positions.size(); begin += most) {
            if (hooks.IsAborted()) return false;
            const std::size_t size = std::min(most, positions.size() - begin);
            computeBlock(begin, size, compute);
            hooks.Advance(size);
        }
        return true;
    };
    hooks.Start("features", 2 * positions.size());
    const bool isDone = forEachNew([this](auto& near, std::size_t i) { computeSimplified(near, i); }) &&
                        forEachNew([this](auto& near, std::size_t i) { computeFeature(near, i); });
    hooks.Finish();
    return isDone;
}

void CFPFHDataSource::computeSimplified(detail::CNeighbourhood& neighbourhood, std::size_t i)
{
    SimplifiedHistogram& simplified = m_simplified[i];
    simplified.numNeighbors += neighbourhood.CountPairs(simplified.histogram);
    if (simplified.numNeighbors < minNeighbors) simplified = {};
}

void CFPFHDataSource::computeFeature(detail::CNeighbourhood& neighbourhood, std::size_t i)
{
    const unsigned count = m_simplified[i].numNeighbors;
    if (count == 0) {
        m_features[i] = CPointFeatureHistogram::Invalid();
        return;
    }
    // The factor cancels in the end; it keeps the sums small.
    neighbourhood.SumHistograms(1.0F / static_cast<float>(count), m_simplified.data(), m_features[i]);
    m_features[i].Normalize();
}

void CFPFHDataSource::moveInvalidFeaturesBack()
{
    // What was valid before still is, and stands in front; only merged features come unsorted.
    std::size_t first = m_updatable ? std::min(m_numFeatures, m_features.size()) : 0;
    std::size_t end = m_features.size();
    while (true) {
        while (end > first && !hasFeature(m_features[end - 1])) --end;
        while (first < end && hasFeature(m_features[first])) ++first;
        if (first >= end) break;
        const std::size_t last = end - 1;
        std::swap(m_featurePoints[first], m_featurePoints[last]);
        std::swap(m_featureNormals[first], m_featureNormals[last]);
        std::swap(m_featureMasks[first], m_featureMasks[last]);
        std::swap(m_simplified[first], m_simplified[last]);
        std::swap(m_features[first], m_features[last]);
    }
    m_numFeatures = end;
}

void CFPFHDataSource::maskPlanarRegions(std::size_t first, std::size_t last, float threshold, float radius,
                                        unsigned int mask)
{
    const Zorvan::CSearchGrid grid(radius, m_points.data(), m_points.size());
    std::vector<unsigned> near;
    for (std::size_t i = first; i < last; ++i) {
        if (i >= m_features.size()) throw std::out_of_range("invalid vector<T> subscript");
        if (!(m_features[i].SquaredEuclideanDistanceToPlane() < threshold)) continue;
        near.clear();
        grid.QueryRange(near, {m_featurePoints[i], radius * radius});
        for (const unsigned j : near) m_masks[j] |= mask;
    }
}

} // namespace prereg
