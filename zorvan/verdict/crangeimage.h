// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/cpointset.h"
#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"
#include "zorvan/platform/export.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace prereg {

/// A scan as its sensor saw it: the highest surface in each pixel of a raster across the viewing ray. Answers in one
/// look-up what a point of another scan means here: on the surface, in front of it, or where surface is missing.
///
///     const CRangeImage image(points, normals, ray.direction, sampling.dSpacing);
///     const auto p = image.GetFrame() * (pose * point);         // x, y across the ray, z along it
///     if (image.IsInFront(image.PixelAt(p), p.z - margin)) ...  // the sensor would not have seen the surface behind
///
/// The frame has its origin in the low corner of the image; the sensor looks along -z. Immutable, safe to read from any
/// thread.
class ZORVAN_API CRangeImage
{
public:
    using Vector3 = kdtree::Vector<3>;
    static constexpr std::uint32_t uiNone = std::numeric_limits<std::uint32_t>::max();

    /// The surface in a pixel, in the frame of the image; its normal looks at the sensor, whatever it did before.
    struct Surfel
    {
        Vector3 point; ///< z is -Infinity in an empty pixel
        Vector3 normal;
    };

    /// A place in the raster; also outside of the image.
    struct Pixel
    {
        int x = 0;
        int y = 0;
    };

    /// @param normals    unit length, as long as the points
    /// @param direction  towards the sensor, unit length
    /// @param dSpacing   of the points, mm. A pixel is as wide, or wider where the points leave most of such pixels
    ///                   empty. Axes follow the raster of the points.
    /// @param isEven     the points lie in equal steps, so that pixels of that size leave no holes: an outline of a few
    ///                   hundred pixels alone would look like many
    CRangeImage(const Vectors& points, const Vectors& normals, const Vector3& direction, double dSpacing,
                bool isEven = false);

    [[nodiscard]] const CTrafo& GetFrame() const { return m_frame; } ///< scan to image coordinates
    [[nodiscard]] float GetPixelSize() const { return m_pixel; }     ///< mm
    [[nodiscard]] int GetWidth() const { return m_width; }
    [[nodiscard]] int GetHeight() const { return m_height; }
    [[nodiscard]] std::size_t GetNumFilled() const { return m_numFilled; }
    /// Filled pixels over these and the empty ones that they enclose: 1 for a surface without holes.
    [[nodiscard]] double GetCompleteness() const { return m_completeness; }

    [[nodiscard]] Pixel PixelAt(const Vector3& p) const
    {
        return {floorToInt(p.x * m_perPixel), floorToInt(p.y * m_perPixel)};
    }
    [[nodiscard]] bool Contains(Pixel at) const { return at.x >= 0 && at.y >= 0 && at.x < m_width && at.y < m_height; }
    /// Position in the flat arrays. @param at  inside the image
    [[nodiscard]] std::size_t Index(Pixel at) const
    {
        return static_cast<std::size_t>(at.y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(at.x);
    }
    /// Brings near the processor what is asked of a pixel and of those about it; any pixel will do.
    void Expect(Pixel at) const
    {
        const Pixel middle = clamped(at);
        const std::size_t index = Index(middle);
        const auto width = static_cast<std::size_t>(m_width);
        __builtin_prefetch(&m_ceilings[index]);
        __builtin_prefetch(&m_surfels[index]);
        if (middle.y > 0) __builtin_prefetch(&m_surfels[index - width]);
        if (middle.y + 1 < m_height) __builtin_prefetch(&m_surfels[index + width]);
    }
    [[nodiscard]] const Surfel& GetSurfel(Pixel at) const { return m_surfels[Index(at)]; }
    [[nodiscard]] bool IsFilled(Pixel at) const { return GetSurfel(at).point.z > fEmpty; }
    /// Index of the pixel's surface among the points given; `uiNone` in an empty pixel.
    [[nodiscard]] std::uint32_t GetPointIndex(Pixel at) const { return m_indices[Index(at)]; }
    /// All nine pixels about this one hold surface.
    [[nodiscard]] bool IsFull(Pixel at) const { return GetCeiling(at) < std::numeric_limits<float>::infinity(); }
    /// Height of the highest surface in the nine pixels; +Infinity unless all of them hold some.
    [[nodiscard]] float GetCeiling(Pixel at) const { return m_ceilings[Index(at)]; }
    /// Pixels to the nearest one that holds surface, 0 on it. Inside the image.
    [[nodiscard]] float GetDistanceToSilhouette(Pixel at) const { return m_outside[Index(at)]; }
    /// Empty, and in most directions there is curved surface beside it that looks at the sensor: the object goes on
    /// here, the data do not. A silhouette turns away first, and a flat face may have a bore or end.
    [[nodiscard]] bool IsInGap(Pixel at) const { return Contains(at) && m_isGap[Index(at)] != 0; }
    /// Below this height surface may be hidden from the light of a triangulating sensor, or from the sensor itself.
    [[nodiscard]] float GetShadow(Pixel at) const { return m_shadows[Index(at)]; }

    /// The sensor would have looked through a surface at this height: all nine pixels were seen, and lie lower.
    [[nodiscard]] bool IsInFront(Pixel at, float height) const { return Contains(at) && height > GetCeiling(at); }

    /// Whether the sensor would see a surface that looks along this normal (in the frame of the image). The light or
    /// the camera of a triangulating sensor stands beside the ray, where steep surface turns away from it: such surface
    /// is seen where more like it was, on any part of the scan.
    [[nodiscard]] bool Faces(const Vector3& normal) const
    {
        if (!(normal.z > static_cast<float>(verdict::dFacingCosine))) return false;
        return normal.z >= static_cast<float>(verdict::dSteepCosine) || (m_steepSectors >> sectorOf(normal) & 1U) != 0;
    }

    /// The sensor saw nothing here although nothing that it saw hides a surface at this height; false where the field
    /// of view may have ended. Whether the surface faces the sensor is for the caller to ask.
    /// @param minPixels  distance from the silhouette that counts as outside
    [[nodiscard]] bool IsMissing(Pixel at, float height, float minPixels) const
    {
        const Pixel inside = clamped(at);
        if (!(m_outside[Index(inside)] > minPixels) && Contains(at)) return false;
        if (isBeyondView(at)) return false;
        const auto beyond = static_cast<float>(std::max(std::abs(at.x - inside.x), std::abs(at.y - inside.y)));
        return height > m_shadows[Index(inside)] - beyond * m_shadowSlope;
    }

private:
    static constexpr float fEmpty = -std::numeric_limits<float>::infinity();
    static constexpr int iMargin = 4; ///< empty pixels about the surface: outside the image is outside the silhouette

    /// Far out, where an integer ends, any pixel outside the image will do.
    [[nodiscard]] static int floorToInt(float value)
    {
        constexpr float fLimit = 1e9F;
        if (!(value > -fLimit)) return -static_cast<int>(fLimit);
        if (value > fLimit) return static_cast<int>(fLimit);
        const int whole = static_cast<int>(value);
        return whole - static_cast<int>(static_cast<float>(whole) > value);
    }
    [[nodiscard]] Pixel clamped(Pixel at) const
    {
        return {std::clamp(at.x, 0, m_width - 1), std::clamp(at.y, 0, m_height - 1)};
    }
    [[nodiscard]] bool isBeyondView(Pixel at) const
    {
        return m_isPartial &&
               (at.x < iMargin || at.x >= m_width - iMargin || at.y < iMargin || at.y >= m_height - iMargin);
    }
    void setFrame(const Vectors& points);
    void rasterise(const Vectors& points);
    [[nodiscard]] double meanFilledNeighbours() const;
    void closeSinglePixels();
    void storeSurfels(const Vectors& points, const Vectors& normals);
    static constexpr unsigned uiSectors = 24; ///< of directions about the ray
    [[nodiscard]] static unsigned sectorOf(const Vector3& normal);
    void findSteepSectors();
    void computeCeilings();
    void computeDistances();
    void findCuts(const Vectors& points);
    /// Rows whose surface comes within half a pixel of the left end of all, of the right end; and columns, of the
    /// bottom and the top.
    [[nodiscard]] std::array<int, 4> countOutermost(const Vectors& points) const;
    void computeCompleteness();
    void findGaps();
    /// Between such surface, by its place in the flat arrays, along four lines and four more.
    [[nodiscard]] bool isGapBetween(const std::array<std::uint32_t, 4>& firstFour,
                                    const std::array<std::uint32_t, 4>& lastFour) const;

    CTrafo m_frame;
    float m_pixel = 0.0F;
    float m_perPixel = 0.0F;
    float m_shadowSlope = 0.0F; ///< mm per pixel
    int m_width = 0;
    int m_height = 0;
    std::size_t m_numFilled = 0;
    double m_completeness = 0.0;
    std::uint32_t m_steepSectors = 0; ///< one bit a sector: in it, or beside it, steep surface was seen
    bool m_isPartial = false;         ///< the surface goes on beyond the field of view, on which side ever
    std::vector<std::uint32_t> m_indices;
    std::vector<Surfel> m_surfels;
    std::vector<float> m_ceilings;
    std::vector<float> m_outside;
    std::vector<float> m_shadows;
    std::vector<std::uint8_t> m_isGap;
};

} // namespace prereg
