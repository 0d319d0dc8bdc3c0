// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/votescan.h"

#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr std::size_t uiSamples = 400; // of the surface: standard deviation of a share 0.025
constexpr std::size_t uiEdgeSamples = 120;
constexpr std::size_t uiPlanes = 12;
constexpr std::size_t uiEdgeNormals = 10;
constexpr double dPixel = 0.01; // of the object's size, unless the points lie further apart

/// An order in which any first part is spread over the whole: multiples of the golden section, sorted.
std::vector<std::size_t> spreadOrder(std::size_t count)
{
    std::vector<std::pair<std::uint32_t, std::size_t>> keyed(count);
    for (std::size_t i = 0; i < count; ++i) keyed[i] = {static_cast<std::uint32_t>(i) * 2654435769U, i};
    std::sort(keyed.begin(), keyed.end());
    std::vector<std::size_t> order;
    order.reserve(count);
    for (const auto& [key, i] : keyed) order.push_back(i);
    return order;
}

/// The directions from which a scan is turned into images: its ray, or all sides of what has none.
std::vector<Vector<3>> sidesOf(const CScanView& view)
{
    if (view.HasImage()) return {view.GetRay().direction};
    return {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
}

void append(const Surfels& from, std::size_t i, Surfels& to)
{
    to.points.push_back(from.points[i]);
    to.normals.push_back(from.normals[i]);
    to.counts.push_back(from.counts[i]);
}

void appendEdges(const CRangeImage& image, float noise, std::vector<SurfaceEdge>& edges)
{
    const CTrafo back = image.GetFrame().GetInverse(true);
    for (const SurfaceEdge& e : FindSurfaceEdges(image, noise))
        edges.push_back({back * e.point, back.Rotate(e.normal), back.Rotate(e.outward)});
}

/// In coordinates of the scan, in spread order.
std::vector<SurfaceEdge> edgesOf(const VotingScan& scan)
{
    const auto noise = static_cast<float>(scan.view->GetSampling().dNoise);
    std::vector<SurfaceEdge> edges;
    if (scan.view->HasImage()) {
        appendEdges(scan.view->GetImage(), noise, edges);
    } else {
        for (const Vector<3>& side : sidesOf(*scan.view))
            appendEdges(
                CRangeImage(scan.set->GetPoints(), scan.set->GetNormals(), side, scan.view->GetSampling().dSpacing),
                noise, edges);
    }
    std::vector<SurfaceEdge> spread;
    for (const std::size_t i : spreadOrder(edges.size())) spread.push_back(edges[i]);
    return spread;
}

MatchedScan toMatched(const VotingScan& scan, const Surfels& surfels, std::vector<SurfaceEdge> edges, float size)
{
    MatchedScan matched;
    for (const std::size_t i : spreadOrder(surfels.Size())) {
        if (matched.points.size() == uiSamples) break;
        matched.points.push_back(surfels.points[i]);
        matched.normals.push_back(surfels.normals[i]);
    }
    matched.edges = std::move(edges);
    matched.uiEdgeSamples = std::min(uiEdgeSamples, matched.edges.size());
    const ERay eRay = scan.view->GetRay().eKind;
    matched.hasSensor = eRay == ERay::Found || eRay == ERay::Given; // a guessed ray may be 30 degrees off
    const double spacing =
        std::max(scan.view->GetSampling().dSpacing, dPixel * static_cast<double>(size) / verdict::dPixelPerSpacing);
    for (const Vector<3>& side : sidesOf(*scan.view))
        matched.sides.emplace_back(
            CRangeImage(scan.set->GetPoints(), scan.set->GetNormals(), side, spacing, scan.view->IsEven()),
            matched.edges);
    return matched;
}

/// An edge at a right angle to a face that is seen too says nothing new.
std::vector<MarkedDirection> directionsOf(const Surfels& surfels, const std::vector<SurfaceEdge>& edges, float cell,
                                          float noise)
{
    constexpr float cosSame = 0.9945F; // 6 degrees
    std::vector<MarkedDirection> directions = FindPlaneNormals(surfels, cell, noise, uiPlanes);
    const std::size_t planes = directions.size();
    for (const MarkedDirection& edge : FindEdgeNormals(edges, uiEdgeNormals)) {
        const auto isSame = [&](const MarkedDirection& plane) {
            return kdtree::Dot(plane.direction, edge.direction) > cosSame;
        };
        if (std::none_of(directions.begin(), directions.begin() + static_cast<std::ptrdiff_t>(planes), isSame))
            directions.push_back(edge);
    }
    return directions;
}

} // namespace

VoteScan PrepareVote(const VotingScan& scan, float size)
{
    const float cell = directedScale.cell * size;
    VoteScan made;
    made.fine = ThinSurfels(scan.set->GetPoints(), scan.set->GetNormals(), {}, cell);
    made.coarse = ThinSurfels(made.fine.points, made.fine.normals, made.fine.counts, evenScale.cell * size);
    made.matched = toMatched(scan, made.fine, edgesOf(scan), size);
    made.directions =
        directionsOf(made.fine, made.matched.edges, cell, static_cast<float>(scan.view->GetSampling().dNoise));
    return made;
}

VoteScan PrepareVoteOffPlane(const VotingScan& scan, const SupportPlane& plane, float size)
{
    const Surfels all = ThinSurfels(scan.set->GetPoints(), scan.set->GetNormals(), {}, directedScale.cell * size);
    VoteScan made;
    Surfels on;
    for (std::size_t i = 0; i < all.Size(); ++i)
        append(all, i, plane.Holds(all.points[i], all.normals[i]) ? on : made.fine);
    Surfels sampled = made.fine;
    const std::size_t most = made.fine.Size() / uiOffForEachOn;
    const std::size_t step = std::max<std::size_t>(1, on.Size() / std::max<std::size_t>(1, most));
    for (std::size_t i = 0; i < on.Size(); i += step) append(on, i, sampled);
    std::vector<SurfaceEdge> edges = edgesOf(scan);
    std::erase_if(edges, [&](const SurfaceEdge& edge) { return plane.Holds(edge.point, edge.normal); });
    made.matched = toMatched(scan, sampled, std::move(edges), size);
    return made;
}

} // namespace prereg
