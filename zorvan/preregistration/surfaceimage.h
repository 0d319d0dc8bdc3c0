#pragma once

// What one view shows, for matching by projection. Not installed.

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// A raster along the viewing ray: x and y across it, z against it, so that higher is nearer to the sensor.
class ZORVAN_API CSurfaceImage
{
public:
    struct alignas(16) Pixel
    {
        float height = 0.0F; ///< mm, of the surface in the middle of the pixel
        float nx = 0.0F;
        float ny = 0.0F;
        float nz = 0.0F; ///< 0: the sensor saw nothing here

        [[nodiscard]] bool IsEmpty() const { return nz == 0.0F; }
    };

    /// Where a face that looks at the sensor ends by itself, not behind another one.
    struct Edge
    {
        kdtree::Vector<3> point;
        kdtree::Vector<3> normal;
        kdtree::Vector<3> outward; ///< along the face, off its end
    };

    /// Unit normals, and a unit ray from the surface to the sensor; pixel > 0 (mm).
    CSurfaceImage(std::span<const kdtree::Vector<3>> points, std::span<const kdtree::Vector<3>> normals,
                  const kdtree::Vector<3>& toSensor, float pixel);

    /// From the coordinates of the scan to those of the image (mm).
    [[nodiscard]] const CTrafo& ToImage() const { return m_toImage; }
    [[nodiscard]] std::size_t Width() const { return m_width; }
    [[nodiscard]] std::size_t Height() const { return m_height; }
    [[nodiscard]] float PixelSize() const { return m_pixel; }
    [[nodiscard]] const std::vector<Edge>& Edges() const { return m_edges; } ///< in image coordinates

    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    /// The pixel under a point in image coordinates, or `none`.
    [[nodiscard]] std::size_t IndexAt(const kdtree::Vector<3>& p) const
    {
        const float x = p.x * m_perPixel;
        const float y = p.y * m_perPixel;
        if (!(x >= 0.0F && y >= 0.0F && x < m_widthF && y < m_heightF)) return none;
        return static_cast<std::size_t>(y) * m_width + static_cast<std::size_t>(x);
    }
    [[nodiscard]] const Pixel& At(std::size_t index) const { return m_pixels[index]; }
    /// Distance of p from the plane of the pixel that lies under it.
    [[nodiscard]] float DistanceFrom(std::size_t index, const kdtree::Vector<3>& p) const
    {
        const Pixel& pixel = m_pixels[index];
        const float x = (static_cast<float>(index % m_width) + 0.5F) * m_pixel;
        const float y = (static_cast<float>(index / m_width) + 0.5F) * m_pixel;
        return pixel.nx * (p.x - x) + pixel.ny * (p.y - y) + pixel.nz * (p.z - pixel.height);
    }
    /// The highest of the 3 x 3 pixels around; +Infinity where one of them is empty.
    [[nodiscard]] float TopAt(std::size_t index) const { return m_tops[index]; }
    /// Nothing was seen within two pixels.
    [[nodiscard]] bool IsFarOutside(std::size_t index) const { return m_isFarOutside[index] != 0; }
    /// The edge point nearest to the pixel, within five pixels; -1: none.
    [[nodiscard]] int EdgeAt(std::size_t index) const { return m_edgeIndex[index]; }

private:
    void fill(std::span<const kdtree::Vector<3>> points, std::span<const kdtree::Vector<3>> normals);
    void closeHoles();
    void markOutside();
    void findTops();
    void findEdges();
    void spreadEdges();
    [[nodiscard]] kdtree::Vector<3> pointOf(std::size_t index) const;

    static constexpr std::size_t margin = 6; ///< empty pixels around
    CTrafo m_toImage;
    float m_pixel;
    float m_perPixel;
    std::size_t m_width = 0;
    std::size_t m_height = 0;
    float m_widthF = 0.0F;
    float m_heightF = 0.0F;
    std::vector<Pixel> m_pixels;
    std::vector<float> m_tops;
    std::vector<std::uint8_t> m_isFarOutside;
    std::vector<Edge> m_edges;
    std::vector<std::int16_t> m_edgeIndex;
};

} // namespace prereg
