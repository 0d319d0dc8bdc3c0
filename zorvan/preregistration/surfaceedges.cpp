// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/surfaceedges.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr int reach = 3;            // pixels around one that is looked at
constexpr float facing = 0.5F;      // cosine between normal and ray of a face that can end
constexpr float halfDisc = 0.4244F; // distance of its middle from the centre, in radii

/// What lies around a pixel: on the plane of its face, below it or not there, above it.
struct Surroundings
{
    int iOn = 0;
    int iBelow = 0;
    int iAbove = 0;
    Vector<3> middle; ///< of what lies on the plane
};

class CEdgeFinder
{
public:
    CEdgeFinder(const CRangeImage& image, float noise)
        : m_image(image), m_tolerance(std::max(4.0F * noise, 0.25F * image.GetPixelSize()))
    {
    }

    [[nodiscard]] std::optional<SurfaceEdge> At(CRangeImage::Pixel at) const
    {
        const CRangeImage::Surfel& face = m_image.GetSurfel(at);
        if (face.normal.z < facing || !canEnd(at, face)) return {};
        const Surroundings around = lookAround(at, face);
        const int all = around.iOn + around.iBelow + around.iAbove;
        if (around.iAbove * 8 > all || around.iOn * 10 < all * 3) return {};
        const Vector<3> off = face.point - (1.0F / static_cast<float>(around.iOn)) * around.middle;
        const Vector<3> along = off - kdtree::Dot(off, face.normal) * face.normal;
        const float length = along.Length();
        const float radius = (static_cast<float>(reach) + 0.5F) * m_image.GetPixelSize();
        // Much less than half a disc lies on the plane around a speck, a slit, or a face that ends nowhere.
        if (length < 0.65F * halfDisc * radius) return {};
        const Vector<3> outward = (1.0F / length) * along;
        const float share = static_cast<float>(around.iOn) / static_cast<float>(all);
        const float toEnd = (share - 0.5F) * 0.5F * std::numbers::pi_v<float> * radius;
        return SurfaceEdge{face.point + toEnd * outward, face.normal, outward};
    }

private:
    [[nodiscard]] float distance(const CRangeImage::Surfel& face, CRangeImage::Pixel at) const
    {
        return kdtree::Dot(face.normal, m_image.GetSurfel(at).point - face.point);
    }

    /// A quick no for the inner pixels of a face.
    [[nodiscard]] bool canEnd(CRangeImage::Pixel at, const CRangeImage::Surfel& face) const
    {
        const auto isOff = [&](int dx, int dy) {
            const CRangeImage::Pixel beside{at.x + dx, at.y + dy};
            return !m_image.IsFilled(beside) || distance(face, beside) < -m_tolerance;
        };
        return isOff(-2, 0) || isOff(2, 0) || isOff(0, -2) || isOff(0, 2);
    }

    [[nodiscard]] Surroundings lookAround(CRangeImage::Pixel at, const CRangeImage::Surfel& face) const
    {
        Surroundings around;
        for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx) {
                if (dx * dx + dy * dy > reach * reach + 1) continue;
                const CRangeImage::Pixel beside{at.x + dx, at.y + dy};
                const float d = m_image.IsFilled(beside) ? distance(face, beside) : -2.0F * m_tolerance;
                if (d > m_tolerance) {
                    ++around.iAbove;
                } else if (d < -m_tolerance) {
                    ++around.iBelow;
                } else {
                    ++around.iOn;
                    around.middle = around.middle + m_image.GetSurfel(beside).point;
                }
            }
        }
        return around;
    }

    const CRangeImage& m_image;
    float m_tolerance;
};

} // namespace

std::vector<SurfaceEdge> FindSurfaceEdges(const CRangeImage& image, float noise)
{
    std::vector<SurfaceEdge> edges;
    const CEdgeFinder finder(image, noise);
    for (int y = reach; y + reach < image.GetHeight(); ++y) {
        for (int x = reach; x + reach < image.GetWidth(); ++x) {
            if (!image.IsFilled({x, y})) continue;
            if (const auto edge = finder.At({x, y})) edges.push_back(*edge);
        }
    }
    return edges;
}

} // namespace prereg
