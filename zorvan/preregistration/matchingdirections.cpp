// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/matchingdirections.h"

#include "zorvan/core/csearchgrid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <optional>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr float cosFlat = 0.9903F;        // 8 degrees: noise of a thinned surface, but not the turn of a fillet
constexpr float cosParallel = 0.9976F;    // 4 degrees: faces that a part means to be parallel
constexpr float smallestFace = 0.01F;     // share of the surface
constexpr float angleTolerance = 0.0611F; // 3.5 degrees between two angles
constexpr float smallestAngle = 0.35F;    // 20 degrees: two directions that are to hold a rotation
constexpr float cosDistinct = 0.9962F;    // 5 degrees

Vector<3> unit(const Vector<3>& v) { return (1.0F / v.Length()) * v; }

/// A flat face that grows.
class CFace
{
public:
    explicit CFace(float tolerance) : m_tolerance(tolerance) {}

    void Add(const Vector<3>& point, const Vector<3>& normal)
    {
        m_points = m_points + point;
        m_normals = m_normals + normal;
        m_count += 1.0F;
        m_middle = (1.0F / m_count) * m_points;
        m_normal = unit(m_normals);
    }
    [[nodiscard]] bool Holds(const Vector<3>& point, const Vector<3>& normal) const
    {
        return kdtree::Dot(normal, m_normal) > cosFlat &&
               std::abs(kdtree::Dot(point - m_middle, m_normal)) < m_tolerance;
    }
    [[nodiscard]] float Count() const { return m_count; }
    [[nodiscard]] const Vector<3>& Normal() const { return m_normal; }

private:
    float m_tolerance;
    Vector<3> m_points;
    Vector<3> m_normals;
    Vector<3> m_middle;
    Vector<3> m_normal;
    float m_count = 0.0F;
};

/// Which surfels lie near each other.
std::vector<std::vector<unsigned>> neighboursOf(const Surfels& surfels, float radius)
{
    const Zorvan::CSearchGrid grid(static_cast<double>(radius), surfels.points.data(), surfels.Size());
    std::vector<std::vector<unsigned>> neighbours(surfels.Size());
    for (std::size_t i = 0; i < surfels.Size(); ++i)
        grid.QueryRange(neighbours[i], {surfels.points[i], std::min(radius * radius, grid.GetQueryRadiusSupremumSq())});
    return neighbours;
}

/// The surfels with most neighbours of their own normal first.
std::vector<std::uint32_t> flattestFirst(const Surfels& surfels, const std::vector<std::vector<unsigned>>& neighbours)
{
    std::vector<std::uint32_t> flatness(surfels.Size());
    for (std::size_t i = 0; i < surfels.Size(); ++i) {
        flatness[i] =
            static_cast<std::uint32_t>(std::count_if(neighbours[i].begin(), neighbours[i].end(), [&](unsigned k) {
                return kdtree::Dot(surfels.normals[i], surfels.normals[k]) > cosFlat;
            }));
    }
    std::vector<std::uint32_t> order(surfels.Size());
    std::iota(order.begin(), order.end(), 0U);
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return flatness[a] > flatness[b]; });
    return order;
}

void mergeInto(std::vector<MarkedDirection>& directions, const MarkedDirection& found)
{
    for (MarkedDirection& known : directions) {
        if (kdtree::Dot(known.direction, found.direction) < cosParallel) continue;
        known.direction = unit(known.weight * known.direction + found.weight * found.direction);
        known.weight += found.weight;
        return;
    }
    directions.push_back(found);
}

void keepHeaviest(std::vector<MarkedDirection>& directions, std::size_t most)
{
    std::stable_sort(directions.begin(), directions.end(),
                     [](const auto& a, const auto& b) { return a.weight > b.weight; });
    if (directions.size() > most) directions.resize(most);
}

/// Two directions and their angle.
struct Pair
{
    std::size_t first;
    std::size_t second;
    float angle;
};

/// Ordered pairs, except that of two directions of one kind only one order is there: the other side has both.
std::vector<Pair> pairsOf(std::span<const MarkedDirection> directions, bool isBothOrders)
{
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < directions.size(); ++i) {
        for (std::size_t k = 0; k < directions.size(); ++k) {
            if (i == k || (!isBothOrders && k < i)) continue;
            const float cosine = kdtree::Dot(directions[i].direction, directions[k].direction);
            const float angle = std::acos(std::clamp(cosine, -1.0F, 1.0F));
            if (angle > smallestAngle && angle < 3.14159265F - smallestAngle) pairs.push_back({i, k, angle});
        }
    }
    return pairs;
}

/// The frame of two directions: along their sum, and across both.
std::array<Vector<3>, 3> frameOf(const Vector<3>& a, const Vector<3>& b)
{
    const Vector<3> along = unit(a + b);
    const Vector<3> across = unit(kdtree::Cross(a, b));
    return {along, across, kdtree::Cross(along, across)};
}

CTrafo rotationBetween(const std::array<Vector<3>, 3>& from, const std::array<Vector<3>, 3>& to)
{
    const auto row = [&](unsigned k) { return to[0][k] * from[0] + to[1][k] * from[1] + to[2][k] * from[2]; };
    return {row(0), row(1), row(2), {}};
}

float supportOf(const CTrafo& rotation, std::span<const MarkedDirection> fix, std::span<const MarkedDirection> flt)
{
    float support = 0.0F;
    for (const MarkedDirection& direction : flt) {
        const Vector<3> turned = rotation.Rotate(direction.direction);
        float best = 0.0F;
        for (const MarkedDirection& other : fix) {
            if (kdtree::Dot(turned, other.direction) > cosDistinct)
                best = std::max(best, std::min(other.weight, direction.weight));
        }
        support += best;
    }
    return support;
}

/// Directions that lie close to one another. Who lies close to whom is counted once; what is cleared is taken off the
/// counts of the others.
class CBundles
{
public:
    struct Bundle
    {
        Vector<3> sum;
        std::size_t count = 0;
    };

    explicit CBundles(std::span<const SurfaceEdge> edges)
    {
        for (const SurfaceEdge& edge : edges) m_left.push_back({edge.outward, 0});
        for (std::size_t i = 0; i < m_left.size(); ++i) {
            std::uint32_t later = 0;
            for (std::size_t k = i + 1; k < m_left.size(); ++k) {
                const auto isClose = static_cast<std::uint32_t>(areClose(m_left[i].direction, m_left[k].direction));
                m_left[k].count += isClose;
                later += isClose;
            }
            m_left[i].count += later + 1;
        }
    }

    /// About the direction with most others close to it, the first one among equals.
    [[nodiscard]] Bundle Largest() const
    {
        const auto centre = std::max_element(m_left.begin(), m_left.end(),
                                             [](const Counted& a, const Counted& b) { return a.count < b.count; });
        Bundle bundle;
        if (centre == m_left.end()) return bundle;
        bundle.count = centre->count;
        for (const Counted& other : m_left)
            if (areClose(centre->direction, other.direction)) bundle.sum = bundle.sum + other.direction;
        return bundle;
    }

    void Clear(const Vector<3>& direction)
    {
        constexpr float cosCleared = 0.978F; // 12 degrees
        const auto isLeft = [&](const Counted& v) { return kdtree::Dot(v.direction, direction) <= cosCleared; };
        const auto cleared = std::stable_partition(m_left.begin(), m_left.end(), isLeft);
        for (auto left = m_left.begin(); left != cleared; ++left)
            for (auto gone = cleared; gone != m_left.end(); ++gone)
                left->count -= static_cast<std::uint32_t>(areClose(left->direction, gone->direction));
        m_left.erase(cleared, m_left.end());
    }

private:
    struct Counted
    {
        Vector<3> direction;
        std::uint32_t count; ///< of what is left and close, with itself
    };

    static bool areClose(const Vector<3>& a, const Vector<3>& b)
    {
        constexpr float cosBundle = 0.9945F; // 6 degrees: what a raster does to the direction of a straight edge
        return kdtree::Dot(a, b) >= cosBundle;
    }

    std::vector<Counted> m_left;
};

/// Cosine of half the angle between two rotations, by the trace of their quotient.
bool areNear(const CTrafo& a, const CTrafo& b)
{
    float trace = 0.0F;
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) trace += a(r, c) * b(r, c);
    return 0.5F * (trace - 1.0F) > cosDistinct;
}

} // namespace

std::vector<MarkedDirection> FindPlaneNormals(const Surfels& surfels, float cell, float noise, std::size_t most)
{
    constexpr float reach = 1.8F; // cells: neighbours across a corner, not the one after next
    const auto neighbours = neighboursOf(surfels, reach * cell);
    std::vector<bool> isTaken(surfels.Size(), false);
    std::vector<MarkedDirection> directions;
    const auto all = static_cast<float>(surfels.Size());
    for (const std::uint32_t seed : flattestFirst(surfels, neighbours)) {
        if (isTaken[seed]) continue;
        CFace face(4.0F * noise + 0.05F * cell);
        std::vector<unsigned> members{seed};
        face.Add(surfels.points[seed], surfels.normals[seed]);
        isTaken[seed] = true;
        for (std::size_t next = 0; next < members.size(); ++next) {
            for (const unsigned k : neighbours[members[next]]) {
                if (isTaken[k] || !face.Holds(surfels.points[k], surfels.normals[k])) continue;
                isTaken[k] = true;
                face.Add(surfels.points[k], surfels.normals[k]);
                members.push_back(k);
            }
        }
        if (face.Count() < std::max(6.0F, smallestFace * all)) continue;
        mergeInto(directions, {face.Normal(), face.Count() / all});
    }
    keepHeaviest(directions, most);
    return directions;
}

std::vector<MarkedDirection> FindEdgeNormals(std::span<const SurfaceEdge> edges, std::size_t most)
{
    constexpr std::size_t smallestBundle = 8;
    CBundles bundles(edges);
    std::vector<MarkedDirection> directions;
    while (directions.size() < most) {
        const auto [sum, count] = bundles.Largest();
        if (count < smallestBundle) break;
        directions.push_back({unit(sum), static_cast<float>(count) / static_cast<float>(edges.size())});
        bundles.Clear(directions.back().direction);
    }
    return directions;
}

std::vector<CTrafo> RotationsFromDirections(std::span<const MarkedDirection> fix, std::span<const MarkedDirection> flt,
                                            std::size_t most)
{
    struct Rotation
    {
        CTrafo trafo;
        float support;
    };
    std::vector<Rotation> found;
    const std::vector<Pair> fltPairs = pairsOf(flt, true);
    for (const Pair& a : pairsOf(fix, false)) {
        const auto to = frameOf(fix[a.first].direction, fix[a.second].direction);
        for (const Pair& b : fltPairs) {
            if (std::abs(a.angle - b.angle) > angleTolerance) continue;
            const CTrafo trafo = rotationBetween(frameOf(flt[b.first].direction, flt[b.second].direction), to);
            found.push_back({trafo, supportOf(trafo, fix, flt)});
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.support > b.support; });
    std::vector<CTrafo> rotations;
    for (const Rotation& candidate : found) {
        if (rotations.size() == most) break;
        const auto isNear = [&](const CTrafo& known) { return areNear(known, candidate.trafo); };
        if (std::none_of(rotations.begin(), rotations.end(), isNear)) rotations.push_back(candidate.trafo);
    }
    return rotations;
}

} // namespace prereg
