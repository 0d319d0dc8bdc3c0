// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/plyreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using Zorvan::Scan;

/// The scan as a text PLY; nine digits give every float back.
std::string textOf(const Scan& scan)
{
    std::string text = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(scan.points.size());
    for (const char* name : {"x", "y", "z", "nx", "ny", "nz"})
        if (!scan.normals.empty() || name[0] != 'n') text.append("\nproperty float ").append(name);
    text += "\nelement face " + std::to_string(scan.faces.size()) +
            "\nproperty list uchar int vertex_indices\nend_header\n";
    const auto append = [&](const auto& v) {
        for (const float c : {v.x, v.y, v.z}) text += Zorvan::ToText(static_cast<double>(c), 9) + " ";
    };
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        AppendPlace(text, scan, i);
        if (!scan.normals.empty()) append(scan.normals[i]);
        text += '\n';
    }
    for (const auto& [a, b, c] : scan.faces)
        text += "3 " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c) + "\n";
    return text;
}

} // namespace

/// What is read is a scan, and reads the same again from text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto read = ReadOrRefuse(Zorvan::ReadPly, data, size, "input.ply");
    if (!read) return 0;
    const Scan& scan = *read;
    CheckScan(scan, size);
    const Scan again = Zorvan::ReadPly(textOf(scan), "again.ply");
    Law(SamePlaces(again, scan), "points read back the same");
    Law(SameVectors(again.normals, scan.normals), "normals read back the same");
    Law(again.faces == scan.faces, "faces read back the same");
    return 0;
}
