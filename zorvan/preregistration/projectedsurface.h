// SPDX-License-Identifier: MIT
#pragma once

// Look-ups for matching by projection. Not installed.

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/simd.h"
#include "zorvan/preregistration/surfaceedges.h"
#include "zorvan/verdict/crangeimage.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// An affine motion by columns, x, y, z side by side in the lanes. Rounds as `CTrafo` does.
struct LaneMotion
{
    using Float4 = Zorvan::simd::Float4;

    LaneMotion(const kdtree::Vector<3>& row0, const kdtree::Vector<3>& row1, const kdtree::Vector<3>& row2,
               const kdtree::Vector<3>& shift)
        : x(toLanes({row0.x, row1.x, row2.x})),
          y(toLanes({row0.y, row1.y, row2.y})),
          z(toLanes({row0.z, row1.z, row2.z})),
          t(toLanes({shift.x, shift.y, shift.z}))
    {
    }
    explicit LaneMotion(const CTrafo& pose)
        : LaneMotion({pose(0, 0), pose(0, 1), pose(0, 2)}, {pose(1, 0), pose(1, 1), pose(1, 2)},
                     {pose(2, 0), pose(2, 1), pose(2, 2)}, pose.GetTranslation())
    {
    }

    [[nodiscard]] Float4 Direction(Float4 v) const
    {
        using namespace Zorvan::simd;
        return x * Splat<0>(v) + y * Splat<1>(v) + z * Splat<2>(v);
    }
    [[nodiscard]] Float4 Point(Float4 p) const { return Direction(p) + t; }

    static Float4 toLanes(const kdtree::Vector<3>& v) { return Float4::Load(&v.x); }

    Float4 x, y, z, t;
};

/// One side of a surface in an image: the plane in each pixel, in coordinates of the scan and 16 bytes a pixel, and the
/// edge nearest to it.
class CProjectedSurface
{
public:
    /// normal . p = offset; of an empty pixel the normal is zero and the offset infinite.
    struct alignas(16) Plane
    {
        float nx, ny, nz, offset;

        [[nodiscard]] Zorvan::simd::Float4 Lanes() const { return Zorvan::simd::Float4::Load(&nx); }
        [[nodiscard]] kdtree::Vector<3> Normal() const { return {nx, ny, nz}; }
    };

    /// @param edges  in coordinates of the scan; those of other sides do no harm
    CProjectedSurface(CRangeImage image, std::span<const SurfaceEdge> edges);

    [[nodiscard]] const CRangeImage& Image() const { return m_image; }
    /// Towards the viewer, in coordinates of the scan.
    [[nodiscard]] const kdtree::Vector<3>& Direction() const { return m_direction; }

    static constexpr std::uint32_t outside = 0; ///< an empty pixel
    /// The pixel under a point of the scan; the fourth lane does not count.
    [[nodiscard]] std::uint32_t PixelOf(Zorvan::simd::Float4 p) const
    {
        std::array<float, 4> at{};
        m_toPixels.Point(p).Store(at.data());
        if (!(at[0] >= 0.0F && at[1] >= 0.0F && at[0] < m_width && at[1] < m_height)) return outside;
        return static_cast<std::uint32_t>(static_cast<std::int32_t>(at[1])) * m_stride +
               static_cast<std::uint32_t>(static_cast<std::int32_t>(at[0]));
    }
    [[nodiscard]] const Plane& PlaneAt(std::uint32_t pixel) const { return m_planes[pixel]; }
    /// Index of the nearest edge, or -1.
    [[nodiscard]] int EdgeAt(std::uint32_t pixel) const { return m_nearestEdge[pixel]; }

private:
    void setPlanes();
    void spread(std::span<const SurfaceEdge> edges);

    CRangeImage m_image;
    kdtree::Vector<3> m_direction;
    LaneMotion m_toPixels;
    std::uint32_t m_stride;
    float m_width;
    float m_height;
    std::vector<Plane> m_planes;
    std::vector<std::int16_t> m_nearestEdge;
};

} // namespace prereg
