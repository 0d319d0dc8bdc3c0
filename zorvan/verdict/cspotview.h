// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/verdict/cscanview.h"
#include "zorvan/verdict/disputedspots.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

namespace prereg {

/// What a view says of surface that another one shows.
enum class ESight : unsigned char
{
    Silent,
    Shows,
    Lacks
};

/// A scan where it lies among others, ready to be asked about single points of these, all in the common frame. The
/// view must outlive it. Not installed.
class CSpotView
{
public:
    using Vector3 = kdtree::Vector<3>;

    explicit CSpotView(const PlacedView& placed);

    /// Of others nothing is known, and nothing else may be asked.
    [[nodiscard]] bool IsKnown() const;
    [[nodiscard]] float GetPixelSize() const { return image().GetPixelSize(); }
    [[nodiscard]] double GetNoise() const { return m_view.GetSampling().dNoise; }
    /// To the sensor.
    [[nodiscard]] Vector3 GetDirection() const { return m_toCommon.Rotate(Vector3(0, 0, 1)); }
    /// Of the angle between a normal and that.
    [[nodiscard]] float CosineTo(const Vector3& normal) const { return m_toImage.Rotate(normal).z; }

    /// Calls `f(point, normal)` for samples within its surface.
    template <typename F>
    void ForEachSample(float distance, F f) const
    {
        const int stride = std::max(1, static_cast<int>(std::lround(distance / GetPixelSize())));
        forEachIn({{0, 0}, {image().GetWidth() - 1, image().GetHeight() - 1}}, stride, f);
    }
    /// The same for pixels about some points, of a large spot for a few thousand.
    template <typename F>
    void ForEachPixelAbout(std::span<const Vector3> spot, float distance, F f) const
    {
        const Pixels pixels = pixelsAbout(spot, distance);
        forEachIn(pixels, 1 + std::max(pixels.high.x - pixels.low.x, pixels.high.y - pixels.low.y) / 64, f);
    }

    /// Only what is sure: well within surface, or well within a gap of it.
    /// @param front  above the surface by more: the sensor looked through
    [[nodiscard]] ESight Sight(const Vector3& point, const Vector3& normal, float front) const;
    [[nodiscard]] bool HasSurfaceNear(const Vector3& point, float distance) const;
    /// Nothing there, or something far behind it.
    [[nodiscard]] bool IsOpen(const Vector3& point, float front) const;
    [[nodiscard]] bool LooksThrough(const Vector3& point, float front) const;
    /// Surface goes all round each gap that holds one of these points.
    [[nodiscard]] bool Encloses(std::span<const Vector3> spot) const;
    /// There is a gap, with surface all round, that is wider than what edges lose.
    [[nodiscard]] bool HasGap() const { return m_hasGap; }

private:
    using Pixel = CRangeImage::Pixel;
    struct Pixels
    {
        Pixel low;
        Pixel high; ///< the last ones; either may lie beside the image
    };

    [[nodiscard]] const CRangeImage& image() const { return m_view.GetImage(); }
    void findOutside();
    void findGap();
    [[nodiscard]] bool isOutside(Pixel at) const { return !image().Contains(at) || m_isOutside[image().Index(at)]; }
    /// @param spot  not empty
    [[nodiscard]] Pixels pixelsAbout(std::span<const Vector3> spot, float distance) const;

    template <typename F>
    void forEachIn(const Pixels& pixels, int stride, F f) const
    {
        const int endY = std::min(image().GetHeight(), pixels.high.y + 1);
        const int endX = std::min(image().GetWidth(), pixels.high.x + 1);
        for (int y = std::max(0, pixels.low.y); y < endY; y += stride) {
            for (int x = std::max(0, pixels.low.x); x < endX; x += stride) {
                if (!image().IsFull({x, y})) continue;
                const CRangeImage::Surfel& surfel = image().GetSurfel({x, y});
                f(m_toCommon * surfel.point, m_toCommon.Rotate(surfel.normal));
            }
        }
    }

    const CScanView& m_view;
    CTrafo m_toImage;
    CTrafo m_toCommon;
    std::vector<bool> m_isOutside;
    bool m_hasGap = false;
};

} // namespace prereg
