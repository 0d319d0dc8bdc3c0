// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"

#include "zorvan/scans/e57pages.h"
#include "zorvan/scans/e57reader.h"
#include "zorvan/scans/littleendian.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

/// With checksums that fit and a length that is that of the file: a fuzzer would not get past them.
std::string repaired(std::string file)
{
    if (file.size() < 48) return file;
    std::string length;
    Zorvan::AppendLittle(length, static_cast<std::uint64_t>(file.size()));
    file.replace(16, 8, length);
    const auto page = static_cast<std::size_t>(Zorvan::LoadLittle<std::uint64_t>(file, 40));
    if (page < 64 || page > file.size()) return file;
    for (std::size_t at = 0; at + page <= file.size(); at += page) {
        const std::uint32_t crc = Zorvan::Crc32c(std::string_view(file).substr(at, page - 4));
        for (std::size_t k = 0; k < 4; ++k) file[at + page - 4 + k] = static_cast<char>(crc >> (24 - 8 * k));
    }
    return file;
}

} // namespace

/// What is read are scans, and a file that is read as it stands reads the same when its checksums are made anew.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string file = repaired({reinterpret_cast<const char*>(data), size});
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(file.data());
    const auto scans = ReadOrRefuse(Zorvan::ReadE57, bytes, file.size(), "input.e57");
    const auto asIs = ReadOrRefuse(Zorvan::ReadE57, data, size, "input.e57");
    Law(!asIs || scans, "a file that is read has right checksums");
    if (!scans) return 0;
    std::size_t points = 0;
    for (const Zorvan::Scan& scan : *scans) {
        CheckScan(scan, 24 * size); // a point takes a bit at least
        points += scan.points.size();
    }
    Law(points > 0 && points <= 8 * size + 8, "a point takes a bit at least");
    for (std::size_t i = 0; asIs && i < scans->size(); ++i)
        Law(SamePlaces((*asIs)[i], (*scans)[i]), "points are the same");
    return 0;
}
