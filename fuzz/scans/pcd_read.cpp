// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/lzf.h"
#include "zorvan/scans/pcdreader.h"
#include "zorvan/scans/pcdwriter.h"

#include <cstddef>
#include <cstdint>

/// What is read is a scan, and reads the same again from what is written of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto scan = ReadOrRefuse(Zorvan::ReadPcd, data, size, "input.pcd");
    if (!scan) return 0;
    CheckScan(*scan, Zorvan::uiLzfMostPerByte * size); // they may be compressed
    const Zorvan::Scan again = Zorvan::ReadPcd(Zorvan::WritePcdBytes(*scan), "again.pcd");
    Law(SamePlaces(again, *scan), "points read back the same");
    Law(SameVectors(again.normals, scan->normals), "normals read back the same");
    Law(again.colours == scan->colours, "colours read back the same");
    Law(std::ranges::equal(again.intensities, scan->intensities, SameNumber), "intensities read back the same");
    return 0;
}
