// SPDX-License-Identifier: MIT
#include "zorvan/verdict/disputedpatches.h"

#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Pixel = CRangeImage::Pixel;

enum class EPlace : unsigned char
{
    Other,  ///< it agrees, is hidden, or cannot be compared
    Absent, ///< there should be surface, and there is none
    Refuted ///< and the sensor looked through
};

bool isNearSurface(const CRangeImage& image, Pixel at, const Vector3& p, float near)
{
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const Pixel beside{at.x + dx, at.y + dy};
            if (image.Contains(beside) && DistanceSq(image.GetSurfel(beside).point, p) < near * near) return true;
        }
    return false;
}

/// @param moved  in the frame of the image
EPlace placeOf(const CRangeImage& image, const CRangeImage::Surfel& moved, const DisputeLimits& limits)
{
    const Vector3& p = moved.point;
    const Pixel at = image.PixelAt(p);
    if (image.IsInFront(at, p.z - limits.front)) return EPlace::Refuted;
    if (!(moved.normal.z > static_cast<float>(verdict::dFacingCosine))) return EPlace::Other;
    if (image.IsMissing(at, p.z, static_cast<float>(verdict::dMissingPixels))) return EPlace::Absent;
    const bool isSeen = image.Contains(at) && p.z > image.GetShadow(at);
    return isSeen && !isNearSurface(image, at, p, limits.near) ? EPlace::Absent : EPlace::Other;
}

/// A raster of places with a border, so that each has eight neighbours.
class CPlaces
{
public:
    CPlaces(const CRangeImage& own, const CRangeImage& other, const CTrafo& toOther, const DisputeLimits& limits)
    {
        const int step = std::max(1, static_cast<int>(std::lround(limits.pixel / own.GetPixelSize())));
        const auto placesAlong = [&](int pixels) { return static_cast<std::size_t>((pixels - 1) / step) + 3; };
        m_row = placesAlong(own.GetWidth());
        m_places.assign(m_row * placesAlong(own.GetHeight()), EPlace::Other);
        for (int y = 0; y < own.GetHeight(); y += step) {
            for (int x = 0; x < own.GetWidth(); x += step) {
                if (!own.IsFilled({x, y})) continue;
                const CRangeImage::Surfel& surfel = own.GetSurfel({x, y});
                const auto at = static_cast<std::size_t>(y / step + 1) * m_row + static_cast<std::size_t>(x / step + 1);
                m_places[at] = placeOf(other, {toOther * surfel.point, toOther.Rotate(surfel.normal)}, limits);
            }
        }
    }

    /// Pixels in the middle of all patches.
    [[nodiscard]] unsigned CountMiddles() const
    {
        std::vector<bool> isTaken(m_places.size(), false);
        unsigned middles = 0;
        for (std::size_t at = 0; at < m_places.size(); ++at) {
            if (m_places[at] != EPlace::Refuted || isTaken[at]) continue;
            const std::vector<std::size_t> patch = patchAbout(at, isTaken);
            const auto refuted =
                std::count_if(patch.begin(), patch.end(), [&](auto i) { return m_places[i] == EPlace::Refuted; });
            if (refuted < verdict::iMinPatchRefuted) continue;
            middles += static_cast<unsigned>(
                std::count_if(patch.begin(), patch.end(), [&](std::size_t i) { return isMiddle(i); }));
        }
        return middles;
    }

private:
    [[nodiscard]] std::vector<std::size_t> patchAbout(std::size_t start, std::vector<bool>& isTaken) const
    {
        std::vector<std::size_t> patch{start};
        isTaken[start] = true;
        for (std::size_t next = 0; next < patch.size(); ++next) {
            const std::size_t at = patch[next];
            for (const std::size_t beside : {at - 1, at + 1, at - m_row, at + m_row}) {
                if (m_places[beside] == EPlace::Other || isTaken[beside]) continue;
                isTaken[beside] = true;
                patch.push_back(beside);
            }
        }
        return patch;
    }

    [[nodiscard]] bool isMiddle(std::size_t at) const
    {
        const std::array<std::size_t, 8> around{at - m_row - 1, at - m_row,     at - m_row + 1, at - 1,
                                                at + 1,         at + m_row - 1, at + m_row,     at + m_row + 1};
        return std::none_of(around.begin(), around.end(), [&](auto i) { return m_places[i] == EPlace::Other; });
    }

    std::size_t m_row = 0;
    std::vector<EPlace> m_places;
};

} // namespace

unsigned CountDisputed(const CRangeImage& own, const CRangeImage& other, const CTrafo& toOther,
                       const DisputeLimits& limits)
{
    return CPlaces(own, other, toOther, limits).CountMiddles();
}

} // namespace prereg
