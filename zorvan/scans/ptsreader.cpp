// SPDX-License-Identifier: MIT
#include "zorvan/scans/ptsreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/pointcolumns.h"
#include "zorvan/scans/textlines.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Zorvan {

Scan ReadPts(std::string_view bytes, const std::filesystem::path& file)
{
    CTextLines lines(bytes, file);
    CPointColumns attributes;
    Scan scan;
    std::vector<Position> places;
    do {
        const std::uint64_t count = lines.Count();
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::span<const double> numbers = lines.Numbers(3);
            places.push_back({numbers[0], numbers[1], numbers[2]});
            attributes.Take(scan, numbers.subspan(3), lines);
        }
    } while (!lines.IsAtEnd());
    if (places.empty()) throw CInputError(file, "holds no point", "give a scan of a surface");
    SetPoints(scan, places);
    return scan;
}

} // namespace Zorvan
