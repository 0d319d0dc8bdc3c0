// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/ptsreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// What is read is a scan, and reads the same again from text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto scan = ReadOrRefuse(Zorvan::ReadPts, data, size, "input.pts");
    if (!scan) return 0;
    CheckScan(*scan, size);
    std::string text = std::to_string(scan->points.size()) + "\n";
    for (std::size_t i = 0; i < scan->points.size(); ++i) {
        AppendPlace(text, *scan, i);
        AppendAttributes(text, *scan, i);
        text += "\n";
    }
    const Zorvan::Scan again = Zorvan::ReadPts(text, "again.pts");
    Law(SamePlaces(again, *scan), "points read back the same");
    Law(again.colours == scan->colours, "colours read back the same");
    Law(std::ranges::equal(again.intensities, scan->intensities, SameNumber), "intensities read back the same");
    return 0;
}
