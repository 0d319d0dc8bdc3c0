// SPDX-License-Identifier: MIT
#include "zorvan/scans/scanwriter.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/vectors.h"

#include <bit>
#include <cstdint>
#include <fstream>
#include <string>

namespace Zorvan {

namespace {

const std::string sStart = "ply\nformat binary_little_endian 1.0\n";
const std::string sResult = "comment a result of zorvan, not a scan\n";

void append(std::string& bytes, std::uint32_t value)
{
    for (unsigned shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift));
}

void append(std::string& bytes, const Vector3& v, double factor)
{
    for (const float value : {v.x, v.y, v.z})
        append(bytes, std::bit_cast<std::uint32_t>(ToFloat(static_cast<double>(value) * factor)));
}

void append(std::string& bytes, const Rgb& colour)
{
    for (const std::uint8_t value : colour) bytes.push_back(static_cast<char>(value));
}

std::string headerOf(const Scan& scan, bool isColoured)
{
    std::string header = sStart + (isColoured ? sResult : "") + "element vertex " + std::to_string(scan.points.size()) +
                         "\nproperty float x\nproperty float y\nproperty float z\n";
    if (!scan.normals.empty()) header += "property float nx\nproperty float ny\nproperty float nz\n";
    if (isColoured) header += "property uchar red\nproperty uchar green\nproperty uchar blue\n";
    if (!scan.faces.empty())
        header += "element face " + std::to_string(scan.faces.size()) + "\nproperty list uchar int vertex_indices\n";
    return header + "end_header\n";
}

} // namespace

void WritePly(const std::filesystem::path& file, const Scan& scan, double unitsPerMm, std::span<const Rgb> colours)
{
    std::string bytes = headerOf(scan, !colours.empty());
    bytes.reserve(bytes.size() + scan.points.size() * 27 + scan.faces.size() * 13);
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        append(bytes, scan.points[i], unitsPerMm);
        if (!scan.normals.empty()) append(bytes, scan.normals[i], 1.0);
        if (!colours.empty()) append(bytes, colours[i]);
    }
    for (const Face& face : scan.faces) {
        bytes.push_back('\3');
        for (const std::uint32_t corner : face) append(bytes, corner);
    }
    WriteFileAtomically(file, bytes);
}

bool IsColouredResult(const std::filesystem::path& file)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) return false; // a pipe would wait for its writer
    std::string bytes(sStart.size() + sResult.size(), '\0');
    std::ifstream(file, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes == sStart + sResult;
}

} // namespace Zorvan
