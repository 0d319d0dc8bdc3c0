// SPDX-License-Identifier: MIT
#include "tools/pictures/outlinepicture.h"

#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace tools {

namespace {

using Zorvan::ChainedPixel;
using Zorvan::CPixelPolygon;

/// Neighbouring regions differ most when the hue turns by the golden angle.
std::string hueOf(std::size_t number)
{
    return Zorvan::ToText(std::fmod(137.508 * static_cast<double>(number), 360.0), 4);
}

/// The parts one after another.
std::string joined(std::initializer_list<std::string_view> parts)
{
    std::string text;
    for (const std::string_view part : parts) text += part;
    return text;
}

/// Steps in the same direction are one line.
std::string pathOf(const CPixelPolygon& region)
{
    const std::vector<ChainedPixel>& chain = *region.getPixelChainPtr();
    std::string path =
        joined({"M", Zorvan::ToText(chain.back().x + 0.5, 10), " ", Zorvan::ToText(chain.back().y + 0.5, 10)});
    int lineX = 0;
    int lineY = 0;
    const auto finishLine = [&] {
        if (lineX != 0 || lineY != 0) path += joined({"l", std::to_string(lineX), " ", std::to_string(lineY)});
    };
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const ChainedPixel& from = chain[i > 0 ? i - 1 : chain.size() - 1];
        const int dx = chain[i].x - from.x;
        const int dy = chain[i].y - from.y;
        const int length = std::max(std::abs(lineX), std::abs(lineY));
        if (lineX != dx * length || lineY != dy * length) {
            finishLine();
            lineX = lineY = 0;
        }
        lineX += dx;
        lineY += dy;
    }
    finishLine();
    return path + "z";
}

std::string drawRegion(const CPixelPolygon& region, std::size_t number)
{
    const std::string hue = hueOf(number);
    const std::string name = std::to_string(number);
    const auto [x, y] = region.GetCenterOfGravity();
    return joined({"<path d=\"",
                   pathOf(region),
                   "\" fill=\"hsl(",
                   hue,
                   ",70%,75%)\" stroke=\"hsl(",
                   hue,
                   ",80%,40%)\"><title>region ",
                   name,
                   ": area ",
                   std::to_string(region.GetArea()),
                   ", perimeter ",
                   Zorvan::ToText(static_cast<double>(region.GetPerimeter()), 6),
                   ", roundness ",
                   Zorvan::ToText(static_cast<double>(region.GetRoundness()), 4),
                   "</title></path>\n<text x=\"",
                   Zorvan::ToText(x + 0.5, 6),
                   "\" y=\"",
                   Zorvan::ToText(y + 0.5, 6),
                   "\">",
                   name,
                   "</text>\n"});
}

} // namespace

std::string DrawOutlines(const std::vector<CPixelPolygon>& regions, unsigned width, unsigned height, unsigned padding)
{
    const std::string corner = std::to_string(-static_cast<int>(padding));
    const std::string w = std::to_string(width + 2 * padding);
    const std::string h = std::to_string(height + 2 * padding);
    const double text = std::clamp(std::max(width, height) / 40.0, 1.0, 40.0);
    std::string svg =
        joined({"<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"",
                corner,
                " ",
                corner,
                " ",
                w,
                " ",
                h,
                "\" stroke-width=\"1\" stroke-linejoin=\"round\" stroke-linecap=\"square\">\n<style>text{font:",
                Zorvan::ToText(text),
                "px sans-serif;text-anchor:middle;dominant-baseline:central;stroke:none}</style>\n",
                "<rect x=\"",
                corner,
                "\" y=\"",
                corner,
                "\" width=\"",
                w,
                "\" height=\"",
                h,
                "\" fill=\"white\" stroke=\"none\"/>\n"});
    for (std::size_t i = 0; i < regions.size(); ++i) svg += drawRegion(regions[i], i + 1);
    return svg + "</svg>\n";
}

} // namespace tools
