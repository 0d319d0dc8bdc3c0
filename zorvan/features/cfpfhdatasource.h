// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/hooks.h"
#include "zorvan/core/vector.h"
#include "zorvan/features/cdirtymap.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/features/cpointfeaturehistogram.h"
#include "zorvan/platform/export.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace prereg {

class CDirtyBoxes;
class CFPFHPointSet;

namespace detail {
class CNeighbourhood;
struct Surface;
} // namespace detail

/// Turns a surface that grows and changes into points, feature points and their features. The caller hands over the
/// whole current surface each time; the source thins it on two grids, finds the regions that changed, and computes the
/// features of those alone.
///
///     CFPFHDataSource source(settings, numTasks, nullptr);
///     while (scanning) {
///         source.Update(points, normals, nullptr);
///         auto snapshot = std::make_shared<const CFPFHPointSet>(source);
///     }
///
/// `Update` sees a change only where the number of grid cells in a region of some three feature radii changes, and does
/// not recompute features outside such a region even when they have neighbours inside. Lengths in mm, normals of unit
/// length. Used by one thread at a time; it runs tasks of its own, all done when a call returns. Results are the same
/// for any number of tasks.
///
/// With a graphics processor, what the device refuses is raised. The features of unchanged regions are then still
/// there, new points have none, and the next `Update` treats every cell that it meets as changed.
class ZORVAN_API CFPFHDataSource
{
public:
    /// A graphics processor for the features (cfpfhdatasource_gpu.h); null everywhere means this processor.
    class GPUContext;
    using Vector3 = kdtree::Vector<3>;
    using Vectors = std::vector<Vector3>;

    /// The mean of the points that fell into one cell.
    struct ZORVAN_API GridCell
    {
        Vector3 meanPoint;
        Vector3 meanNormal; ///< not normalised
        unsigned int mask = 0;
        unsigned int count = 0;

        void Add(Vector3 point, Vector3 normal, unsigned int pointMask);
        void Add(const GridCell& other);
    };

    /// The first feature that reached one cell.
    struct ZORVAN_API PFHGridCell
    {
        Vector3 point;
        Vector3 normal;
        CPointFeatureHistogram feature;
        unsigned int mask = 0;
        unsigned int count = 0;

        void Add(const Vector3& newPoint, const Vector3& newNormal, const CPointFeatureHistogram& newFeature,
                 unsigned int newMask);
    };

    /// A point's pairs with its neighbours, as counts, and the number of neighbours, itself included.
    struct SimplifiedHistogram
    {
        CPointFeatureHistogram histogram;
        unsigned int numNeighbors = 0;
    };

    CFPFHDataSource();
    CFPFHDataSource(const ConfigurationFPFH& config, unsigned int numTasks, const std::shared_ptr<GPUContext>& gpu);
    /// @param numTasks  tasks that share the work; 1 is serial, 0 is refused by `Update`
    CFPFHDataSource(double featureRadius, double gridSize, double featureGridSize, unsigned int numTasks,
                    const std::shared_ptr<GPUContext>& gpu);

    /// Whether features can be computed with these sizes and tasks; logs why not. One grid size of 0 beside another
    /// that is not is logged as an error and yet accepted.
    explicit operator bool() const;

    /// Takes over the current surface; see the class.
    /// @param masks  null, or one bit mask a point
    /// @return       false, with nothing changed, when the settings cannot work
    /// A point that is not finite empties the source (logged).
    bool Update(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n);
    /// @return  false when the hooks stop it too: the features of unchanged regions are still there, new points have
    ///          none, and the next `Update` treats every cell that it meets as changed
    bool Update(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n,
                const Zorvan::Hooks& hooks);
    bool Update(const std::array<float, 3>* points, const std::array<float, 3>* normals, const unsigned int* masks,
                std::size_t n);
    bool Update(const Vectors& points, const Vectors& normals, const unsigned int* masks);

    /// Computes everything anew from the given surface; settings are not checked. The next `Update` treats every cell
    /// that it meets as changed.
    /// @return  false for an empty surface
    bool Load(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n);
    /// @return  false when the hooks stop it too: no point has a feature then
    bool Load(const Vector3* points, const Vector3* normals, const unsigned int* masks, std::size_t n,
              const Zorvan::Hooks& hooks);
    bool Load(const std::array<float, 3>* points, const std::array<float, 3>* normals, const unsigned int* masks,
              std::size_t n);
    /// Three floats a point.
    bool Load(const float* points, const float* normals, const unsigned int* masks, std::size_t n);
    bool Load(const Vectors& points, const Vectors& normals, const unsigned int* masks);

    /// Merges point sets, each moved by its pose: points are averaged, of features the first in each cell is kept and
    /// none is computed. Null sets are passed over.
    void Load(const std::vector<std::pair<const CFPFHPointSet*, CTrafo>>& sets);

    void Clear();

    /// Null and 0 when empty.
    [[nodiscard]] std::pair<const Vector3*, std::size_t> GetPoints() const;
    [[nodiscard]] std::pair<const Vector3*, std::size_t> GetNormals() const;
    [[nodiscard]] std::pair<const unsigned int*, std::size_t> GetMasks() const;
    /// The points that have a feature.
    [[nodiscard]] std::pair<const Vector3*, std::size_t> GetFeaturePoints() const;
    [[nodiscard]] std::pair<const Vector3*, std::size_t> GetFeatureNormals() const;
    [[nodiscard]] std::pair<const unsigned int*, std::size_t> GetFeatureMasks() const;
    [[nodiscard]] std::pair<const CPointFeatureHistogram*, std::size_t> GetFeatures() const;
    /// With the points behind that have too few neighbours for a feature.
    [[nodiscard]] const Vectors& GetFeaturePointsV() const { return m_featurePoints; }
    [[nodiscard]] const Vectors& GetFeatureNormalsV() const { return m_featureNormals; }
    [[nodiscard]] const std::vector<CPointFeatureHistogram>& GetFeaturesV() const { return m_features; }
    [[nodiscard]] std::size_t GetNumPoints() const { return m_points.size(); }
    [[nodiscard]] std::size_t GetNumFeatures() const { return m_numFeatures; }
    [[nodiscard]] double GetGridSize() const { return m_gridSize; }
    [[nodiscard]] double GetFeatureGridSize() const { return m_featureGridSize; }
    /// Whether masks were ever given since the last `Clear`.
    [[nodiscard]] bool UsesMasks() const { return m_usesMasks; }

private:
    /// @return  from which feature point on they are new
    std::size_t replaceContentsOfDirtyBBoxes(const detail::Surface& points, const detail::Surface& featurePoints);
    void removeContentsOfDirtyBBoxes(const CDirtyBoxes& boxes);
    void resizeHistograms();
    void logTime(const wchar_t* what, double seconds) const;

    /// @return  false when the hooks stop it
    bool computeFeatures(std::size_t from, const Zorvan::Hooks& hooks);
    bool computeFeatures_CPU(std::size_t from, const Zorvan::Hooks& hooks);
    bool computeFeatures_GPU(std::size_t from, const Zorvan::Hooks& hooks);
    void rejectIrregularPoints();
    void invalidateFeatures(std::size_t from);
    void computeSimplified(detail::CNeighbourhood& neighbourhood, std::size_t i);
    void computeFeature(detail::CNeighbourhood& neighbourhood, std::size_t i);
    void moveInvalidFeaturesBack();
    void maskPlanarRegions(std::size_t first, std::size_t last, float threshold, float radius, unsigned int mask);

    std::shared_ptr<GPUContext> m_gpu;
    unsigned int m_numTasks;
    double m_featureRadius;
    double m_gridSize;
    double m_featureGridSize;
    CDirtyMap m_dirtyMap;
    Vectors m_points;
    Vectors m_normals;
    std::vector<unsigned int> m_masks;
    Vectors m_featurePoints;
    Vectors m_featureNormals;
    std::vector<unsigned int> m_featureMasks;
    std::vector<SimplifiedHistogram> m_simplified;
    std::vector<CPointFeatureHistogram> m_features;
    bool m_updatable = true;
    std::size_t m_numFeatures = 0;
    bool m_usesMasks = false;
};

} // namespace prereg
