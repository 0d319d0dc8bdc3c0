// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/poserefinement.h"

#include "zorvan/numerics/packedldlt.h"
#include "zorvan/platform/simd.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {

namespace {

using kdtree::Vector;
namespace simd = Zorvan::simd;
using Plane = CProjectedSurface::Plane;

constexpr float facing = 0.4F;     // a surface as steep as this may be missing from a scan
constexpr float minPixels = 2.5F;  // outside the silhouette
constexpr float minEdgeCos = 0.8F; // of edges that match: pixels make directions coarse

Vector<3> toVector(simd::Float4 v)
{
    Vector<3> out;
    v.Store(&out.x);
    return out;
}

/// The side that shows what has this normal best.
const CProjectedSurface& sideFor(const MatchedScan& scan, simd::Float4 normal)
{
    std::size_t best = 0;
    if (scan.sides.size() == 1) return scan.sides[best];
    const Vector<3> n = toVector(normal);
    for (std::size_t k = 1; k < scan.sides.size(); ++k)
        if (kdtree::Dot(scan.sides[k].Direction(), n) > kdtree::Dot(scan.sides[best].Direction(), n)) best = k;
    return scan.sides[best];
}

/// A sample of one scan, moved, over what the other one shows in its place.
struct Projection
{
    Projection(const MatchedScan& seen, const LaneMotion& motion, const Vector<3>& sample, const Vector<3>& direction)
        : point(motion.Point(LaneMotion::toLanes(sample))),
          normal(motion.Direction(LaneMotion::toLanes(direction))),
          side(sideFor(seen, normal)),
          plane(side.PlaneAt(side.PixelOf(point))),
          distance(simd::Sum3(plane.Lanes() * point) - plane.offset)
    {
    }
    [[nodiscard]] bool Matches(float tolerance, float minCos) const
    {
        return std::abs(distance) < tolerance && simd::Sum3(plane.Lanes() * normal) > minCos;
    }

    simd::Float4 point;
    simd::Float4 normal;
    const CProjectedSurface& side;
    const Plane& plane;
    float distance;
};

/// What a sample means that does not match.
void countAgainst(MatchCounts& counts, const Projection& sample, float inFront)
{
    const CRangeImage& image = sample.side.Image();
    const Vector<3> q = image.GetFrame() * toVector(sample.point);
    const CRangeImage::Pixel at = image.PixelAt(q);
    if (image.IsInFront(at, q.z - inFront)) {
        ++counts.iInFront;
    } else if (kdtree::Dot(sample.side.Direction(), toVector(sample.normal)) > facing &&
               image.IsMissing(at, q.z, minPixels) && !image.IsInGap(at)) {
        ++counts.iUnseen;
    }
}

void countInto(MatchCounts& counts, const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
               const MatchLimits& limits)
{
    const LaneMotion motion(pose);
    const std::size_t count = std::min(limits.uiSamples, samples.points.size());
    for (std::size_t i = 0; i < count; ++i) {
        if (counts.iInFront + counts.iUnseen > limits.iMostAgainst) return;
        const Projection sample(seen, motion, samples.points[i], samples.normals[i]);
        if (sample.Matches(limits.tolerance, limits.minCos)) {
            ++counts.iMatched;
            counts.fSumSquares += sample.distance * sample.distance;
        } else if (seen.hasSensor) {
            countAgainst(counts, sample, limits.inFront);
        }
    }
}

/// The edge of the other scan on which a moved one lies.
struct EdgeMatch
{
    const SurfaceEdge* edge = nullptr; ///< null: none
    Vector<3> point;                   ///< of the moved one
    bool isOtherFace = false;          ///< each scan sees the face on its own side of the edge
};

EdgeMatch matchingEdge(const MatchedScan& seen, const LaneMotion& motion, const SurfaceEdge& sample, float tolerance)
{
    const simd::Float4 normalLanes = motion.Direction(LaneMotion::toLanes(sample.normal));
    const simd::Float4 pointLanes = motion.Point(LaneMotion::toLanes(sample.point));
    const CProjectedSurface& side = sideFor(seen, normalLanes);
    const int index = side.EdgeAt(side.PixelOf(pointLanes));
    if (index < 0) return {};
    const SurfaceEdge& edge = seen.edges[static_cast<std::size_t>(index)];
    const Vector<3> point = toVector(pointLanes);
    const Vector<3> d = point - edge.point;
    if (std::abs(kdtree::Dot(d, edge.outward)) > tolerance || std::abs(kdtree::Dot(d, edge.normal)) > tolerance)
        return {};
    const Vector<3> normal = toVector(normalLanes);
    const Vector<3> outward = toVector(motion.Direction(LaneMotion::toLanes(sample.outward)));
    if (kdtree::Dot(edge.outward, outward) > minEdgeCos && kdtree::Dot(edge.normal, normal) > minEdgeCos)
        return {&edge, point, false};
    if (kdtree::Dot(edge.outward, normal) > minEdgeCos && kdtree::Dot(edge.normal, outward) > minEdgeCos)
        return {&edge, point, true};
    return {};
}

void countEdges(MatchCounts& counts, const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
                float tolerance)
{
    const LaneMotion motion(pose);
    for (std::size_t i = 0; i < samples.uiEdgeSamples; ++i)
        counts.iEdges += matchingEdge(seen, motion, samples.edges[i], tolerance).edge != nullptr;
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
        const std::array<float, 8> row = {lever.x, lever.y, lever.z, n.x, n.y, n.z, -distance, 0.0F};
        const simd::Float4 low = simd::Float4::Load(row.data());
        const simd::Float4 high = simd::Float4::Load(row.data() + 4);
        for (std::size_t i = 0; i < 6; ++i) {
            const simd::Float4 factor = simd::Float4::Set1(row[i]);
            m_low[i] = m_low[i] + factor * low;
            m_high[i] = m_high[i] + factor * high;
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
        for (std::size_t i = 0; i < 6; ++i) {
            std::array<float, 8> row{};
            m_low[i].Store(row.data());
            m_high[i].Store(row.data() + 4);
            std::copy_n(row.begin(), i + 1, a.begin() + static_cast<std::ptrdiff_t>(i * (i + 1) / 2));
            a[i * (i + 3) / 2] += static_cast<double>(damping * static_cast<float>(m_count));
            b[i] = static_cast<double>(row[6]);
        }
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
    // Row i of the matrix, and behind it the right-hand side: columns 0 to 3, and 4, 5, rhs, unused.
    std::array<simd::Float4, 6> m_low{};
    std::array<simd::Float4, 6> m_high{};
    int m_count = 0;
};

/// Calls add(seen direction, moved point, sample, distance) for each sample, and each edge, that finds its plane.
template <class Add>
void forEachRow(const MatchedScan& seen, const MatchedScan& samples, const CTrafo& pose,
                const RefinementSettings& settings, float tolerance, const Add& add)
{
    const LaneMotion motion(pose);
    const std::size_t count = std::min(settings.uiSamples, samples.points.size());
    for (std::size_t i = 0; i < count; ++i) {
        const Projection sample(seen, motion, samples.points[i], samples.normals[i]);
        if (sample.Matches(tolerance, settings.minCos))
            add(sample.plane.Normal(), toVector(sample.point), samples.points[i], sample.distance);
    }
    for (std::size_t i = 0; i < samples.uiEdgeSamples; ++i) {
        const SurfaceEdge& sample = samples.edges[i];
        const auto [edge, point, isOtherFace] = matchingEdge(seen, motion, sample, tolerance);
        if (edge == nullptr) continue;
        const Vector<3> d = point - edge->point;
        add(edge->outward, point, sample.point, kdtree::Dot(d, edge->outward));
        if (isOtherFace) add(edge->normal, point, sample.point, kdtree::Dot(d, edge->normal));
    }
}

} // namespace

Vector<3> MiddleOf(const Vectors& points)
{
    Vector<3> sum;
    for (const Vector<3>& p : points) sum = sum + p;
    return points.empty() ? sum : (1.0F / static_cast<float>(points.size())) * sum;
}

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
    const Vector<3> centre = MiddleOf(fix.points);
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
