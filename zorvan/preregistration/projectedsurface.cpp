// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/projectedsurface.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace prereg {

using kdtree::Vector;

namespace {

/// From coordinates of the scan to pixels: row k of the frame.
Vector<3> pixelRow(const CRangeImage& image, unsigned k)
{
    const CTrafo& frame = image.GetFrame();
    return (1.0F / image.GetPixelSize()) * Vector<3>(frame(k, 0), frame(k, 1), frame(k, 2));
}

} // namespace

CProjectedSurface::CProjectedSurface(CRangeImage image, std::span<const SurfaceEdge> edges)
    : m_image(std::move(image)),
      m_direction(m_image.GetFrame()(2, 0), m_image.GetFrame()(2, 1), m_image.GetFrame()(2, 2)),
      m_toPixels(pixelRow(m_image, 0), pixelRow(m_image, 1), {},
                 (1.0F / m_image.GetPixelSize()) * m_image.GetFrame().GetTranslation()),
      m_stride(static_cast<std::uint32_t>(m_image.GetWidth())),
      m_width(static_cast<float>(m_image.GetWidth())),
      m_height(static_cast<float>(m_image.GetHeight()))
{
    setPlanes();
    spread(edges);
}

void CProjectedSurface::setPlanes()
{
    const CTrafo back = m_image.GetFrame().GetInverse(true);
    m_planes.reserve(static_cast<std::size_t>(m_image.GetWidth()) * static_cast<std::size_t>(m_image.GetHeight()));
    for (int y = 0; y < m_image.GetHeight(); ++y) {
        for (int x = 0; x < m_image.GetWidth(); ++x) {
            const CRangeImage::Surfel& surfel = m_image.GetSurfel({x, y});
            if (!m_image.IsFilled({x, y}) || surfel.normal.z <= 0.0F) {
                m_planes.push_back({0.0F, 0.0F, 0.0F, std::numeric_limits<float>::infinity()});
                continue;
            }
            const auto [p, n] = back.Transform(surfel.point, surfel.normal);
            m_planes.push_back({n.x, n.y, n.z, kdtree::Dot(p, n)});
        }
    }
}

void CProjectedSurface::spread(std::span<const SurfaceEdge> edges)
{
    constexpr int reach = 5; // pixels, as far as the first steps of a refinement look
    constexpr std::size_t most = 32767;
    m_nearestEdge.assign(m_planes.size(), -1);
    std::vector<int> distance(m_planes.size(), std::numeric_limits<int>::max());
    for (std::size_t e = 0; e < std::min(edges.size(), most); ++e) {
        const CRangeImage::Pixel at = m_image.PixelAt(m_image.GetFrame() * edges[e].point);
        for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx) {
                const CRangeImage::Pixel beside{at.x + dx, at.y + dy};
                if (!m_image.Contains(beside)) continue;
                const std::size_t i = m_image.Index(beside);
                if (dx * dx + dy * dy >= distance[i]) continue;
                distance[i] = dx * dx + dy * dy;
                m_nearestEdge[i] = static_cast<std::int16_t>(e);
            }
        }
    }
}

} // namespace prereg
