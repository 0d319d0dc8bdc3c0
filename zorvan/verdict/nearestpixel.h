// SPDX-License-Identifier: MIT
#pragma once

// The innermost loop of all that judges poses: the surface of an image that is nearest to a point. Not installed.

#include "zorvan/platform/simd.h"
#include "zorvan/verdict/crangeimage.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace prereg::detail {

/// A place among the nine pixels about one, row by row; none where all of them are empty.
struct NearestPixel
{
    const CRangeImage::Surfel* surfel = nullptr;
    float distSq = std::numeric_limits<float>::infinity();
};

/// Of the pixels about `at` that lie inside the image; the first of several that are equally near.
inline NearestPixel NearestPixelPlainly(const CRangeImage& image, CRangeImage::Pixel at, const kdtree::Vector<3>& p)
{
    NearestPixel nearest;
    for (int y = std::max(0, at.y - 1); y <= std::min(image.GetHeight() - 1, at.y + 1); ++y) {
        for (int x = std::max(0, at.x - 1); x <= std::min(image.GetWidth() - 1, at.x + 1); ++x) {
            const CRangeImage::Surfel& surfel = image.GetSurfel({x, y});
            const float distSq = DistanceSq(surfel.point, p);
            if (distSq < nearest.distSq) nearest = {&surfel, distSq};
        }
    }
    return nearest;
}

/// Squared distances of four points, in the order that DistanceSq adds them.
inline Zorvan::simd::Float4 FourDistancesSq(const CRangeImage::Surfel* const* four, const Zorvan::simd::Float4* p)
{
    using Zorvan::simd::Float4;
    const auto [x, y, z] = Zorvan::simd::LoadFourRows([four](int k) { return &four[k]->point.x; });
    const Float4 dx = x - p[0];
    const Float4 dy = y - p[1];
    const Float4 dz = z - p[2];
    return (dx * dx + dy * dy) + dz * dz;
}

/// The same as plainly, at half the cost.
inline NearestPixel FindNearestPixel(const CRangeImage& image, CRangeImage::Pixel at, const kdtree::Vector<3>& p)
{
    using Zorvan::simd::Float4;
    const bool isInside = at.x > 0 && at.y > 0 && at.x + 1 < image.GetWidth() && at.y + 1 < image.GetHeight();
    if (!isInside) return NearestPixelPlainly(image, at, p);
    const CRangeImage::Surfel* const top = &image.GetSurfel({at.x - 1, at.y - 1});
    const CRangeImage::Surfel* const middle = top + image.GetWidth();
    const CRangeImage::Surfel* const bottom = middle + image.GetWidth();
    const CRangeImage::Surfel* const nine[] = {top,        top + 1, top + 2,    middle,    middle + 1,
                                               middle + 2, bottom,  bottom + 1, bottom + 2};
    const Float4 splat[] = {Float4::Set1(p.x), Float4::Set1(p.y), Float4::Set1(p.z)};
    const Float4 first = FourDistancesSq(nine, splat);
    const Float4 second = FourDistancesSq(nine + 4, splat);
    const float last = DistanceSq(nine[8]->point, p);
    const float least = std::min(Min(first, second).Smallest(), last);
    if (!(least < std::numeric_limits<float>::infinity())) return {};
    const Float4 wanted = Float4::Set1(least);
    const unsigned equal = (first == wanted).Bits() | (second == wanted).Bits() << 4U | 1U << 8U;
    return {nine[std::countr_zero(equal)], least};
}

} // namespace prereg::detail
