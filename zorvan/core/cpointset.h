// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/ellipsoid.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace prereg {

using Vectors = std::vector<kdtree::Vector<3>>;

/// Read access to a cloud of surfels (a point with a normal) and its k-d tree.
class ZORVAN_API IPointSet
{
public:
    virtual ~IPointSet();
    [[nodiscard]] virtual const Vectors& GetPoints() const = 0;
    [[nodiscard]] virtual const Vectors& GetNormals() const = 0;
    [[nodiscard]] virtual kdtree::Vector<3> GetPoint(std::size_t i) const = 0;  ///< unchecked
    [[nodiscard]] virtual kdtree::Vector<3> GetNormal(std::size_t i) const = 0; ///< unchecked
    [[nodiscard]] virtual const Zorvan::TKdTree<3, 48>& GetKdTree() const = 0;
    [[nodiscard]] virtual std::pair<kdtree::Vector<3>, kdtree::Vector<3>> GetAABB() const = 0;
    [[nodiscard]] virtual std::size_t GetMemUsage() const = 0;
    [[nodiscard]] virtual std::size_t Size() const = 0;
    [[nodiscard]] virtual bool Empty() const = 0;

protected:
    IPointSet() = default;
    IPointSet(const IPointSet&) = default;
    IPointSet(IPointSet&&) = default;
    IPointSet& operator=(const IPointSet&) = default;
    IPointSet& operator=(IPointSet&&) = default;
};

/// The unit of registration: points (mm), one normal each, a k-d tree over the points and their covariance ellipsoid,
/// always in step. Immutable but for the bit masks; const operations are safe from several threads.
///
///     const prereg::CPointSet fix(fixPoints.data(), fixNormals.data(), fixPoints.size());
///     const prereg::CPointSet flt(fltPoints.data(), fltNormals.data(), fltPoints.size());
///     std::mt19937 rng(47110815);
///     const auto result = fix.ComputeICPRegistration({}, rng, flt, roughPose, nullptr, false);
///     if (result) use(result.GetTrafo());
///
/// A point that is not finite stays in the set but not in its tree; a set of nothing else becomes empty.
class ZORVAN_API CPointSet : public IPointSet
{
public:
    /// Copies n points and n normals. Normals are not checked to be of unit length.
    CPointSet(const kdtree::Vector<3>* points, const kdtree::Vector<3>* normals, std::size_t n);

    [[nodiscard]] const Vectors& GetPoints() const override { return m_points; }
    [[nodiscard]] const Vectors& GetNormals() const override { return m_normals; }
    [[nodiscard]] kdtree::Vector<3> GetPoint(std::size_t i) const override { return m_points[i]; }
    [[nodiscard]] kdtree::Vector<3> GetNormal(std::size_t i) const override { return m_normals[i]; }
    [[nodiscard]] const Zorvan::TKdTree<3, 48>& GetKdTree() const override { return m_kdTree; }
    /// Low and high corner of the finite points; (+Inf, -Inf) when there are none.
    [[nodiscard]] std::pair<kdtree::Vector<3>, kdtree::Vector<3>> GetAABB() const override;
    /// Bytes of tree, points and normals; bit masks do not count.
    [[nodiscard]] std::size_t GetMemUsage() const override;
    [[nodiscard]] std::size_t Size() const override { return m_points.size(); }
    [[nodiscard]] bool Empty() const override { return m_points.empty(); }

    virtual void ClearCaches() {} ///< nothing to clear here; derived classes may hold caches
    /// Gives every point the mask `value`.
    virtual void InitializeBitMasks(unsigned value);
    virtual void ClearBitMasks();
    [[nodiscard]] bool HasBitMasks() const { return !m_bitMasks.empty(); }
    /// 0 without masks. @throws std::out_of_range "invalid vector<T> subscript" past the end of the masks
    [[nodiscard]] unsigned GetBitMask(std::size_t i) const;
    [[nodiscard]] std::vector<unsigned> GetBitMasks() const { return m_bitMasks; }

    [[nodiscard]] const Ellipsoid& GetEllipsoid() const { return m_ellipsoid; }

    /// Writes a line a point: x y z nx ny nz, and r g b of `color` (0xRRGGBB) unless that is 0xFFFFFFFF.
    /// @throws std::invalid_argument "empty file name"; std::ios_base::failure when writing fails
    void SaveXYZN(const std::string& file, unsigned color) const;

    /// Pairwise ICP with this set fixed; see the free function of the same name.
    [[nodiscard]] ICPResult ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng,
                                                   const CPointSet& flt, const CTrafo& initial, const CTrafo* oracle,
                                                   bool flag) const;

    /// Distance of p (mm) along the normal of the nearest point, positive on the side the normal points to; NaN when no
    /// point lies nearer than `maxDistance`.
    [[nodiscard]] float SignedDistance(const kdtree::Vector<3>& p, float maxDistance) const;

    /// Area of this set (mm^2) that lies within `queryRadius` of `other` moved by `trafo`, summed from the Voronoi
    /// areas of the points, each estimated from its neighbours within `voronoiRadius`.
    /// @return exactly 0 when the sets do not meet; +Infinity as soon as the area passes `maxArea`
    [[nodiscard]] float EstimateOverlapArea(const CPointSet& other, const CTrafo& trafo, float queryRadius,
                                            float voronoiRadius, float maxArea) const;

protected:
    CPointSet() = default;
    CPointSet(const CPointSet&) = default;
    CPointSet(CPointSet&&) = default;
    CPointSet& operator=(const CPointSet&) = default;
    CPointSet& operator=(CPointSet&&) = default;
    CPointSet(Vectors points, Vectors normals, std::vector<unsigned> bitMasks = {});

    /// Surfels inside `count` half-spaces: dot(p, normal[k]) <= offset[k]; normals are `count` rows of 3 floats.
    [[nodiscard]] static std::pair<Vectors, Vectors> filterSurfelsWithInequalities(const float* normals,
                                                                                   const float* offsets, unsigned count,
                                                                                   const Vectors& points,
                                                                                   const Vectors& pointNormals);
    /// Indices of the points that pass the same test, ascending.
    [[nodiscard]] static std::vector<int> identifyMatchingIndices(const float* normals, const float* offsets,
                                                                  unsigned count, const Vectors& points);
    /// Points, normals and masks of the surfels whose mask holds all bits of `mask`, or does not with `invert`. Three
    /// empty vectors without masks or for mask 0.
    [[nodiscard]] std::tuple<Vectors, Vectors, std::vector<unsigned>> filterSurfelsWithMask(unsigned mask,
                                                                                            bool invert) const;
    [[nodiscard]] std::pair<Vectors, Vectors>
    filterSurfelsWithPredicate(const std::function<bool(const kdtree::Vector<3>&)>& predicate) const;
    /// Points and normals times s, lane by lane; normals are not renormalised. Empty when either input is.
    [[nodiscard]] static std::pair<Vectors, Vectors> scaleSurfels(const kdtree::Vector<3>& s, const Vectors& points,
                                                                  const Vectors& normals);
    /// Points moved, normals rotated. Empty when either input is.
    [[nodiscard]] static std::pair<Vectors, Vectors> transformSurfels(const CTrafo& t, const Vectors& points,
                                                                      const Vectors& normals);
    /// Surface area (mm^2) around one point from its four nearest neighbours; 0 with fewer of them within the radius.
    [[nodiscard]] double estimateLocalVoronoiArea(std::size_t index, float radiusSq) const;

    void rebuildKdTree();
    void rebuildEllipsoid();

    Vectors m_points;
    Vectors m_normals;
    std::vector<unsigned> m_bitMasks;
    Zorvan::TKdTree<3, 48> m_kdTree;
    Ellipsoid m_ellipsoid;

private:
    [[nodiscard]] CPointSet filterPointSet(const float* normals, const float* offsets, unsigned count) const;
};

} // namespace prereg
