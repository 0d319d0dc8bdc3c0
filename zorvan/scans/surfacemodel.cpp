// SPDX-License-Identifier: MIT
#include "zorvan/scans/surfacemodel.h"

#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr double dLongestRim = 1.0;     // sides of a square of the mesh's area
constexpr double dLargeTriangle = 10.0; // times the median area
constexpr double dLargeShare = 0.5;

using Edge = std::pair<std::uint32_t, std::uint32_t>;

double areaOf(const Scan& mesh, const Face& face)
{
    const Vector3& a = mesh.points[face[0]];
    return 0.5 * static_cast<double>(Cross(mesh.points[face[1]] - a, mesh.points[face[2]] - a).Length());
}

std::vector<double> areasOf(const Scan& mesh)
{
    std::vector<double> areas;
    areas.reserve(mesh.faces.size());
    for (const Face& face : mesh.faces) {
        const double area = areaOf(mesh, face);
        if (area > 0.0 && std::isfinite(area)) areas.push_back(area);
    }
    return areas;
}

double sumOf(const std::vector<double>& values)
{
    double sum = 0.0;
    for (const double value : values) sum += value;
    return sum;
}

/// Corners on a rim: where all edges end in two faces, each neighbour of a corner is met twice, and what is added
/// without carry is zero.
std::vector<std::uint8_t> cornersOnRim(const Scan& mesh)
{
    // As different as random numbers, so that no four of them add up to zero; splitmix64, Steele et al., OOPSLA 2014.
    const auto mix = [](std::uint64_t corner) {
        std::uint64_t z = (corner + 1) * 0x9E3779B97F4A7C15U;
        z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
        z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
        return z ^ (z >> 31U);
    };
    std::vector<std::uint64_t> mixed(mesh.points.size());
    for (std::size_t i = 0; i < mixed.size(); ++i) mixed[i] = mix(i);
    std::vector<std::uint64_t> sums(mesh.points.size(), 0);
    for (const Face& face : mesh.faces) {
        const std::uint64_t all = mixed[face[0]] ^ mixed[face[1]] ^ mixed[face[2]];
        for (const std::uint32_t corner : face) sums[corner] ^= all ^ mixed[corner];
    }
    std::vector<std::uint8_t> isOnRim(sums.size());
    for (std::size_t i = 0; i < sums.size(); ++i) isOnRim[i] = static_cast<std::uint8_t>(sums[i] != 0);
    return isOnRim;
}

/// Length of all edges that one face alone has.
double rimOf(const Scan& mesh)
{
    const std::vector<std::uint8_t> isOnRim = cornersOnRim(mesh);
    std::vector<Edge> edges;
    for (const Face& face : mesh.faces) {
        if (isOnRim[face[0]] + isOnRim[face[1]] + isOnRim[face[2]] < 2) continue;
        for (std::size_t k = 0; k < 3; ++k) {
            const Edge edge = std::minmax({face[k], face[(k + 1) % 3]});
            if (isOnRim[edge.first] != 0 && isOnRim[edge.second] != 0) edges.push_back(edge);
        }
    }
    std::sort(edges.begin(), edges.end());
    double rim = 0.0;
    for (std::size_t i = 0; i < edges.size();) {
        std::size_t next = i + 1;
        while (next < edges.size() && edges[next] == edges[i]) ++next;
        if (next == i + 1)
            rim += static_cast<double>((mesh.points[edges[i].first] - mesh.points[edges[i].second]).Length());
        i = next;
    }
    return rim;
}

bool isClosed(const Scan& mesh, double area) { return rimOf(mesh) < dLongestRim * std::sqrt(area); }

/// Most of the area lies in triangles that are much larger than most are.
bool isUneven(std::vector<double> areas, double area)
{
    const auto inLarger = [&](double least) {
        double sum = 0.0;
        for (const double one : areas) sum += one > least ? one : 0.0;
        return sum;
    };
    // Of a scan, more than half of the triangles have a fifth of the mean area, and so has the median.
    const double fifth = 0.2 * area / static_cast<double>(areas.size());
    const auto numAbove = std::ranges::count_if(areas, [&](double one) { return one >= fifth; });
    const bool isMedianAbove = 2 * static_cast<std::size_t>(numAbove) > areas.size() + 1;
    if (isMedianAbove && inLarger(dLargeTriangle * fifth) <= dLargeShare * area) return false;
    const auto middle = areas.begin() + static_cast<std::ptrdiff_t>(areas.size() / 2);
    std::nth_element(areas.begin(), middle, areas.end());
    return inLarger(dLargeTriangle * *middle) > dLargeShare * area;
}

/// Six times the volume, measured from a corner of the mesh, so that it may lie anywhere.
double volumeOf(const Scan& mesh)
{
    const Vector3& origin = mesh.points[mesh.faces.front()[0]];
    double volume = 0.0;
    for (const Face& face : mesh.faces)
        volume += static_cast<double>(
            Dot(mesh.points[face[0]] - origin, Cross(mesh.points[face[1]] - origin, mesh.points[face[2]] - origin)));
    return volume;
}

} // namespace

bool IsSurfaceModel(const Scan& mesh)
{
    const std::vector<double> areas = areasOf(mesh);
    const double area = sumOf(areas);
    return area > 0.0 && (isUneven(areas, area) || isClosed(mesh, area));
}

void TurnOutward(Scan& mesh)
{
    if (mesh.faces.empty() || !isClosed(mesh, sumOf(areasOf(mesh))) || volumeOf(mesh) >= 0.0) return;
    for (Face& face : mesh.faces) std::swap(face[1], face[2]);
}

} // namespace Zorvan
