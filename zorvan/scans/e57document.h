// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

/// A value that every point of an E57 scan has.
struct E57Field
{
    enum class EKind
    {
        Float32,
        Float64,
        Integer, ///< (minimum + packed bits) * scale + offset
        Other    ///< of a kind that is passed over
    };

    std::string name; ///< "cartesianX", "nor:normalX", ...
    EKind eKind = EKind::Other;
    std::int64_t minimum = 0;
    double scale = 1.0;
    double offset = 0.0;
    unsigned bits = 0;    ///< of a value
    double highest = 1.0; ///< the largest value that an integer can have
};

/// What the XML says of a scan.
struct E57ScanHeader
{
    std::string name;
    std::optional<FramePose> pose;
    std::uint64_t points = 0;                          ///< at most 2^31 - 1
    std::uint64_t place = 0;                           ///< byte of the section with the points
    std::vector<E57Field> fields;                      ///< in the order of the byte streams
    std::array<std::optional<double>, 6> colourLimits; ///< red, green, blue: lowest, highest

    /// Position of a field, or -1.
    [[nodiscard]] int Find(std::string_view field) const;
};

/// The scans of an E57 file; images are passed over.
/// @param xml  the header of the file
/// @throws CInputError naming the scan
[[nodiscard]] ZORVAN_SCANS_API std::vector<E57ScanHeader> ReadE57Document(const std::string& xml,
                                                                          const std::filesystem::path& file);

} // namespace Zorvan
