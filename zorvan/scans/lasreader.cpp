// SPDX-License-Identifier: MIT
#include "zorvan/scans/lasreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/lasheader.h"
#include "zorvan/scans/littleendian.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace Zorvan {

namespace {

constexpr std::size_t uiIntensity = 12; // byte of a point of every format

using WideColour = std::array<std::uint16_t, 3>;

/// Bytes out of the 16 bits of the file. Many programs write bytes all the same.
std::vector<Rgb> toBytes(const std::vector<WideColour>& colours)
{
    std::uint16_t most = 0;
    for (const WideColour& colour : colours) most = std::max(most, *std::ranges::max_element(colour));
    std::vector<Rgb> bytes;
    if (most == 0) return bytes;
    const unsigned shift = most > 255 ? 8 : 0;
    bytes.reserve(colours.size());
    for (const auto& [red, green, blue] : colours)
        bytes.push_back({static_cast<std::uint8_t>(red >> shift), static_cast<std::uint8_t>(green >> shift),
                         static_cast<std::uint8_t>(blue >> shift)});
    return bytes;
}

} // namespace

Scan ReadLas(std::string_view bytes, const std::filesystem::path& file)
{
    const LasHeader header = ReadLasHeader(bytes, file);
    const std::optional<std::size_t> colourOffset = LasColourOffset(header.format);
    Scan scan;
    std::vector<Position> places;
    std::vector<WideColour> colours;
    places.reserve(header.points);
    scan.intensities.reserve(header.points);
    if (colourOffset) colours.reserve(header.points);
    for (std::uint64_t i = 0; i < header.points; ++i) {
        const std::size_t at = header.bodyOffset + i * header.stride;
        const auto coordinate = [&](std::size_t axis) {
            return LoadLittle<std::int32_t>(bytes, at + 4 * axis) * header.scale[axis] + header.offset[axis];
        };
        places.push_back({coordinate(0), coordinate(1), coordinate(2)});
        scan.intensities.push_back(LoadLittle<std::uint16_t>(bytes, at + uiIntensity));
        if (!colourOffset) continue;
        const auto part = [&](std::size_t k) { return LoadLittle<std::uint16_t>(bytes, at + *colourOffset + 2 * k); };
        colours.push_back({part(0), part(1), part(2)});
    }
    SetPoints(scan, places);
    scan.colours = toBytes(colours);
    if (std::ranges::all_of(scan.intensities, [](float value) { return value == 0.0F; })) scan.intensities.clear();
    return scan;
}

} // namespace Zorvan
