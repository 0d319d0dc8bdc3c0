// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/xyzreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using Zorvan::Scan;

std::string textOf(const Scan& scan)
{
    std::string text;
    const auto append = [&](const auto& v) {
        for (const float c : {v.x, v.y, v.z}) text += Zorvan::ToText(static_cast<double>(c), 9) + ",";
    };
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        AppendPlace(text, scan, i);
        if (!scan.normals.empty()) append(scan.normals[i]);
        text += "\r\n";
    }
    return text;
}

} // namespace

/// What is read is a scan, and reads the same again from text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto read = ReadOrRefuse(Zorvan::ReadXyz, data, size, "input.xyz");
    if (!read) return 0;
    const Scan& scan = *read;
    CheckScan(scan, size);
    const Scan again = Zorvan::ReadXyz(textOf(scan), "again.xyz");
    Law(SamePlaces(again, scan), "points read back the same");
    Law(SameVectors(again.normals, scan.normals), "normals read back the same");
    return 0;
}
