// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/tkdtree.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/crangeimage.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/verdict/viewingray.h"

#include <optional>
#include <span>
#include <vector>

namespace prereg {

/// What the caller knows of a scan's sensor; what is left out is measured.
struct SensorKnowledge
{
    bool isSurface = false;                          ///< a mesh or model: it has no sensor, nothing was looked through
    std::optional<kdtree::Vector<3>> position = {};  ///< of the sensor, in coordinates of the scan, mm
    std::optional<kdtree::Vector<3>> direction = {}; ///< towards the sensor, any length; the position goes first
    bool isEven = false;                             ///< points in equal steps, made from those of a spinning sensor
};

/// All that judging and proposing poses wants to know about one scan, measured once: noise, spacing, viewing ray, and
/// the scan as its sensor saw it.
///
///     const CScanView view(scan);             // 20 ms for 30,000 points
///     view.GetSampling().dNoise;              // mm
///     if (view.HasImage()) view.GetImage();   // what lies in front of it, or is missing, can be asked
///
/// Keeps copies of what it needs. Immutable, safe to read from any thread; the same scan gives the same view.
class ZORVAN_API CScanView
{
public:
    /// @param scan  normals have unit length; points that are not finite are passed over
    explicit CScanView(const IPointSet& scan, const SensorKnowledge& knowledge = {});

    [[nodiscard]] std::size_t GetNumPoints() const { return m_numPoints; }
    [[nodiscard]] const ScanSampling& GetSampling() const { return m_sampling; }
    /// The points lie in equal steps, as the caller knows.
    [[nodiscard]] bool IsEven() const { return m_isEven; }
    [[nodiscard]] const ViewingRay& GetRay() const { return m_ray; }
    /// Share of the scan's outline that holds surface; 0 without an image.
    [[nodiscard]] double GetCompleteness() const { return HasImage() ? GetImage().GetCompleteness() : 0.0; }
    /// The mean of its points, mm.
    [[nodiscard]] const kdtree::Vector<3>& GetMiddle() const { return m_middle; }
    /// Root mean square distance of the points from their middle, mm.
    [[nodiscard]] double GetRadius() const { return m_radius; }

    [[nodiscard]] bool HasImage() const { return !m_images.empty(); }
    /// Along the ray. @throws std::logic_error without an image
    [[nodiscard]] const CRangeImage& GetImage() const;
    /// Of a guessed ray that and four more, tilted about it: what a contradiction must hold in. Else the one, or none.
    [[nodiscard]] std::span<const CRangeImage> GetImages() const { return m_images; }
    /// Of a scan without an image: its points and normals, and a tree over the points. Else empty.
    [[nodiscard]] const Zorvan::TKdTree<3, 48>& GetTree() const { return m_tree; }
    [[nodiscard]] const Vectors& GetPoints() const { return m_points; }
    [[nodiscard]] const Vectors& GetNormals() const { return m_normals; }

private:
    void setMiddle(const Vectors& points);
    void setRay(const IPointSet& scan, const SensorKnowledge& knowledge);
    void makeImages(const IPointSet& scan);

    std::size_t m_numPoints = 0;
    bool m_isEven = false;
    ScanSampling m_sampling;
    ViewingRay m_ray;
    kdtree::Vector<3> m_middle;
    double m_radius = 0.0;
    std::vector<CRangeImage> m_images;
    Zorvan::TKdTree<3, 48> m_tree;
    Vectors m_points;
    Vectors m_normals;
};

/// How far apart two poses put a scan: root mean square over its points, mm.
[[nodiscard]] ZORVAN_API double DistanceOfPoses(const CScanView& scan, const CTrafo& a, const CTrafo& b);

} // namespace prereg
