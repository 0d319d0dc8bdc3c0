// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/littleendian.h"
#include "zorvan/scans/meshreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

/// The triangles as a binary file.
std::string binaryOf(const Zorvan::Scan& scan)
{
    std::string bytes(80, ' ');
    Zorvan::AppendLittle(bytes, static_cast<std::uint32_t>(scan.faces.size()));
    for (const Zorvan::Face& face : scan.faces) {
        bytes.append(12, '\0');
        for (const std::uint32_t corner : face)
            for (unsigned k = 0; k < 3; ++k) Zorvan::AppendLittle(bytes, scan.points[corner][k]);
        bytes.append(2, '\0');
    }
    return bytes;
}

} // namespace

/// What is read is a mesh of triangles with corners of their own, and reads the same again from binary.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto scan = ReadOrRefuse(Zorvan::ReadStl, data, size, "input.stl");
    if (!scan) return 0;
    CheckScan(*scan, size);
    Law(scan->points.size() == 3 * scan->faces.size() && scan->normals.empty(), "points are the corners of triangles");
    Zorvan::SetShift(*scan, {});
    const Zorvan::Scan again = Zorvan::ReadStl(binaryOf(*scan), "again.stl");
    Law(again.faces == scan->faces && SamePlaces(again, *scan), "triangles read back the same");
    return 0;
}
