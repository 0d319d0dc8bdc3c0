// SPDX-License-Identifier: MIT
#include "fuzz/scans/scanlaws.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/scans/movescan.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/thinnedscans.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace {

constexpr std::array endings{".ply", ".pcd", ".las", ".stl", ".e57", ".ptx", ".pts", ".xyz", ".obj"};

std::size_t pointsOf(const std::filesystem::path& file)
{
    std::size_t count = 0;
    for (const Zorvan::Scan& scan : Zorvan::ReadScans(file)) count += scan.points.size();
    return count;
}

/// Read without keeping the file; nothing where that refuses it.
std::optional<std::size_t> pointsOfThinned(const std::filesystem::path& file)
{
    std::size_t count = 0;
    try {
        for (const Zorvan::ThinnedScan& scan : Zorvan::ReadEachThinned(file, {0, 1000})) {
            Law(scan.scan.points.size() <= 1000, "no more points are kept than may be");
            count += scan.uiRead;
        }
    } catch (const Zorvan::CInputError& error) {
        Law(std::string(error.what()).starts_with(file.string() + ": "), "an error names the file");
        return std::nullopt;
    }
    return count;
}

} // namespace

/// The first byte tells the format. What can be read and moved reads as as many points again, also where it is thinned;
/// what cannot be moved is refused by name and leaves no file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    static const TemporaryFolder folder;
    const std::string ending = endings[data[0] % endings.size()];
    const auto from = folder.Write("a" + ending, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    const auto to = folder / ("b" + ending);
    std::filesystem::remove(to);
    const std::optional<std::size_t> thinned = pointsOfThinned(from);
    try {
        Zorvan::MoveScanFile(from, to, {{1e6, 20, 30}, {0.5, 0.5, -0.5, 0.5}});
    } catch (const Zorvan::CInputError& error) {
        Law(std::string(error.what()).starts_with(from.string() + ": "), "an error names the file");
        Law(!std::filesystem::exists(to), "nothing is left of a file that is refused");
        return 0;
    }
    std::size_t before = 0;
    try {
        before = pointsOf(from);
    } catch (const Zorvan::CInputError&) {
        return 0;
    }
    Law(pointsOf(to) == before, "as many points come out");
    Law(!thinned || *thinned == before, "as many points are thinned");
    return 0;
}
