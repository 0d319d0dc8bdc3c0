#include "zorvan/preregistration/surfaceimage.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr float steepest = 0.2F; // cosine between normal and ray; beyond, a pixel is too coarse for its height

/// A right-handed frame whose third axis is the ray.
CTrafo frameAlong(const Vector<3>& ray)
{
    const Vector<3> helper = std::abs(ray.x) < 0.6F ? Vector<3>(1, 0, 0) : Vector<3>(0, 1, 0);
    const Vector<3> across = kdtree::Cross(helper, ray);
    const Vector<3> y = (1.0F / across.Length()) * across;
    return {kdtree::Cross(y, ray), y, ray, {}};
}

} // namespace

CSurfaceImage::CSurfaceImage(std::span<const Vector<3>> points, std::span<const Vector<3>> normals,
                             const Vector<3>& toSensor, float pixel)
    : m_pixel(pixel), m_perPixel(1.0F / pixel)
{
    const CTrafo turned = frameAlong(toSensor);
    kdtree::Range<3> box = kdtree::EmptyRange();
    for (const Vector<3>& p : points) {
        const Vector<3> q = turned.Rotate(p);
        box.low = kdtree::Min(box.low, q);
        box.high = kdtree::Max(box.high, q);
    }
    if (points.empty()) box = {};
    const float border = static_cast<float>(margin) * pixel;
    m_toImage = turned.Translate(Vector<3>(border - box.low.x, border - box.low.y, -box.low.z));
    const auto count = [&](float extent) {
        constexpr float most = 2000.0F;
        return static_cast<std::size_t>(std::min(extent * m_perPixel, most)) + 1 + 2 * margin;
    };
    m_width = count(box.high.x - box.low.x);
    m_height = count(box.high.y - box.low.y);
    m_widthF = static_cast<float>(m_width);
    m_heightF = static_cast<float>(m_height);
    fill(points, normals);
    closeHoles();
    markOutside();
    findTops();
    findEdges();
    spreadEdges();
}

Vector<3> CSurfaceImage::pointOf(std::size_t index) const
{
    return {(static_cast<float>(index % m_width) + 0.5F) * m_pixel,
            (static_cast<float>(index / m_width) + 0.5F) * m_pixel, m_pixels[index].height};
}

// The mean of what lies near the highest point of a pixel, brought to its middle along the mean normal.
void CSurfaceImage::fill(std::span<const Vector<3>> points, std::span<const Vector<3>> normals)
{
    struct Sum
    {
        Vector<3> point;
        Vector<3> normal;
        float count = 0.0F;
    };
    m_pixels.assign(m_width * m_height, {});
    std::vector<float> highest(m_pixels.size(), -std::numeric_limits<float>::infinity());
    std::vector<Sum> sums(m_pixels.size());
    for (const Vector<3>& p : points) {
        const Vector<3> q = m_toImage * p;
        const std::size_t at = IndexAt(q);
        if (at != none) highest[at] = std::max(highest[at], q.z);
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto [q, n] = m_toImage.Transform(points[i], normals[i]);
        const std::size_t at = IndexAt(q);
        if (at == none || n.z <= 0.0F || q.z < highest[at] - 2.0F * m_pixel) continue;
        sums[at].point = sums[at].point + q;
        sums[at].normal = sums[at].normal + n;
        sums[at].count += 1.0F;
    }
    for (std::size_t at = 0; at < sums.size(); ++at) {
        if (sums[at].count == 0.0F) continue;
        const Vector<3> n = (1.0F / sums[at].normal.Length()) * sums[at].normal;
        const Vector<3> p = (1.0F / sums[at].count) * sums[at].point;
        Pixel& pixel = m_pixels[at];
        pixel = {p.z, n.x, n.y, std::max(n.z, 1e-3F)};
        const Vector<3> middle = pointOf(at);
        pixel.height += (n.x * (p.x - middle.x) + n.y * (p.y - middle.y)) / std::max(n.z, steepest);
    }
}

// A scanner misses single points; holes of one pixel are no ends of the surface.
void CSurfaceImage::closeHoles()
{
    const std::vector<Pixel> before = m_pixels;
    for (std::size_t y = 1; y + 1 < m_height; ++y) {
        for (std::size_t x = 1; x + 1 < m_width; ++x) {
            const std::size_t at = y * m_width + x;
            if (!before[at].IsEmpty()) continue;
            Pixel sum;
            int count = 0;
            for (std::size_t row = at - m_width; row <= at + m_width; row += m_width) {
                for (std::size_t i = row - 1; i <= row + 1; ++i) {
                    const Pixel& p = before[i];
                    if (p.IsEmpty()) continue;
                    sum = {sum.height + p.height, sum.nx + p.nx, sum.ny + p.ny, sum.nz + p.nz};
                    ++count;
                }
            }
            if (count < 6) continue;
            const float scale = 1.0F / Vector<3>(sum.nx, sum.ny, sum.nz).Length();
            m_pixels[at] = {sum.height / static_cast<float>(count), scale * sum.nx, scale * sum.ny, scale * sum.nz};
        }
    }
}

void CSurfaceImage::markOutside()
{
    constexpr std::size_t reach = 2;
    m_isFarOutside.assign(m_pixels.size(), 1);
    for (std::size_t at = 0; at < m_pixels.size(); ++at) {
        if (m_pixels[at].IsEmpty()) continue;
        for (std::size_t row = at - reach * m_width; row <= at + reach * m_width; row += m_width)
            std::fill_n(m_isFarOutside.begin() + static_cast<std::ptrdiff_t>(row - reach), 2 * reach + 1,
                        std::uint8_t{0});
    }
}

void CSurfaceImage::findTops()
{
    constexpr float unknown = std::numeric_limits<float>::infinity();
    m_tops.assign(m_pixels.size(), unknown);
    for (std::size_t y = 1; y + 1 < m_height; ++y) {
        for (std::size_t x = 1; x + 1 < m_width; ++x) {
            const std::size_t at = y * m_width + x;
            float top = -unknown;
            for (std::size_t row = at - m_width; row <= at + m_width; row += m_width)
                for (std::size_t i = row - 1; i <= row + 1; ++i)
                    top = std::max(top, m_pixels[i].IsEmpty() ? unknown : m_pixels[i].height);
            m_tops[at] = top;
        }
    }
}

// Pixels whose face ends within the pixel beside: there is nothing, or something that lies lower by more than a step
// along the face can explain. The outward direction comes from the middle of what belongs to the face around.
void CSurfaceImage::findEdges()
{
    constexpr std::ptrdiff_t reach = 3;
    constexpr float facing = 0.5F; // steeper faces end at the outline of a curved surface, which is no edge
    const auto width = static_cast<std::ptrdiff_t>(m_width);
    const auto distanceFrom = [&](const Vector<3>& p, const Vector<3>& n, std::ptrdiff_t i) {
        return kdtree::Dot(n, pointOf(static_cast<std::size_t>(i)) - p);
    };
    for (std::size_t index = 0; index < m_pixels.size(); ++index) {
        if (m_pixels[index].nz < facing) continue;
        const auto at = static_cast<std::ptrdiff_t>(index);
        const Vector<3> p = pointOf(index);
        const Vector<3> n(m_pixels[index].nx, m_pixels[index].ny, m_pixels[index].nz);
        bool isEnd = false;
        for (const std::ptrdiff_t step : {std::ptrdiff_t{-1}, std::ptrdiff_t{1}, -width, width}) {
            const Pixel& beside = m_pixels[static_cast<std::size_t>(at + step)];
            isEnd = isEnd || beside.IsEmpty() || distanceFrom(p, n, at + step) < -3.0F * m_pixel;
        }
        if (!isEnd) continue;
        Vector<3> middle;
        float count = 0.0F;
        for (std::ptrdiff_t dy = -reach; dy <= reach; ++dy) {
            for (std::ptrdiff_t dx = -reach; dx <= reach; ++dx) {
                const std::ptrdiff_t i = at + dy * width + dx;
                if (dx * dx + dy * dy > reach * reach + 1 || m_pixels[static_cast<std::size_t>(i)].IsEmpty()) continue;
                if (std::abs(distanceFrom(p, n, i)) > m_pixel) continue;
                middle = middle + pointOf(static_cast<std::size_t>(i));
                count += 1.0F;
            }
        }
        Vector<3> outward = p - (1.0F / count) * middle;
        outward = outward - kdtree::Dot(outward, n) * n;
        const float length = outward.Length();
        // Half a disc lies 0.42 radii off its middle; much less is a speck or a slit.
        if (count < 8.0F || length < 0.2F * static_cast<float>(reach) * m_pixel) continue;
        m_edges.push_back({p, n, (1.0F / length) * outward});
    }
}

void CSurfaceImage::spreadEdges()
{
    constexpr std::ptrdiff_t reach = 5;
    m_edgeIndex.assign(m_pixels.size(), -1);
    std::vector<int> distance(m_pixels.size(), reach * reach + 1);
    if (m_edges.size() > 32767) m_edges.resize(32767);
    for (std::size_t e = 0; e < m_edges.size(); ++e) {
        const auto at = static_cast<std::ptrdiff_t>(IndexAt(m_edges[e].point));
        for (std::ptrdiff_t dy = -reach; dy <= reach; ++dy) {
            for (std::ptrdiff_t dx = -reach; dx <= reach; ++dx) {
                const auto i = static_cast<std::size_t>(at + dy * static_cast<std::ptrdiff_t>(m_width) + dx);
                const int d = static_cast<int>(dx * dx + dy * dy);
                if (d >= distance[i]) continue;
                distance[i] = d;
                m_edgeIndex[i] = static_cast<std::int16_t>(e);
            }
        }
    }
}

} // namespace prereg
