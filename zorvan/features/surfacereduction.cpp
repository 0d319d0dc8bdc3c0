// SPDX-License-Identifier: MIT
#include "zorvan/features/surfacereduction.h"

#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/indexparts.h"
#include "zorvan/features/latticemap.h"
#include "zorvan/platform/simd.h"

namespace prereg::detail {

namespace {

using Vector3 = kdtree::Vector<3>;

Surface copyOf(const SurfaceView& surface)
{
    Surface copy;
    copy.points.assign(surface.points, surface.points + surface.n);
    copy.normals.assign(surface.normals, surface.normals + surface.n);
    if (surface.masks == nullptr) {
        copy.masks.assign(surface.n, 0);
    } else {
        copy.masks.assign(surface.masks, surface.masks + surface.n);
    }
    return copy;
}

} // namespace

void Surface::Reserve(std::size_t n)
{
    points.reserve(n);
    normals.reserve(n);
    masks.reserve(n);
}

void Surface::Push(const Vector3& point, const Vector3& normal, unsigned int mask)
{
    points.push_back(point);
    normals.push_back(normal);
    masks.push_back(mask);
}

Surface reduce(const SurfaceView& surface, double gridSize)
{
    if (gridSize <= 0) return copyOf(surface);
    constexpr std::size_t pointsPerCell = 4; // where features are computed, as a rule more
    TLatticeMap<CFPFHDataSource::GridCell> grid(static_cast<float>(gridSize));
    grid.Reserve(surface.n / pointsPerCell);
    for (std::size_t i = 0; i < surface.n; ++i) {
        grid.At(surface.points[i]).Add(surface.points[i], surface.normals[i], surface.MaskOf(i));
    }
    Surface reduced;
    reduced.Reserve(grid.Size());
    for (const auto& cell : grid.Records()) reduced.Push(cell.meanPoint, cell.meanNormal, cell.mask);
    return reduced;
}

Reduction::Reduction(const SurfaceView& surface, double gridSize, double featureGridSize, unsigned numTasks)
    : isShared(gridSize == featureGridSize)
{
    inParallel(
        numTasks, [&] { points = reduce(surface, gridSize); },
        [&] {
            if (!isShared) featurePoints = reduce(surface, featureGridSize);
        });
}

void normalize(std::vector<Vector3>& normals)
{
    for (Vector3& normal : normals) {
        const float r = Zorvan::simd::ApproximateReciprocalSqrt(normal.LengthSq());
        if (kdtree::IsFinite(r)) normal = normal * r;
    }
}

} // namespace prereg::detail
