// SPDX-License-Identifier: MIT
// How much of a set's surface another set covers.

#include "zorvan/core/bloomfilter.h"
#include "zorvan/core/cpointset.h"
#include "zorvan/core/orientedbox.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Vector3d = std::array<double, 3>;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr std::size_t numNeighbours = 5; // the point itself and four around it
constexpr auto pi = static_cast<float>(180 * 0.0174532925199433);
constexpr double falsePositiveRate = 0.001;
constexpr std::uint64_t maxFilterBits = 0x80000;

Vector3d widen(const Vector3& v) { return {v.x, v.y, v.z}; }
Vector3d operator-(const Vector3d& a, const Vector3d& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Vector3d operator*(const Vector3d& a, double s) { return {a[0] * s, a[1] * s, a[2] * s}; }
double dot(const Vector3d& a, const Vector3d& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double length(const Vector3d& a) { return std::sqrt(dot(a, a)); }

Vector3d cross(const Vector3d& a, const Vector3d& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

struct Spoke
{
    double angle;
    Vector3d half; // half way to the neighbour
};

// The angle is measured without a side, in [0, pi]: two neighbours on opposite sides of the first may share one. Areas
// that hosts have tuned their limits to depend on it.
std::array<Spoke, 4> spokesAround(const Vector3d& p0, const Vector3d& normal, const std::array<Vector3d, 4>& neighbours)
{
    const Vector3d n = normal * (1 / length(normal));
    const double d0 = dot(p0, normal) / length(normal);
    std::array<Spoke, 4> spokes{};
    Vector3d u1{};
    for (std::size_t k = 0; k < neighbours.size(); ++k) {
        const Vector3d& p = neighbours[k];
        const Vector3d u = p - n * (dot(p, n) - d0) - p0;
        if (k == 0)
            u1 = u;
        else
            spokes[k].angle = std::atan2(length(cross(u, u1)), dot(u1, u));
        spokes[k].half = (p - p0) * 0.5;
    }
    return spokes;
}

bool isNear(const std::pair<Vector3, Vector3>& box, const Vector3& p, float distance)
{
    for (unsigned i = 0; i < 3; ++i) {
        if (p[i] < box.first[i] - distance || p[i] > box.second[i] + distance) return false;
    }
    return true;
}

} // namespace

double CPointSet::estimateLocalVoronoiArea(std::size_t index, float radiusSq) const
{
    std::vector<Zorvan::IndexAndDist> nearest;
    m_kdTree.FindKNearest(m_points[index], nearest, numNeighbours, radiusSq);
    if (nearest.size() < numNeighbours) return 0;

    const Vector3d p0 = widen(m_points[nearest[0].index]);
    std::array<Vector3d, 4> neighbours{};
    for (std::size_t k = 0; k < neighbours.size(); ++k) neighbours[k] = widen(m_points[nearest[k + 1].index]);
    auto spokes = spokesAround(p0, widen(m_normals[nearest[0].index]), neighbours);
    std::stable_sort(spokes.begin(), spokes.end(), [](const Spoke& a, const Spoke& b) { return a.angle < b.angle; });

    double area = 0;
    for (std::size_t i = 0; i < spokes.size(); ++i) {
        const Spoke& next = spokes[(i + 1) % spokes.size()];
        if (pi > next.angle - spokes[i].angle) area += length(cross(spokes[i].half, next.half));
    }
    return area;
}

float CPointSet::EstimateOverlapArea(const CPointSet& other, const CTrafo& trafo, float queryRadius,
                                     float voronoiRadius, float maxArea) const
{
    const OrientedBox otherBox = OrientedBox::FromCorners(other.GetAABB()).Moved(trafo);
    if (Empty() || other.Empty() || !Overlap(OrientedBox::FromCorners(GetAABB()), otherBox)) return 0;
    const BoxInequalities faces = FacesOf(otherBox);
    const CPointSet common = filterPointSet(faces.normals.data(), faces.offsets.data(), 6);
    if (common.Empty()) return 0;

    // A Bloom filter instead of a set: flat and at most 64 KiB; its false positives lower the area by about 0.1 %.
    BloomFilter seen(common.Size(), falsePositiveRate, maxFilterBits);
    const auto box = common.GetAABB();
    std::vector<unsigned> indices;
    double sum = 0;
    for (const auto& point : other.GetPoints()) {
        const Vector3 p = trafo * point;
        if (!isNear(box, p, queryRadius)) continue;
        indices.clear();
        common.GetKdTree().FindInBall(indices, {p, queryRadius * queryRadius});
        for (const unsigned index : indices) {
            if (seen.Contains(index)) continue;
            sum += common.estimateLocalVoronoiArea(index, voronoiRadius * voronoiRadius);
            if (sum > maxArea) {
                logger.Trace(L"Estimated overlap area exceeds given maximum (%.1f mm2)", maxArea);
                return std::numeric_limits<float>::infinity();
            }
            seen.Insert(index);
        }
    }
    logger.Trace(L"Estimated overlap area: %.1f mm2, points in OBB: %zi", sum, common.Size());
    return static_cast<float>(sum);
}

} // namespace prereg
