#include "zorvan/preregistration/poserefinement.h"

#include "zorvan/numerics/packedldlt.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr float facing = 0.4F;  // a surface as steep as this may be missing from a scan
constexpr float dEdgeCos = 0.8F; // of edges that match: directions of pixels are coarse

void countInto(MatchCounts& counts, const MatchedView& seen, const MatchedView& samples, const CTrafo& pose,
               const MatchLimits& limits, std::size_t most)
{
    const CSurfaceImage& image = seen.image;
    const std::size_t count = std::min(most, samples.points.size());
    for (std::size_t i = 0; i < count; ++i) {
        const Vector<3> p = pose * samples.points[i];
        const Vector<3> n = pose.Rotate(samples.normals[i]);
        const std::size_t at = image.IndexAt(p);
        if (at == CSurfaceImage::none || image.At(at).IsEmpty()) {
            if (n.z > facing && (at == CSurfaceImage::none || image.IsFarOutside(at))) ++counts.iUnseen;
            continue;
        }
        const CSurfaceImage::Pixel& pixel = image.At(at);
        const float distance = image.DistanceFrom(at, p);
        if (std::abs(distance) < limits.tolerance &&
            pixel.nx * n.x + pixel.ny * n.y + pixel.nz * n.z > limits.minCos) {
            ++counts.iMatched;
            counts.fSumSquares += distance * distance;
        } else if (p.z > image.TopAt(at) + limits.inFront) {
            ++counts.iInFront;
        }
    }
}

/// The edge of `seen` that an edge of the other view, moved, lies on; null: none.
const CSurfaceImage::Edge* matchingEdge(const CSurfaceImage& image, const Vector<3>& point, const Vector<3>& normal,
                                        const Vector<3>& outward, float tolerance)
{
    const std::size_t at = image.IndexAt(point);
    if (at == CSurfaceImage::none) return nullptr;
    const int index = image.EdgeAt(at);
    if (index < 0) return nullptr;
    const CSurfaceImage::Edge& edge = image.Edges()[static_cast<std::size_t>(index)];
    const Vector<3> d = point - edge.point;
    if (kdtree::Dot(edge.outward, outward) < dEdgeCos || kdtree::Dot(edge.normal, normal) < dEdgeCos) return nullptr;
    if (std::abs(kdtree::Dot(d, edge.outward)) > tolerance || std::abs(kdtree::Dot(d, edge.normal)) > tolerance)
        return nullptr;
    return &edge;
}

void countEdges(MatchCounts& counts, const MatchedView& seen, const MatchedView& samples, const CTrafo& pose,
                float tolerance)
{
    for (const CSurfaceImage::Edge& edge : samples.edges) {
        if (matchingEdge(seen.image, pose * edge.point, pose.Rotate(edge.normal), pose.Rotate(edge.outward),
                         tolerance) != nullptr)
            ++counts.iEdges;
    }
}

/// Normal equations of a small motion of the floating view, in image coordinates of the fixed one about a centre.
class CMotionEquations
{
public:
    CMotionEquations(const Vector<3>& centre, float radius) : m_centre(centre), m_perRadius(1.0F / radius) {}

    /// A point at p with direction n is to move by -distance along n.
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

    /// The motion that solves them, damped by a hundredth; identity with too few rows.
    [[nodiscard]] CTrafo Solve() const
    {
        constexpr float damping = 0.01F;
        if (m_count < 6) return {};
        std::array<double, 21> a{};
        std::array<double, 6> b{};
        std::array<double, 6> work{};
        std::copy(m_a.begin(), m_a.end(), a.begin());
        std::copy(m_b.begin(), m_b.end(), b.begin());
        for (std::size_t i = 0; i < 6; ++i) a[i * (i + 3) / 2] += static_cast<double>(damping * static_cast<float>(m_count));
        if (!Zorvan::symsolvers::LDLtFactor(a.data(), 6, work.data())) return {};
        Zorvan::symsolvers::LDLtSolve(a.data(), b.data(), 6);
        const double perRadius = static_cast<double>(m_perRadius);
        const CTrafo turn(Quaternion(1.0, 0.5 * b[0] * perRadius, 0.5 * b[1] * perRadius, 0.5 * b[2] * perRadius)
                              .GetNormalized(),
                          {});
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

constexpr float refinementCos = 0.8F; // between normals of a pair, while the pose is still rough

/// Rows of the floating samples in the fixed view; with `isBack` those of the fixed samples in the floating view, which
/// are turned into the frame of the fixed one: there the planes move, and not the points.
void addRows(CMotionEquations& equations, const MatchedView& seen, const MatchedView& samples, const CTrafo& pose,
             const CTrafo& toFix, bool isBack, float tolerance, std::size_t most)
{
    const CSurfaceImage& image = seen.image;
    const std::size_t count = std::min(most, samples.points.size());
    const auto add = [&](const Vector<3>& seenPoint, const Vector<3>& seenDirection, const Vector<3>& sample,
                         float distance) {
        if (isBack)
            equations.Add(sample, toFix.Rotate(seenDirection), -distance);
        else
            equations.Add(seenPoint, seenDirection, distance);
    };
    for (std::size_t i = 0; i < count; ++i) {
        const Vector<3> p = pose * samples.points[i];
        const std::size_t at = image.IndexAt(p);
        if (at == CSurfaceImage::none || image.At(at).IsEmpty()) continue;
        const CSurfaceImage::Pixel& pixel = image.At(at);
        const Vector<3> planeNormal(pixel.nx, pixel.ny, pixel.nz);
        const float distance = image.DistanceFrom(at, p);
        if (std::abs(distance) > tolerance ||
            kdtree::Dot(planeNormal, pose.Rotate(samples.normals[i])) < refinementCos)
            continue;
        add(p, planeNormal, samples.points[i], distance);
    }
    for (const CSurfaceImage::Edge& edge : samples.edges) {
        const Vector<3> p = pose * edge.point;
        const CSurfaceImage::Edge* const match =
            matchingEdge(image, p, pose.Rotate(edge.normal), pose.Rotate(edge.outward), tolerance);
        if (match != nullptr) add(p, match->outward, edge.point, kdtree::Dot(p - match->point, match->outward));
    }
}

} // namespace

MatchCounts CountMatches(const MatchedView& fix, const MatchedView& flt, const CTrafo& pose, const MatchLimits& limits,
                         std::size_t most)
{
    MatchCounts counts;
    const CTrafo back = pose.GetInverse(true);
    countInto(counts, fix, flt, pose, limits, most);
    countInto(counts, flt, fix, back, limits, most);
    if (limits.hasEdges) {
        countEdges(counts, fix, flt, pose, limits.tolerance);
        countEdges(counts, flt, fix, back, limits.tolerance);
    }
    return counts;
}

CTrafo RefinePose(const MatchedView& fix, const MatchedView& flt, const CTrafo& start,
                  const RefinementSettings& settings)
{
    CTrafo pose = start;
    const Vector<3> centre(0.5F * static_cast<float>(fix.image.Width()) * fix.image.PixelSize(),
                           0.5F * static_cast<float>(fix.image.Height()) * fix.image.PixelSize(), 0.0F);
    float tolerance = settings.first;
    const float factor = settings.uiPasses > 1 ? std::pow(settings.last / settings.first,
                                                          1.0F / static_cast<float>(settings.uiPasses - 1))
                                               : 1.0F;
    for (unsigned pass = 0; pass < settings.uiPasses; ++pass) {
        CMotionEquations equations(centre, settings.radius);
        addRows(equations, fix, flt, pose, pose, false, tolerance, settings.uiSamples);
        addRows(equations, flt, fix, pose.GetInverse(true), pose, true, tolerance, settings.uiSamples);
        pose = equations.Solve() * pose;
        tolerance *= factor;
    }
    return pose;
}

} // namespace prereg
