// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/lasreader.h"
#include "zorvan/scans/laswriter.h"

#include <cstddef>
#include <cstdint>

/// What is read is a scan, and reads the same again from what is written of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto scan = ReadOrRefuse(Zorvan::ReadLas, data, size, "input.las");
    if (!scan) return 0;
    CheckScan(*scan, size);
    std::string written;
    try {
        written = Zorvan::WriteLasBytes(*scan, "again.las");
    } catch (const Zorvan::CInputError&) {
        return 0; // a scale that makes infinite coordinates
    }
    const Zorvan::Scan again = Zorvan::ReadLas(written, "again.las");
    Law(again.points.size() == scan->points.size(), "as many points are read back");
    Law(again.intensities.size() == scan->intensities.size(), "intensities are read back");
    Law(again.colours == scan->colours, "colours read back the same");
    return 0;
}
