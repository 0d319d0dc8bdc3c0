// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/platform/clogger.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/objreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

std::string textOf(const Zorvan::Scan& scan)
{
    std::string text;
    const auto append = [&](const char* keyword, const auto& v) {
        text += keyword;
        for (const float c : {v.x, v.y, v.z}) text.append(" ").append(Zorvan::ToText(static_cast<double>(c), 9));
        text += '\n';
    };
    for (const auto& p : scan.points) append("v", p);
    for (const auto& n : scan.normals) append("vn", n);
    for (const Zorvan::Face& face : scan.faces) {
        text += 'f';
        for (const std::uint32_t corner : face) {
            const std::string index = std::to_string(corner + 1);
            text.append(" ").append(index);
            if (!scan.normals.empty()) text.append("//").append(index);
        }
        text += '\n';
    }
    return text;
}

} // namespace

/// What is read is a scan, and as many points and faces are read again from text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Logging::SetLogLevel(Logging::ELogLevel::Fatal); // each unknown keyword is a warning
    auto scan = ReadOrRefuse(Zorvan::ReadObj, data, size, "input.obj");
    if (!scan) return 0;
    CheckScan(*scan, 9 * size); // a face of "f 1 1 1" names points that others name too
    Zorvan::SetShift(*scan, {});
    for (const auto& p : scan->points)
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return 0; // no number of an OBJ
    for (const auto& n : scan->normals)
        if (!std::isfinite(n.x) || !std::isfinite(n.y) || !std::isfinite(n.z)) return 0;
    Zorvan::Scan again = Zorvan::ReadObj(textOf(*scan), "again.obj");
    Law(again.faces.size() == scan->faces.size(), "as many faces are read back");
    Law(scan->faces.empty() ? SamePlaces(again, *scan) : again.points.size() == 3 * scan->faces.size(),
        "every corner is read back");
    return 0;
}
