// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/framepose.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/thinreading.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/workflow/export.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace prereg {

/// What is worth knowing of a scan before it is registered. Lengths and places in the unit and the frame of the file.
struct ScanInfo
{
    std::string name;
    std::size_t points = 0;
    std::size_t faces = 0;
    std::vector<std::string> fields; ///< beside the points: normals, colours, intensities
    Zorvan::Position low{};          ///< corners of the box around all finite points
    Zorvan::Position high{};
    ScanSampling sampling;
    std::optional<Zorvan::Position> sensor;
    std::optional<Zorvan::FramePose> pose;
    std::vector<std::string> oddities; ///< in words: points that are not finite, normals that are none
};

struct FileInfo
{
    std::filesystem::path file;
    std::uintmax_t uiBytes = 0;
    std::vector<ScanInfo> scans;
};

[[nodiscard]] ZORVAN_WORKFLOW_API ScanInfo DescribeScan(const Zorvan::Scan& scan);

/// Reads all scans of a file, of any kind that ReadScans takes. A larger one than the limit says is walked through
/// block by block, except STL and OBJ: counts and extents are those of all points, spacing and noise those of the first
/// `uiMostPoints` of each scan, and a note says what was not looked at.
/// @throws CInputError
[[nodiscard]] ZORVAN_WORKFLOW_API FileInfo DescribeFile(const std::filesystem::path& file,
                                                        const Zorvan::ThinLimits& limits = {});

/// For people, several lines.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const FileInfo& file);
/// For programs: a list with an entry per file.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToJson(std::span<const FileInfo> files);

} // namespace prereg
