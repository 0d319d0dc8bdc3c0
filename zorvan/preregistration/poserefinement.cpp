#include "zorvan/preregistration/poserefinement.h"

#include "zorvan/numerics/packedldlt.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {

namespace {

using kdtree::Vector;
using Plane = CProjectedSurface::Plane;

constexpr float facing = 0.4F;     // a surface as steep as this may be missing from a scan
constexpr float minPixels = 2.5F;  // outside the silhouette
constexpr float minEdgeCos = 0.8F; // of edges that match: pixels make directions coarse

/// The side that shows what has this normal best.
const CProjectedSurface& sideFor(const MatchedScan& scan, const Vector<3>& normal)
{
    std::size_t best = 0;
    for (std::size_t k = 1; k < scan.sides.size(); ++k)
        if (kdtree::Dot(scan.sides[k].Direction(), normal) > kdtree::Dot(scan.sides[best].Direction(), normal))
            best = k;
    return scan.sides[best];
}

/// What a sample means that does not match.
void countAgainst(MatchCounts& counts, const CRangeImage& image, const Vector<3>& p, const Vector<3>& n, float inFront)
{
    const Vector<3> q = image.GetFrame() * p;
    const CRangeImage::Pixel at = image.PixelAt(q);
    if (image.IsInFront(at, q.z - inFront)) {
        ++counts.iInFront;
    } else if (image.GetFrame().Rotate(n).z > facing && image.IsMissing(at, q.z, minPixels)) {
        ++counts.iUnseen;
    }
}

void countInto(MatchCounts& counts, const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
               const MatchLimits& limits)
{
    const std::size_t count = std::min(limits.uiSamples, samples.points.size());
    for (std::size_t i = 0; i < count; ++i) {
        const auto [p, n] = pose.Transform(samples.points[i], samples.normals[i]);
        const CProjectedSurface& side = sideFor(seen, n);
        const Plane& plane = side.PlaneAt(side.PixelOf(p));
        const float distance = plane.DistanceOf(p);
        if (std::abs(distance) < limits.tolerance && kdtree::Dot(plane.Normal(), n) > limits.minCos) {
            ++counts.iMatched;
            counts.fSumSquares += distance * distance;
        } else if (seen.hasSensor) {
            countAgainst(counts, side.Image(), p, n, limits.inFront);
        }
    }
}

/// The edge of the other scan on which a moved one lies.
struct EdgeMatch
{
    const SurfaceEdge* edge = nullptr; ///< null: none
    bool isOtherFace = false;          ///< each scan sees the face on its own side of the edge
};

EdgeMatch matchingEdge(const MatchedScan& seen, const SurfaceEdge& moved, float tolerance)
{
    const CProjectedSurface& side = sideFor(seen, moved.normal);
    const int index = side.EdgeAt(side.PixelOf(moved.point));
    if (index < 0) return {};
    const SurfaceEdge& edge = seen.edges[static_cast<std::size_t>(index)];
    const Vector<3> d = moved.point - edge.point;
    if (std::abs(kdtree::Dot(d, edge.outward)) > tolerance || std::abs(kdtree::Dot(d, edge.normal)) > tolerance)
        return {};
    if (kdtree::Dot(edge.outward, moved.outward) > minEdgeCos && kdtree::Dot(edge.normal, moved.normal) > minEdgeCos)
        return {&edge, false};
    if (kdtree::Dot(edge.outward, moved.normal) > minEdgeCos && kdtree::Dot(edge.normal, moved.outward) > minEdgeCos)
        return {&edge, true};
    return {};
}

SurfaceEdge movedBy(const CTrafo& pose, const SurfaceEdge& edge)
{
    return {pose * edge.point, pose.Rotate(edge.normal), pose.Rotate(edge.outward)};
}

void countEdges(MatchCounts& counts, const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
                float tolerance)
{
    for (std::size_t i = 0; i < samples.uiEdgeSamples; ++i)
        counts.iEdges += matchingEdge(seen, movedBy(pose, samples.edges[i]), tolerance).edge != nullptr;
}

/// Normal equations of a small motion of the floating scan, in coordinates of the fixed one about a centre.
class CMotionEquations
{
public:
    CMotionEquations(const Vector<3>& centre, float radius) : m_centre(centre), m_perRadius(1.0F / radius) {}

    /// What lies at p is to move by -distance along n.
    void Add(const Vector<3>& p, const Vector<3>& n, float distance)
    {
        const Vector<3> lever = m_perRadius * kdtree::Cross(p - m_centre, n);
        const std::array<float, 6> row = {lever.x, lever.y, lever.z, n.x, n.y, n.z};
        std::size_t k = 0;
        for (std::size_t i = 0; i < 6; ++i) {
            for (std::size_t j = 0; j <= i; ++j) m_a[k++] += row[i] * row[j];
            m_b[i] -= row[i] * distance;
        }
        ++m_count;
    }

    /// The motion that solves them, damped by a hundredth, so that what nothing holds stays; identity with too few
    /// rows.
    [[nodiscard]] CTrafo Solve() const
    {
        constexpr float damping = 0.01F;
        constexpr int fewest = 6;
        if (m_count < fewest) return {};
        std::array<double, 21> a{};
        std::array<double, 6> b{};
        std::array<double, 6> work{};
        std::copy(m_a.begin(), m_a.end(), a.begin());
        std::copy(m_b.begin(), m_b.end(), b.begin());
        for (std::size_t i = 0; i < 6; ++i)
            a[i * (i + 3) / 2] += static_cast<double>(damping * static_cast<float>(m_count));
        if (!Zorvan::symsolvers::LDLtFactor(a.data(), 6, work.data())) return {};
        Zorvan::symsolvers::LDLtSolve(a.data(), b.data(), 6);
        const double half = 0.5 * static_cast<double>(m_perRadius);
        const CTrafo turn(Quaternion(1.0, half * b[0], half * b[1], half * b[2]).GetNormalized(), {});
        const Vector<3> shift(static_cast<float>(b[3]), static_cast<float>(b[4]), static_cast<float>(b[5]));
        return turn.Translate(m_centre - turn.Rotate(m_centre) + shift);
    }

private:
    Vector<3> m_centre;
    float m_perRadius;
    std::array<float, 21> m_a{};
    std::array<float, 6> m_b{};
    int m_count = 0;
};

/// Calls add(seen direction, moved point, sample, distance) for each sample, and each edge, that finds its plane.
template <class Add>
void forEachRow(const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
                const RefinementSettings& settings, float tolerance, const Add& add)
{
    const std::size_t count = std::min(settings.uiSamples, samples.points.size());
    for (std::size_t i = 0; i < count; ++i) {
        const auto [p, n] = pose.Transform(samples.points[i], samples.normals[i]);
        const CProjectedSurface& side = sideFor(seen, n);
        const Plane& plane = side.PlaneAt(side.PixelOf(p));
        const float distance = plane.DistanceOf(p);
        if (std::abs(distance) < tolerance && kdtree::Dot(plane.Normal(), n) > settings.minCos)
            add(plane.Normal(), p, samples.points[i], distance);
    }
    for (std::size_t i = 0; i < samples.uiEdgeSamples; ++i) {
        const SurfaceEdge moved = movedBy(pose, samples.edges[i]);
        const auto [edge, isOtherFace] = matchingEdge(seen, moved, tolerance);
        if (edge == nullptr) continue;
        const Vector<3> d = moved.point - edge->point;
        add(edge->outward, moved.point, samples.edges[i].point, kdtree::Dot(d, edge->outward));
        if (isOtherFace) add(edge->normal, moved.point, samples.edges[i].point, kdtree::Dot(d, edge->normal));
    }
}

Vector<3> middleOf(const Vectors& points)
{
    Vector<3> sum;
    for (const Vector<3>& p : points) sum = sum + p;
    return points.empty() ? sum : (1.0F / static_cast<float>(points.size())) * sum;
}

} // namespace

MatchCounts CountMatches(const MatchedScan& fix, const MatchedScan& flt, const CTrafo& pose, const MatchLimits& limits)
{
    MatchCounts counts;
    const CTrafo back = pose.GetInverse(true);
    countInto(counts, fix, flt, pose, limits);
    countInto(counts, flt, fix, back, limits);
    if (limits.edgeTolerance > 0.0F) {
        countEdges(counts, fix, flt, pose, limits.edgeTolerance);
        countEdges(counts, flt, fix, back, limits.edgeTolerance);
    }
    return counts;
}

CTrafo RefinePose(const MatchedScan& fix, const MatchedScan& flt, const CTrafo& start,
                  const RefinementSettings& settings)
{
    CTrafo pose = start;
    const Vector<3> centre = middleOf(fix.points);
    const float steps = static_cast<float>(std::max(2U, settings.uiPasses) - 1);
    const float narrowing = std::pow(settings.last / settings.first, 1.0F / steps);
    float tolerance = settings.first;
    for (unsigned pass = 0; pass < settings.uiPasses; ++pass) {
        CMotionEquations equations(centre, settings.radius);
        forEachRow(fix, flt, pose, settings, tolerance,
                   [&](const Vector<3>& n, const Vector<3>& moved, const Vector<3>&, float distance) {
                       equations.Add(moved, n, distance);
                   });
        // Here the floating scan has the planes: it is they that move, and not the samples.
        forEachRow(flt, fix, pose.GetInverse(true), settings, tolerance,
                   [&](const Vector<3>& n, const Vector<3>&, const Vector<3>& sample, float distance) {
                       equations.Add(sample, pose.Rotate(n), -distance);
                   });
        pose = equations.Solve() * pose;
        tolerance *= narrowing;
    }
    return pose;
}

} // namespace prereg
