// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/surfelthinning.h"

#include "zorvan/verdict/planeshare.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr float cosSameSide = 0.819F;      // 35 degrees: noise of normals, but not the faces at an edge
constexpr std::uint32_t smallestShare = 8; // of a cell's points: 1 in 8
constexpr float maxCells = 2097151.0F;     // along an axis: 21 bits

struct Keyed
{
    std::uint64_t key;
    std::uint32_t index;

    friend bool operator<(const Keyed& a, const Keyed& b) { return a.key != b.key ? a.key < b.key : a.index < b.index; }
};

/// The points of one direction in one cell.
struct Patch
{
    Vector<3> points;
    Vector<3> normals;
    std::uint32_t count;
};

std::uint64_t cellNumber(float offset, float inverse)
{
    return static_cast<std::uint64_t>(std::clamp(offset * inverse, 0.0F, maxCells));
}

std::vector<Keyed> sortedByCell(std::span<const Vector<3>> points, float cell)
{
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Vector<3>& p : points) box.low = kdtree::Min(box.low, p);
    const float inverse = 1.0F / cell;
    std::vector<Keyed> keyed(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vector<3> d = points[i] - box.low;
        keyed[i] = {cellNumber(d.x, inverse) | cellNumber(d.y, inverse) << 21U | cellNumber(d.z, inverse) << 42U,
                    static_cast<std::uint32_t>(i)};
    }
    std::sort(keyed.begin(), keyed.end());
    return keyed;
}

void addTo(std::vector<Patch>& patches, const Vector<3>& point, const Vector<3>& normal, std::uint32_t count)
{
    const auto weight = static_cast<float>(count);
    for (Patch& patch : patches) {
        const float along = kdtree::Dot(patch.normals, normal);
        if (along <= 0.0F || along * along < cosSameSide * cosSameSide * patch.normals.LengthSq()) continue;
        patch.points = patch.points + weight * point;
        patch.normals = patch.normals + weight * normal;
        patch.count += count;
        return;
    }
    patches.push_back({weight * point, weight * normal, count});
}

void appendMeans(const std::vector<Patch>& patches, Surfels& surfels)
{
    std::uint32_t all = 0;
    for (const Patch& patch : patches) all += patch.count;
    for (const Patch& patch : patches) {
        if (patch.count * smallestShare < all) continue;
        surfels.points.push_back((1.0F / static_cast<float>(patch.count)) * patch.points);
        surfels.normals.push_back((1.0F / patch.normals.Length()) * patch.normals);
        surfels.counts.push_back(patch.count);
    }
}

} // namespace

Surfels ThinSurfels(std::span<const Vector<3>> points, std::span<const Vector<3>> normals,
                    std::span<const std::uint32_t> counts, float cell)
{
    Surfels surfels;
    std::vector<Patch> patches;
    const std::vector<Keyed> keyed = sortedByCell(points, cell);
    for (std::size_t i = 0; i < keyed.size(); ++i) {
        if (i > 0 && keyed[i].key != keyed[i - 1].key) {
            appendMeans(patches, surfels);
            patches.clear();
        }
        const std::uint32_t k = keyed[i].index;
        addTo(patches, points[k], normals[k], counts.empty() ? 1 : counts[k]);
    }
    appendMeans(patches, surfels);
    return surfels;
}

Surfels ThinCrowds(const Surfels& surfels, double dMostShare)
{
    Surfels kept;
    for (const std::size_t i : ThinDirections(surfels.normals, dMostShare)) {
        kept.points.push_back(surfels.points[i]);
        kept.normals.push_back(surfels.normals[i]);
        kept.counts.push_back(surfels.counts[i]);
    }
    return kept;
}

float EstimateSize(std::span<const Vector<3>> points)
{
    if (points.empty()) return 0.0F;
    double sum[3] = {};
    double squares = 0.0;
    for (const Vector<3>& p : points) {
        for (unsigned k = 0; k < 3; ++k) sum[k] += static_cast<double>(p[k]);
        squares += static_cast<double>(p.x) * static_cast<double>(p.x) +
                   static_cast<double>(p.y) * static_cast<double>(p.y) +
                   static_cast<double>(p.z) * static_cast<double>(p.z);
    }
    const auto n = static_cast<double>(points.size());
    const double meanSq = (sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]) / (n * n);
    return static_cast<float>(2.4 * std::sqrt(std::max(0.0, squares / n - meanSq)));
}

} // namespace prereg
