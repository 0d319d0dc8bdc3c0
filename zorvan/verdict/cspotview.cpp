// SPDX-License-Identifier: MIT
#include "zorvan/verdict/cspotview.h"

#include "zorvan/verdict/verdictlimits.h"

#include <cstddef>
#include <limits>

namespace prereg {

CSpotView::CSpotView(const PlacedView& placed) : m_view(*placed.view)
{
    if (!IsKnown()) return;
    m_toImage = image().GetFrame() * placed.pose.GetInverse(true);
    m_toCommon = placed.pose * image().GetFrame().GetInverse(true);
    findOutside();
    findGap();
}

bool CSpotView::IsKnown() const
{
    const ERay eKind = m_view.GetRay().eKind;
    return m_view.HasImage() && (eKind == ERay::Found || eKind == ERay::Given) &&
           m_view.GetImage().GetNumFilled() >= verdict::uiFewPixels;
}

ESight CSpotView::Sight(const Vector3& point, const Vector3& normal, float front) const
{
    const Vector3 p = m_toImage * point;
    const Pixel at = image().PixelAt(p);
    if (image().IsInFront(at, p.z - front)) return ESight::Lacks;
    const Vector3 n = m_toImage.Rotate(normal);
    if (!image().Faces(n)) return ESight::Silent;
    if (isOutside(at)) return ESight::Silent;
    if (image().IsMissing(at, p.z, static_cast<float>(verdict::dMissingPixels))) return ESight::Lacks;
    if (!image().IsFull(at)) return ESight::Silent;
    const CRangeImage::Surfel& surfel = image().GetSurfel(at);
    const bool isOn = std::abs(Dot(surfel.normal, p - surfel.point)) < front;
    const bool isAlike = Dot(surfel.normal, n) > static_cast<float>(verdict::dMatchCosine);
    return isOn && isAlike ? ESight::Shows : ESight::Silent;
}

bool CSpotView::HasSurfaceNear(const Vector3& point, float distance) const
{
    const Vector3 p = m_toImage * point;
    const Pixel at = image().PixelAt(p);
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const Pixel beside{at.x + dx, at.y + dy};
            if (image().Contains(beside) && DistanceSq(image().GetSurfel(beside).point, p) < distance * distance)
                return true;
        }
    }
    return false;
}

bool CSpotView::IsOpen(const Vector3& point, float front) const
{
    const Vector3 p = m_toImage * point;
    const Pixel at = image().PixelAt(p);
    return image().Contains(at) && (!image().IsFilled(at) || image().GetSurfel(at).point.z < p.z - front);
}

bool CSpotView::LooksThrough(const Vector3& point, float front) const
{
    const Vector3 p = m_toImage * point;
    return image().IsInFront(image().PixelAt(p), p.z - front);
}

bool CSpotView::Encloses(std::span<const Vector3> spot) const
{
    return std::ranges::none_of(spot,
                                [&](const Vector3& point) { return isOutside(image().PixelAt(m_toImage * point)); });
}

CSpotView::Pixels CSpotView::pixelsAbout(std::span<const Vector3> spot, float distance) const
{
    constexpr int iMost = std::numeric_limits<int>::max();
    Pixel low{iMost, iMost};
    Pixel high{-1, -1};
    const int border = static_cast<int>(std::ceil(distance / GetPixelSize()));
    for (const Vector3& point : spot) {
        const Pixel at = image().PixelAt(m_toImage * point);
        low = {std::min(low.x, at.x - border), std::min(low.y, at.y - border)};
        high = {std::max(high.x, at.x + border), std::max(high.y, at.y + border)};
    }
    return {low, high};
}

/// Empty pixels that others lead to from the corner of the image, which is empty.
void CSpotView::findOutside()
{
    m_isOutside.assign(static_cast<std::size_t>(image().GetWidth()) * static_cast<std::size_t>(image().GetHeight()),
                       false);
    std::vector<Pixel> open;
    const auto reach = [&](Pixel at) {
        if (isOutside(at) || image().IsFilled(at)) return;
        m_isOutside[image().Index(at)] = true;
        open.push_back(at);
    };
    reach({0, 0});
    while (!open.empty()) {
        const Pixel at = open.back();
        open.pop_back();
        for (const Pixel next : {Pixel{at.x - 1, at.y}, {at.x + 1, at.y}, {at.x, at.y - 1}, {at.x, at.y + 1}})
            reach(next);
    }
}

void CSpotView::findGap()
{
    for (int y = 0; y < image().GetHeight() && !m_hasGap; ++y)
        for (int x = 0; x < image().GetWidth() && !m_hasGap; ++x)
            m_hasGap = !isOutside({x, y}) &&
                       image().GetDistanceToSilhouette({x, y}) > static_cast<float>(verdict::dMissingPixels);
}

} // namespace prereg
