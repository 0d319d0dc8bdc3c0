// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhpointset.h"

#include "zorvan/core/icpregistration.h"
#include "zorvan/core/textfile.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <random>
#include <stdexcept>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr unsigned seed = 47110815;
constexpr unsigned featuresPerVertex = 10;

template <typename T>
std::vector<T> copyOf(const std::pair<const T*, std::size_t>& range)
{
    return {range.first, range.first + range.second};
}

template <typename T>
std::vector<T> pick(const std::vector<T>& values, const std::vector<int>& indices)
{
    std::vector<T> picked;
    if (values.empty()) return picked;
    picked.reserve(indices.size());
    for (const int i : indices) picked.push_back(values[static_cast<std::size_t>(i)]);
    return picked;
}

template <typename Keep>
std::vector<int> indicesWhere(std::size_t n, Keep keep)
{
    std::vector<int> indices;
    for (std::size_t i = 0; i < n; ++i) {
        if (keep(i)) indices.push_back(static_cast<int>(i));
    }
    return indices;
}

std::vector<int> indicesWithMask(const std::vector<unsigned>& masks, std::size_t n, unsigned mask, bool keepMatching)
{
    if (masks.empty() || mask == 0) return indicesWhere(n, [](std::size_t) { return true; });
    return indicesWhere(n, [&](std::size_t i) { return ((masks[i] & mask) == mask) == keepMatching; });
}

} // namespace

CFPFHPointSet::CFPFHPointSet(const CFPFHDataSource& source)
    : CPointSet(copyOf(source.GetPoints()), copyOf(source.GetNormals()),
                source.UsesMasks() ? copyOf(source.GetMasks()) : std::vector<unsigned>()),
      m_featurePoints(copyOf(source.GetFeaturePoints())),
      m_featureNormals(copyOf(source.GetFeatureNormals())),
      m_features(copyOf(source.GetFeatures()))
{
    if (source.UsesMasks()) m_featureMasks = copyOf(source.GetFeatureMasks());
    rebuildFeatureKdTree();
}

CFPFHPointSet::CFPFHPointSet(const std::vector<Vector3>& points, const std::vector<Vector3>& normals,
                             const std::vector<Vector3>& featurePoints, const std::vector<Vector3>& featureNormals,
                             const std::vector<CPointFeatureHistogram>& features)
    : CPointSet(points, normals), m_featurePoints(featurePoints), m_featureNormals(featureNormals), m_features(features)
{
    // Features without any point are no mismatch: they leave an empty set without a word.
    const bool isMatched = featurePoints.empty() ||
                           (featureNormals.size() == featurePoints.size() && features.size() == featurePoints.size());
    if (normals.size() != points.size() || !isMatched) {
        logger.Error(L"numbers of points, normals and features differ; invalidating point set");
        *this = CFPFHPointSet();
        return;
    }
    rebuildFeatureKdTree();
}

void CFPFHPointSet::rebuildFeatureKdTree()
{
    if (m_features.empty()) {
        logger.Warn(L"point set has no features");
        *this = CFPFHPointSet();
        return;
    }
    std::vector<kdtree::Vector<33>> rows;
    rows.reserve(m_features.size());
    for (const auto& feature : m_features) rows.push_back({feature.AsArray()});
    m_featureTree = FeatureTree(rows.data(), rows.size());
    if (m_featureTree.Empty()) {
        logger.Error(L"Inf/NaN in FPFH data resulted in empty kD-tree; invalidating point set");
        *this = CFPFHPointSet();
        return;
    }
    if (m_featureTree.Size() < m_features.size()) {
        logger.Warn(L"kD-Tree reduced the number of FPFH features (Inf/NaN/duplicates) from %zu to %u (performance "
                    L"warning)",
                    m_features.size(), m_featureTree.Size());
    }
    rebuildFeaturePointTree();
}

void CFPFHPointSet::rebuildFeaturePointTree()
{
    m_featurePointTree = PointTree(m_featurePoints.data(), m_featurePoints.size());
    if (!m_featurePointTree.Empty()) return;
    if (!m_featurePoints.empty()) {
        logger.Error(L"Inf/NaN in feature point data resulted in empty kD-tree; invalidating point set");
    }
    *this = CFPFHPointSet();
}

unsigned int CFPFHPointSet::GetFeatureBitMask(std::size_t i) const
{
    if (m_featureMasks.empty()) return 0;
    if (i >= m_featureMasks.size()) throw std::out_of_range("invalid vector<T> subscript");
    return m_featureMasks[i];
}

void CFPFHPointSet::InitializeBitMasks(unsigned int mask)
{
    CPointSet::InitializeBitMasks(mask);
    m_featureMasks.assign(SizeFeatures(), mask);
}

void CFPFHPointSet::ClearBitMasks()
{
    CPointSet::ClearBitMasks();
    m_featureMasks.clear();
}

std::vector<std::pair<unsigned int, float>> CFPFHPointSet::LookupSimilarFeatures(const CPointFeatureHistogram& query,
                                                                                 unsigned int maxCount,
                                                                                 float maxDistance) const
{
    std::vector<std::pair<unsigned int, float>> result;
    if (m_featureTree.Empty() || maxCount == 0) return result;
    const auto count = static_cast<int>(std::min<std::size_t>(maxCount, m_featureTree.Size()));
    std::vector<Zorvan::IndexAndDist> found;
    m_featureTree.FindKNearest({query.AsArray()}, found, count, maxDistance * maxDistance);
    result.reserve(found.size());
    for (const auto& hit : found) result.emplace_back(hit.index, hit.distSq);
    return result;
}

bool CFPFHPointSet::IsTooLean(const ConfigurationFPFH& config) const
{
    return Size() < config.icpConfig.uiNumSamples ||
           SizeFeatures() < std::size_t{config.uiNumPolygonVertices} * featuresPerVertex;
}

ICPResult CFPFHPointSet::ComputeRoughICPRegistration(const ConfigurationICP& config, const CFPFHPointSet& flt,
                                                     const CTrafo& start, const CTrafo* oracle, bool flag) const
{
    std::mt19937 rng(seed);
    return prereg::ComputeICPRegistration(config, rng, m_featurePoints.data(), m_featureNormals.data(),
                                          m_featurePointTree, flt.m_featurePoints.data(), flt.m_featureNormals.data(),
                                          flt.m_featurePointTree, flt.GetEllipsoid(), start, oracle, flag);
}

CFPFHPointSet CFPFHPointSet::Transform(CTrafo trafo) const
{
    if (m_featurePoints.empty()) return {};
    CFPFHPointSet moved;
    std::tie(moved.m_points, moved.m_normals) = transformSurfels(trafo, m_points, m_normals);
    std::tie(moved.m_featurePoints, moved.m_featureNormals) =
        transformSurfels(trafo, m_featurePoints, m_featureNormals);
    moved.m_bitMasks = m_bitMasks;
    moved.m_featureMasks = m_featureMasks;
    // Histograms do not depend on the pose.
    moved.m_features = m_features;
    moved.m_featureTree = m_featureTree;
    moved.m_ellipsoid = m_ellipsoid.Transform(trafo);
    moved.rebuildKdTree();
    moved.rebuildFeaturePointTree();
    return moved;
}

CFPFHPointSet CFPFHPointSet::restrictTo(const std::vector<int>& features, const std::vector<int>& points) const
{
    CFPFHPointSet part;
    part.m_featurePoints = pick(m_featurePoints, features);
    part.m_featureNormals = pick(m_featureNormals, features);
    part.m_features = pick(m_features, features);
    part.m_featureMasks = pick(m_featureMasks, features);
    part.rebuildFeatureKdTree();
    if (part.m_features.empty() || points.empty()) return {};
    part.m_points = pick(m_points, points);
    part.m_normals = pick(m_normals, points);
    part.m_bitMasks = pick(m_bitMasks, points);
    part.rebuildKdTree();
    part.rebuildEllipsoid();
    return part;
}

CFPFHPointSet CFPFHPointSet::RestrictWithInequalities(const float* A, const float* b, unsigned int count) const
{
    return restrictTo(identifyMatchingIndices(A, b, count, m_featurePoints),
                      identifyMatchingIndices(A, b, count, m_points));
}

CFPFHPointSet CFPFHPointSet::RestrictWithMask(unsigned int mask, bool keepMatching) const
{
    return restrictTo(indicesWithMask(m_featureMasks, SizeFeatures(), mask, keepMatching),
                      indicesWithMask(m_bitMasks, Size(), mask, keepMatching));
}

CFPFHPointSet CFPFHPointSet::RestrictWithPredicate(std::function<bool(const Vector3&)> predicate) const
{
    const auto features = indicesWhere(SizeFeatures(), [&](std::size_t i) { return predicate(m_featurePoints[i]); });
    return restrictTo(features, indicesWhere(Size(), [&](std::size_t i) { return predicate(m_points[i]); }));
}

void CFPFHPointSet::SaveFeaturePointsXYZN(const std::string& fileName, unsigned int color) const
{
    TextFile out(fileName);
    for (std::size_t i = 0; i < m_featurePoints.size(); ++i) {
        out.WriteSurfel(m_featurePoints[i], m_featureNormals[i], color);
    }
    out.Close();
}

} // namespace prereg
