// SPDX-License-Identifier: MIT
#include "zorvan/scans/stlwriter.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/vectors.h"

#include <bit>
#include <cstdint>
#include <string>

namespace Zorvan {

namespace {

void append(std::string& bytes, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((value >> shift) & 0xFFU);
}

void append(std::string& bytes, const Vector3& v)
{
    for (unsigned k = 0; k < 3; ++k) append(bytes, std::bit_cast<std::uint32_t>(v[k]));
}

} // namespace

void WriteStl(const std::filesystem::path& file, const Scan& mesh)
{
    constexpr std::size_t uiHeader = 80; // bytes; must not begin with "solid", which would be text
    constexpr std::size_t uiTriangle = 50;
    std::string bytes = "written by zorvan, mm";
    bytes.resize(uiHeader, ' ');
    bytes.reserve(uiHeader + 4 + uiTriangle * mesh.faces.size());
    append(bytes, static_cast<std::uint32_t>(mesh.faces.size()));
    for (const Face& face : mesh.faces) {
        const Vector3& a = mesh.points[face[0]];
        const Vector3& b = mesh.points[face[1]];
        const Vector3& c = mesh.points[face[2]];
        append(bytes, Normalized(Cross(b - a, c - a)));
        for (const Vector3* corner : {&a, &b, &c}) append(bytes, *corner);
        bytes.append(2, '\0');
    }
    WriteFileAtomically(file, bytes);
}

} // namespace Zorvan
