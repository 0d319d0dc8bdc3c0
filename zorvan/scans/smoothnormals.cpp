// SPDX-License-Identifier: MIT
#include "zorvan/scans/smoothnormals.h"

#include "zorvan/scans/vectors.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <unordered_map>

namespace Zorvan {

namespace {

using Cell = std::array<std::int32_t, 3>;

struct CellHash
{
    std::size_t operator()(const Cell& c) const
    {
        // Teschner et al., "Optimized spatial hashing", VMV 2003.
        const auto part = [&c](std::size_t i, std::uint64_t prime) { return static_cast<std::uint32_t>(c[i]) * prime; };
        return part(0, 73856093) ^ part(1, 19349663) ^ part(2, 83492791);
    }
};

using CellSums = std::unordered_map<Cell, Vector3, CellHash>;

// A place in units of cells: the cell, and how far into it.
struct Place
{
    Cell cell;
    std::array<float, 3> fraction;
};

Place placeOf(const Vector3& p, double cell, float shift)
{
    Place place{};
    for (unsigned i = 0; i < 3; ++i) {
        const double scaled = p[i] / cell + shift;
        const double low = std::floor(scaled);
        place.cell[i] = static_cast<std::int32_t>(low);
        place.fraction[i] = static_cast<float>(scaled - low);
    }
    return place;
}

// Trilinear mean of the sums of the eight cells whose middles surround the point.
Vector3 meanAround(const CellSums& sums, const Place& place, const Vector3& own)
{
    Vector3 mean;
    for (unsigned corner = 0; corner < 8; ++corner) {
        Cell cell = place.cell;
        float weight = 1.0F;
        for (unsigned i = 0; i < 3; ++i) {
            const bool isHigh = ((corner >> i) & 1U) != 0;
            cell[i] += isHigh ? 1 : 0;
            weight *= isHigh ? place.fraction[i] : 1.0F - place.fraction[i];
        }
        const auto found = sums.find(cell);
        if (found != sums.end() && kdtree::Dot(found->second, own) > 0.0F) mean = mean + found->second * weight;
    }
    return mean;
}

} // namespace

void SmoothNormals(const prereg::Vectors& points, double cell, prereg::Vectors& normals)
{
    CellSums sums;
    for (std::size_t i = 0; i < points.size(); ++i) {
        Vector3& sum = sums[placeOf(points[i], cell, 0.0F).cell];
        sum = sum + normals[i];
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vector3 mean = meanAround(sums, placeOf(points[i], cell, -0.5F), normals[i]);
        if (mean.LengthSq() > 0.0F) normals[i] = Normalized(mean);
    }
}

} // namespace Zorvan
