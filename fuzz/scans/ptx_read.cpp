// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/framepose.h"
#include "zorvan/scans/ptxreader.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

/// A scan as one column.
std::string textOf(const Zorvan::Scan& scan)
{
    std::string text = "1\n" + std::to_string(scan.points.size()) + "\n0 0 0\n1 0 0\n0 1 0\n0 0 1\n";
    const auto rows = Zorvan::RotationRows(*scan.pose);
    const auto append = [&](double a, double b, double c, const char* last) {
        for (const double value : {a, b, c}) text += Zorvan::ToText(value, 17) + " ";
        text += last;
    };
    for (std::size_t k = 0; k < 3; ++k) append(rows[0][k], rows[1][k], rows[2][k], "0\n");
    append(scan.pose->position[0], scan.pose->position[1], scan.pose->position[2], "1\n");
    for (std::size_t i = 0; i < scan.points.size(); ++i) {
        AppendPlace(text, scan, i);
        AppendAttributes(text, scan, i);
        text += "\n";
    }
    return text;
}

} // namespace

/// What is read are scans with poses, and each reads the same again from text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto scans = ReadOrRefuse(Zorvan::ReadPtx, data, size, "input.ptx");
    if (!scans) return 0;
    Law(!scans->empty(), "a file without points is refused");
    for (const Zorvan::Scan& scan : *scans) {
        CheckScan(scan, size);
        Law(scan.pose && scan.sensor && !scan.points.empty(), "a scan has points, a pose and a scanner");
        const std::vector<Zorvan::Scan> again = Zorvan::ReadPtx(textOf(scan), "again.ptx");
        Law(again.size() == 1 && SamePlaces(again[0], scan), "points read back the same");
        Law(again[0].colours == scan.colours, "colours read back the same");
        Law(std::ranges::equal(again[0].intensities, scan.intensities, SameNumber), "intensities read back the same");
    }
    return 0;
}
