// SPDX-License-Identifier: MIT
#include "zorvan/scans/scanwriter.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/vectors.h"
#include "zorvan/util/direntries.h"

#include <cstdint>
#include <fstream>
#include <string>

namespace Zorvan {

namespace {

const std::string sStart = "ply\nformat binary_little_endian 1.0\n";
const std::string sResult = "comment a result of zorvan, not a scan\n";

void append(std::string& bytes, const Vector3& v, double factor)
{
    for (const float value : {v.x, v.y, v.z}) AppendLittle(bytes, ToFloat(static_cast<double>(value) * factor));
}

/// Where the point stands in the file: double, since single precision does not reach there.
void appendFar(std::string& bytes, const Vector3& v, const Position& shift, double factor)
{
    for (unsigned axis = 0; axis < 3; ++axis)
        AppendLittle(bytes, (static_cast<double>(v[axis]) + shift[axis]) * factor);
}

void append(std::string& bytes, const Rgb& colour)
{
    for (const std::uint8_t value : colour) bytes.push_back(static_cast<char>(value));
}

/// The scan's own colours do not make a result of it.
std::string headerOf(const Scan& scan, bool isFar, bool isResult)
{
    const std::string type = isFar ? "double" : "float";
    std::string header = sStart + (isResult ? sResult : "") + "element vertex " + std::to_string(scan.points.size());
    for (const char* const axis : {"x", "y", "z"}) header += "\nproperty " + type + " " + axis;
    header += '\n';
    if (!scan.normals.empty()) header += "property float nx\nproperty float ny\nproperty float nz\n";
    if (isResult || !scan.colours.empty()) header += "property uchar red\nproperty uchar green\nproperty uchar blue\n";
    if (!scan.intensities.empty()) header += "property float intensity\n";
    if (!scan.faces.empty())
        header += "element face " + std::to_string(scan.faces.size()) + "\nproperty list uchar int vertex_indices\n";
    return header + "end_header\n";
}

} // namespace

void WritePly(const std::filesystem::path& file, const Scan& scan, double unitsPerMm, std::span<const Rgb> colours)
{
    const bool isFar = scan.shift != Position{};
    const std::string header = headerOf(scan, isFar, !colours.empty());
    if (colours.empty()) colours = scan.colours;
    const auto appendVertex = [&](std::string& bytes, std::size_t i) {
        if (isFar)
            appendFar(bytes, scan.points[i], scan.shift, unitsPerMm);
        else
            append(bytes, scan.points[i], unitsPerMm);
        if (!scan.normals.empty()) append(bytes, scan.normals[i], 1.0);
        if (!colours.empty()) append(bytes, colours[i]);
        if (!scan.intensities.empty()) AppendLittle(bytes, scan.intensities[i]);
    };
    const auto appendFace = [&](std::string& bytes, std::size_t i) {
        bytes.push_back('\3');
        for (const std::uint32_t corner : scan.faces[i]) AppendLittle(bytes, corner);
    };
    WriteFileAtomically(file, [&](std::ostream& out) {
        out << header;
        std::string bytes; // of one vertex or face at a time
        const auto writeAll = [&](std::size_t count, const auto& appendOne) {
            for (std::size_t i = 0; i < count; ++i) {
                bytes.clear();
                appendOne(bytes, i);
                out << bytes;
            }
        };
        writeAll(scan.points.size(), appendVertex);
        writeAll(scan.faces.size(), appendFace);
    });
}

bool IsColouredResult(const std::filesystem::path& file)
{
    if (!IsRegularFile(file)) return false; // a pipe would wait for its writer
    std::string bytes(sStart.size() + sResult.size(), '\0');
    std::ifstream(file, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes == sStart + sResult;
}

} // namespace Zorvan
