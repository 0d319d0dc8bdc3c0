// SPDX-License-Identifier: MIT
#include "zorvan/features/cfpfhdatasource.h"

#include "zorvan/features/setmerge.h"
#include "zorvan/features/surfacereduction.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <chrono>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr double dirtyCellScaling = 3.3333333333333335; // of the feature radius

std::vector<Vector3> toVectors(const float* values, std::size_t n)
{
    std::vector<Vector3> vectors;
    vectors.reserve(n);
    for (std::size_t i = 0; i < n; ++i, values += 3) vectors.emplace_back(values[0], values[1], values[2]);
    return vectors;
}

// Three floats each, without gaps.
const float* valuesOf(const std::array<float, 3>* rows) { return rows == nullptr ? nullptr : rows->data(); }

template <typename T>
std::pair<const T*, std::size_t> rangeOf(const std::vector<T>& values, std::size_t n)
{
    return {n == 0 ? nullptr : values.data(), n};
}

} // namespace

void CFPFHDataSource::GridCell::Add(Vector3 point, Vector3 normal, unsigned int pointMask)
{
    ++count;
    const float w = 1.0F / static_cast<float>(count);
    meanPoint = meanPoint + (point - meanPoint) * w;
    meanNormal = meanNormal + (normal - meanNormal) * w;
    mask |= pointMask;
}

void CFPFHDataSource::GridCell::Add(const GridCell& other)
{
    const auto mine = static_cast<float>(count);
    const auto theirs = static_cast<float>(other.count);
    const float total = static_cast<float>(count + other.count);
    const auto mean = [=](const Vector3& a, const Vector3& b) {
        const Vector3 sum = mine * a + theirs * b;
        return Vector3(sum.x / total, sum.y / total, sum.z / total, sum.w / total);
    };
    meanPoint = mean(meanPoint, other.meanPoint);
    meanNormal = mean(meanNormal, other.meanNormal);
    mask |= other.mask;
    count += other.count;
}

void CFPFHDataSource::PFHGridCell::Add(const Vector3& newPoint, const Vector3& newNormal,
                                       const CPointFeatureHistogram& newFeature, unsigned int newMask)
{
    if (count == 0) {
        point = newPoint;
        normal = newNormal;
        feature = newFeature;
        count = 1;
    }
    mask |= newMask;
}

CFPFHDataSource::CFPFHDataSource() : CFPFHDataSource(ConfigurationFPFH(), 1, nullptr) {}

CFPFHDataSource::CFPFHDataSource(const ConfigurationFPFH& config, unsigned int numTasks,
                                 const std::shared_ptr<GPUContext>& gpu)
    : CFPFHDataSource(config.dFeatureRadius, config.dGridSize, config.dFeatureGridSize, numTasks, gpu)
{
}

CFPFHDataSource::CFPFHDataSource(double featureRadius, double gridSize, double featureGridSize, unsigned int numTasks,
                                 const std::shared_ptr<GPUContext>& gpu)
    : m_gpu(gpu),
      m_numTasks(numTasks),
      m_featureRadius(featureRadius),
      m_gridSize(gridSize),
      m_featureGridSize(featureGridSize),
      m_dirtyMap(featureRadius * dirtyCellScaling)
{
}

CFPFHDataSource::operator bool() const
{
    if (m_numTasks == 0) {
        logger.Error(L"cannot compute features on 0 tasks");
        return false;
    }
    if (m_featureGridSize > m_featureRadius) {
        logger.Error(L"Feature grid size (%g) is larger than feature radius (%g)", m_featureGridSize, m_featureRadius);
        return false;
    }
    if (m_gridSize > m_featureGridSize) {
        logger.Error(L"Grid size (%g) exceeds feature grid size (%g)", m_gridSize, m_featureGridSize);
        return false;
    }
    // Told as an error, but hosts rely on it being accepted.
    if ((m_gridSize == 0) != (m_featureGridSize == 0)) {
        logger.Error(L"Invalid grid sizes: only one of the grid sizes is zero (grid size is %g, feature grid size is "
                     L"%g)",
                     m_gridSize, m_featureGridSize);
    }
    return true;
}

void CFPFHDataSource::Clear()
{
    m_dirtyMap.reset();
    m_points.clear();
    m_normals.clear();
    m_masks.clear();
    m_featurePoints.clear();
    m_featureNormals.clear();
    m_featureMasks.clear();
    m_simplified.clear();
    m_features.clear();
    m_updatable = true;
    m_numFeatures = 0;
    m_usesMasks = false;
}

bool CFPFHDataSource::Update(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                             const unsigned int* masks, std::size_t n)
{
    return Update(toVectors(valuesOf(points), n).data(), toVectors(valuesOf(normals), n).data(), masks, n);
}

bool CFPFHDataSource::Update(const Vectors& points, const Vectors& normals, const unsigned int* masks)
{
    return Update(points.data(), normals.data(), masks, points.size());
}

void CFPFHDataSource::resizeHistograms()
{
    m_simplified.resize(m_featurePoints.size());
    m_features.resize(m_featurePoints.size());
}

bool CFPFHDataSource::Load(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n)
{
    return Load(points, normals, masks, n, Zorvan::Hooks::None());
}

bool CFPFHDataSource::Load(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n,
                           const Zorvan::Hooks& hooks)
{
    const auto start = Clock::now();
    Clear();
    if (n == 0) return false;
    if (masks != nullptr) m_usesMasks = true;

    detail::Reduction reduction({points, normals, masks, n}, m_gridSize, m_featureGridSize, m_numTasks);
    // Unlike in an update, means of normals are brought to unit length; callers rely on both.
    if (m_gridSize > 0) detail::normalize(reduction.points.normals);
    if (m_featureGridSize > 0) detail::normalize(reduction.featurePoints.normals);
    m_featurePoints = reduction.FeaturePoints().points;
    m_featureNormals = reduction.FeaturePoints().normals;
    m_featureMasks = reduction.FeaturePoints().masks;
    m_points = std::move(reduction.points.points);
    m_normals = std::move(reduction.points.normals);
    m_masks = std::move(reduction.points.masks);
    resizeHistograms();
    if (!computeFeatures(0, hooks)) return false;
    logTime(L"Loading", Seconds(Clock::now() - start).count());
    return true;
}

bool CFPFHDataSource::Load(const float* points, const float* normals, const unsigned int* masks, std::size_t n)
{
    return Load(toVectors(points, n).data(), toVectors(normals, n).data(), masks, n);
}

bool CFPFHDataSource::Load(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                           const unsigned int* masks, std::size_t n)
{
    return Load(valuesOf(points), valuesOf(normals), masks, n);
}

bool CFPFHDataSource::Load(const Vectors& points, const Vectors& normals, const unsigned int* masks)
{
    return Load(points.data(), normals.data(), masks, points.size());
}

void CFPFHDataSource::Load(const std::vector<std::pair<const CFPFHPointSet*, CTrafo>>& sets)
{
    Clear();
    detail::Merge merge(m_gridSize, m_featureGridSize);
    for (const auto& [set, trafo] : sets) {
        if (set != nullptr) merge.Add(*set, trafo, m_numTasks);
    }
    merge.points.ForEach([this](const GridCell& cell) {
        m_points.push_back(cell.meanPoint);
        m_normals.push_back(cell.meanNormal);
        m_masks.push_back(cell.mask);
    });
    merge.features.ForEach([this](const PFHGridCell& cell) {
        m_featurePoints.push_back(cell.point);
        m_featureNormals.push_back(cell.normal);
        m_featureMasks.push_back(cell.mask);
        m_features.push_back(cell.feature);
    });
    m_numFeatures = m_features.size();
    m_updatable = false;
}

void CFPFHDataSource::logTime(const wchar_t* what, double seconds) const
{
    if (m_gpu == nullptr) {
        logger.Trace(L"%ls of FPFH point set (CPU, %u tasks) took %.3f s", what, m_numTasks, seconds);
    } else {
        logger.Trace(L"%ls of FPFH point set (GPU, %u CPU tasks) took %.3f s", what, m_numTasks, seconds);
    }
}

std::pair<const Vector3*, std::size_t> CFPFHDataSource::GetPoints() const { return rangeOf(m_points, m_points.size()); }

std::pair<const Vector3*, std::size_t> CFPFHDataSource::GetNormals() const
{
    return rangeOf(m_normals, m_normals.size());
}

std::pair<const unsigned int*, std::size_t> CFPFHDataSource::GetMasks() const
{
    return rangeOf(m_masks, m_masks.size());
}

std::pair<const Vector3*, std::size_t> CFPFHDataSource::GetFeaturePoints() const
{
    return rangeOf(m_featurePoints, m_numFeatures);
}

std::pair<const Vector3*, std::size_t> CFPFHDataSource::GetFeatureNormals() const
{
    return rangeOf(m_featureNormals, m_numFeatures);
}

std::pair<const unsigned int*, std::size_t> CFPFHDataSource::GetFeatureMasks() const
{
    return rangeOf(m_featureMasks, m_numFeatures);
}

std::pair<const CPointFeatureHistogram*, std::size_t> CFPFHDataSource::GetFeatures() const
{
    return rangeOf(m_features, m_numFeatures);
}

} // namespace prereg
