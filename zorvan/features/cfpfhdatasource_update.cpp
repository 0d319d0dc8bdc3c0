// SPDX-License-Identifier: MIT
// Updates: which regions of the surface changed, and their replacement.

#include "zorvan/features/cfpfhdatasource.h"

#include "zorvan/features/dirtyboxes.h"
#include "zorvan/features/indexparts.h"
#include "zorvan/features/surfacereduction.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <chrono>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using detail::Surface;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

// Drops the marked entries, keeping the order of the others.
template <typename T>
void eraseMarked(std::vector<T>& values, const std::vector<char>& marks)
{
    auto kept = static_cast<std::size_t>(std::find(marks.begin(), marks.end(), 1) - marks.begin());
    for (std::size_t i = kept; i < values.size(); ++i) {
        if (marks[i] == 0) values[kept++] = values[i];
    }
    values.resize(kept);
}

std::vector<char> markContents(const CDirtyBoxes& boxes, const std::vector<Vector3>& points, unsigned numTasks)
{
    std::vector<char> marks(points.size(), 0);
    forEachPart(numTasks, points.size(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) marks[i] = boxes.Count(points[i]) > 0 ? 1 : 0;
    });
    return marks;
}

} // namespace

bool CFPFHDataSource::Update(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n)
{
    return Update(points, normals, masks, n, Zorvan::Hooks::None());
}

bool CFPFHDataSource::Update(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n,
                             const Zorvan::Hooks& hooks)
{
    if (!*this) {
        logger.Error(L"Update of FPFH point set failed: configuration invalid!");
        return false;
    }
    const auto start = std::chrono::steady_clock::now();
    if (n == 0) {
        Clear();
        logger.Trace(L"Update resulted in empty FPFH point set");
        return true;
    }
    if (masks != nullptr) m_usesMasks = true;

    // Without a point grid, all points carry features, whatever the feature grid.
    const detail::Reduction reduction({points, normals, masks, n}, m_gridSize,
                                      m_gridSize > 0 ? m_featureGridSize : m_gridSize, m_numTasks);
    for (const Vector3& p : reduction.FeaturePoints().points) m_dirtyMap.insert(p);
    const std::size_t from = replaceContentsOfDirtyBBoxes(reduction.points, reduction.FeaturePoints());
    resizeHistograms();
    if (!computeFeatures(from, hooks)) return false;
    logTime(L"Update", Seconds(Clock::now() - start).count());
    return true;
}

std::size_t CFPFHDataSource::replaceContentsOfDirtyBBoxes(const Surface& points, const Surface& featurePoints)
{
    const CDirtyBoxes boxes(m_dirtyMap.dirty(), m_dirtyMap.cellSize());
    if (boxes.Empty()) return m_featurePoints.size();
    removeContentsOfDirtyBBoxes(boxes);
    const std::size_t from = m_featurePoints.size();

    const auto forEachInBoxes = [&](const Surface& surface, auto push) {
        for (std::size_t i = 0; i < surface.points.size(); ++i) {
            for (unsigned count = boxes.Count(surface.points[i]); count > 0; --count) push(i);
        }
    };
    forEachInBoxes(points, [&](std::size_t i) {
        m_points.push_back(points.points[i]);
        m_normals.push_back(points.normals[i]);
        m_masks.push_back(points.masks[i]);
    });
    if (m_gridSize > 0) {
        forEachInBoxes(featurePoints, [&](std::size_t i) {
            m_featurePoints.push_back(featurePoints.points[i]);
            m_featureNormals.push_back(featurePoints.normals[i]);
            m_featureMasks.push_back(featurePoints.masks[i]);
        });
        return from;
    }
    const auto copyNew = [from](auto& features, const auto& all) {
        features.resize(all.size());
        for (std::size_t i = from; i < all.size(); ++i) features[i] = all[i];
    };
    copyNew(m_featurePoints, m_points);
    copyNew(m_featureNormals, m_normals);
    copyNew(m_featureMasks, m_masks);
    return std::min(from, m_featurePoints.size());
}

void CFPFHDataSource::removeContentsOfDirtyBBoxes(const CDirtyBoxes& boxes)
{
    const auto marks = markContents(boxes, m_points, m_numTasks);
    eraseMarked(m_points, marks);
    eraseMarked(m_normals, marks);
    eraseMarked(m_masks, marks);

    const auto featureMarks = markContents(boxes, m_featurePoints, m_numTasks);
    // A merged source has features, but no simplified histograms.
    resizeHistograms();
    const auto lastValid = featureMarks.begin() + static_cast<std::ptrdiff_t>(m_numFeatures);
    m_numFeatures = static_cast<std::size_t>(std::count(featureMarks.begin(), lastValid, 0));
    eraseMarked(m_featurePoints, featureMarks);
    eraseMarked(m_featureNormals, featureMarks);
    eraseMarked(m_featureMasks, featureMarks);
    eraseMarked(m_simplified, featureMarks);
    eraseMarked(m_features, featureMarks);
}

} // namespace prereg
