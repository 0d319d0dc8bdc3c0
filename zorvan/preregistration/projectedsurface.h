#pragma once

// Look-ups for matching by projection. Not installed.

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/preregistration/surfaceedges.h"
#include "zorvan/verdict/crangeimage.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// One side of a surface in an image: the plane in each pixel, in coordinates of the scan and 16 bytes a pixel, and the
/// edge nearest to it.
class CProjectedSurface
{
public:
    /// normal . p = offset; of an empty pixel the normal is zero and the offset infinite.
    struct alignas(16) Plane
    {
        float nx, ny, nz, offset;

        [[nodiscard]] float DistanceOf(const kdtree::Vector<3>& p) const
        {
            return nx * p.x + ny * p.y + nz * p.z - offset;
        }
        [[nodiscard]] kdtree::Vector<3> Normal() const { return {nx, ny, nz}; }
    };

    /// @param edges  in coordinates of the scan; those of other sides do no harm
    CProjectedSurface(CRangeImage image, std::span<const SurfaceEdge> edges);

    [[nodiscard]] const CRangeImage& Image() const { return m_image; }
    /// Towards the viewer, in coordinates of the scan.
    [[nodiscard]] const kdtree::Vector<3>& Direction() const { return m_direction; }

    static constexpr std::uint32_t outside = 0; ///< an empty pixel
    /// The pixel under a point of the scan.
    [[nodiscard]] std::uint32_t PixelOf(const kdtree::Vector<3>& p) const
    {
        const float x = kdtree::Dot(m_across[0], p) + m_across[0].w;
        const float y = kdtree::Dot(m_across[1], p) + m_across[1].w;
        if (!(x >= 0.0F && y >= 0.0F && x < m_width && y < m_height)) return outside;
        return static_cast<std::uint32_t>(y) * static_cast<std::uint32_t>(m_image.GetWidth()) +
               static_cast<std::uint32_t>(x);
    }
    [[nodiscard]] const Plane& PlaneAt(std::uint32_t pixel) const { return m_planes[pixel]; }
    /// Index of the nearest edge, or -1.
    [[nodiscard]] int EdgeAt(std::uint32_t pixel) const { return m_nearestEdge[pixel]; }

private:
    void setPlanes();
    void spread(std::span<const SurfaceEdge> edges);

    CRangeImage m_image;
    kdtree::Vector<3> m_direction;
    kdtree::Vector<3> m_across[2]; ///< to pixels; the offset in w
    float m_width;
    float m_height;
    std::vector<Plane> m_planes;
    std::vector<std::int16_t> m_nearestEdge;
};

} // namespace prereg
