// SPDX-License-Identifier: MIT
#include "zorvan/scans/normals.h"

#include "zorvan/scans/ringsurface.h"
#include "zorvan/scans/smoothnormals.h"
#include "zorvan/scans/spacing.h"
#include "zorvan/scans/spunsensor.h"

#include <Eigen/Eigenvalues>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <vector>

namespace Zorvan {

namespace {

constexpr int iNeighbours = 12;
constexpr std::size_t uiFewestNeighbours = 5;
constexpr double dReach = 6.0;         // of the spacing; further points belong to another surface
constexpr double dLineRatio = 1e-3;    // second to largest spread; below it any plane through the line fits
constexpr double dSurfaceRatio = 0.05; // above it the plane is held: rasters have 0.2 and more, also at their ends
constexpr int iMaxWidenings = 3; // to twice the neighbours and the reach: rings 20 times sparser across are spanned
constexpr double dAwayShare = 0.7;
constexpr double dSmoothing = 1.0 / 200; // of the extent; see smoothDenseNormals
constexpr double dDense = 1.0 / 4;       // edges to smoothing

Vector3 towardSensor(const Vector3& p, const Sensor& sensor) { return sensor ? *sensor - p : Vector3(0, 0, 1); }

Eigen::Vector3d toEigen(const Vector3& v) { return {v.x, v.y, v.z}; }

// Twice the area long. In double: the coordinates may be far larger than the face.
Eigen::Vector3d areaVector(const Scan& scan, const Face& face)
{
    const Eigen::Vector3d a = toEigen(scan.points[face[0]]);
    return (toEigen(scan.points[face[1]]) - a).cross(toEigen(scan.points[face[2]]) - a);
}

Vector3 normalOf(const Eigen::Vector3d& v)
{
    const double length = v.norm();
    if (!(length > 0.0)) return {};
    return {static_cast<float>(v.x() / length), static_cast<float>(v.y() / length), static_cast<float>(v.z() / length)};
}

/// Plane fits over one cloud. The scratch lists are kept between points.
class CPlaneFitter
{
public:
    CPlaneFitter(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree, double radius)
        : m_points(points), m_tree(tree), m_radiusSq(ToFloat(radius * radius))
    {
    }

    /// Neighbours that form a line hold no plane: more of them are asked then, until they span a surface. Where none
    /// do, the nearest ones decide.
    [[nodiscard]] Vector3 FitAt(const Vector3& p)
    {
        const Fit nearest = fit(p, 0);
        Fit wide = nearest;
        for (int i = 1; i <= iMaxWidenings && wide.isLine(dSurfaceRatio); ++i) wide = fit(p, i);
        if (!wide.isLine(dSurfaceRatio)) return wide.normal;
        return nearest.isLine(dLineRatio) ? Vector3() : nearest.normal;
    }

private:
    struct Fit
    {
        Vector3 normal;
        double dRatio = 0.0; ///< second to largest spread

        [[nodiscard]] bool isLine(double ratio) const { return !(dRatio > ratio); }
    };

    [[nodiscard]] Fit fit(const Vector3& p, int widenings)
    {
        m_tree.FindKNearest(p, m_found, iNeighbours << widenings, std::ldexp(m_radiusSq, 2 * widenings));
        if (m_found.size() < uiFewestNeighbours) return {{}, 1.0}; // alone: what lies further off is another surface
        const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(covarianceAround(p));
        const Eigen::Vector3d& spread = solver.eigenvalues(); // ascending
        if (!(spread[2] > 0.0)) return {};
        return {normalOf(solver.eigenvectors().col(0)), spread[1] / spread[2]};
    }

    // Differences to p first, so that the sums keep their digits far away from the origin.
    [[nodiscard]] Eigen::Matrix3d covarianceAround(const Vector3& p) const
    {
        Eigen::Vector3d sum = Eigen::Vector3d::Zero();
        Eigen::Matrix3d squares = Eigen::Matrix3d::Zero();
        for (const Zorvan::IndexAndDist& hit : m_found) {
            const Eigen::Vector3d d = toEigen(m_points[hit.index] - p);
            sum += d;
            squares += d * d.transpose();
        }
        const auto count = static_cast<double>(m_found.size());
        return squares / count - (sum / count) * (sum / count).transpose();
    }

    const prereg::Vectors& m_points;
    const Zorvan::TKdTree<3, 48>& m_tree;
    float m_radiusSq;
    std::vector<Zorvan::IndexAndDist> m_found;
};

double meanEdge(const Scan& scan)
{
    double sum = 0.0;
    for (const Face& face : scan.faces) {
        sum += static_cast<double>((scan.points[face[1]] - scan.points[face[0]]).Length());
    }
    return sum / static_cast<double>(scan.faces.size());
}

double extentOf(const prereg::Vectors& points)
{
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Vector3& p : points) box = {kdtree::Min(box.low, p), kdtree::Max(box.high, p)};
    return static_cast<double>((box.high - box.low).Length());
}

// On a scan so dense that its noise is as large as its edges, the faces point anywhere: 4,000,000 points with a noise
// of 0.01 mm did not align. Coarser meshes keep their normals.
void smoothDenseNormals(Scan& scan)
{
    const double cell = extentOf(scan.points) * dSmoothing;
    if (meanEdge(scan) < dDense * cell) SmoothNormals(scan.points, cell, scan.normals);
}

} // namespace

prereg::Vectors NormalsFromFaces(const Scan& scan, const Sensor& sensor)
{
    std::vector<Eigen::Vector3d> sums(scan.points.size(), Eigen::Vector3d::Zero());
    double total = 0.0;
    double away = 0.0;
    for (const Face& face : scan.faces) {
        const Eigen::Vector3d area = areaVector(scan, face);
        for (const std::uint32_t corner : face) sums[corner] += area;
        total += area.norm();
        if (area.dot(toEigen(towardSensor(scan.points[face[0]], sensor))) < 0.0) away += area.norm();
    }
    const double side = away > dAwayShare * total ? -1.0 : 1.0;
    prereg::Vectors normals;
    normals.reserve(sums.size());
    for (const Eigen::Vector3d& sum : sums) normals.push_back(normalOf(side * sum));
    return normals;
}

namespace {

prereg::Vectors normalsFromPlaneFit(const prereg::Vectors& points, const Zorvan::TKdTree<3, 48>& tree,
                                    const Sensor& sensor)
{
    CPlaneFitter fitter(points, tree, dReach * MedianSpacing(points, tree));
    prereg::Vectors normals;
    normals.reserve(points.size());
    for (const Vector3& p : points) {
        const Vector3 n = fitter.FitAt(p);
        normals.push_back(kdtree::Dot(n, towardSensor(p, sensor)) < 0.0F ? -n : n);
    }
    return normals;
}

/// Rings that lie on surfaces of their own say nothing of what lies between them.
bool areMostHeld(const prereg::Vectors& normals)
{
    const auto isHeld = [](const Vector3& n) { return n.LengthSq() > 0.0F; };
    return 2 * std::ranges::count_if(normals, isHeld) >= std::ssize(normals);
}

} // namespace

prereg::Vectors NormalsFromPlaneFit(const prereg::Vectors& points, const Sensor& sensor)
{
    return normalsFromPlaneFit(points, {points.data(), points.size()}, sensor);
}

ENormalSource ComputeNormals(Scan& scan, const Sensor& sensor)
{
    if (!scan.faces.empty()) {
        scan.normals = NormalsFromFaces(scan, sensor);
        smoothDenseNormals(scan);
        return ENormalSource::Faces;
    }
    const Zorvan::TKdTree<3, 48> tree(scan.points.data(), scan.points.size());
    Sensor place = sensor;
    const auto origin = [&](std::size_t k) { return ToFloat(-scan.shift[k]); };
    if (!place && IsSpunAboutOrigin(scan.points, tree)) {
        scan.sensor = FramePose{{-scan.shift[0], -scan.shift[1], -scan.shift[2]}};
        place = Vector3(origin(0), origin(1), origin(2));
        if (const auto rings = FindRings(scan.points, *place)) {
            scan.normals = CRingSurface(*rings).NormalsOf(scan.points.size());
            if (areMostHeld(scan.normals)) return ENormalSource::PlaneFit;
        }
    }
    scan.normals = normalsFromPlaneFit(scan.points, tree, place);
    return ENormalSource::PlaneFit;
}

} // namespace Zorvan
