// SPDX-License-Identifier: MIT
#include "tools/pictures/maskregions.h"

#include "zorvan/colour/rgb.h"
#include "zorvan/scans/textnumber.h"

#include <cstddef>
#include <iomanip>
#include <sstream>

namespace tools {

namespace {

using Zorvan::CPixelPolygon;

std::vector<unsigned char> brightPixels(const Picture& picture, int threshold)
{
    std::vector<unsigned char> mask;
    mask.reserve(picture.pixels.size());
    for (const Picture::Pixel& p : picture.pixels)
        mask.push_back(Zorvan::cs::RGB(p.r, p.g, p.b).ToGray() * p.a >= threshold * 255 ? 1 : 0);
    return mask;
}

} // namespace

std::vector<CPixelPolygon> RegionsOf(const Picture& mask, const RegionOptions& options)
{
    const auto bright = brightPixels(mask, options.iThreshold);
    auto regions =
        CPixelPolygon::RegionsOf(bright.data(), static_cast<int>(mask.uiWidth), static_cast<int>(mask.uiHeight));
    std::erase_if(regions, [&](const CPixelPolygon& region) { return region.GetArea() < options.iLeastArea; });
    for (CPixelPolygon& region : regions) region = region.Dilate(options.uiDilation);
    return regions;
}

std::string TableText(const std::vector<CPixelPolygon>& regions)
{
    std::ostringstream text;
    text << "region       area   perimeter  roundness    centre\n";
    for (std::size_t i = 0; i < regions.size(); ++i) {
        const auto [x, y] = regions[i].GetCenterOfGravity();
        text << std::setw(6) << i + 1 << std::setw(11) << regions[i].GetArea() << std::setw(12)
             << Zorvan::ToText(static_cast<double>(regions[i].GetPerimeter()), 6) << std::setw(11)
             << Zorvan::ToText(static_cast<double>(regions[i].GetRoundness()), 4) << "    " << Zorvan::ToText(x, 6)
             << ' ' << Zorvan::ToText(y, 6) << '\n';
    }
    return text.str();
}

} // namespace tools
