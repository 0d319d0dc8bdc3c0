// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace Zorvan {

/// A checked LAS header: the points that it promises are in the file.
/// Source of the format: ASPRS, LAS 1.4 R15 (2019), and the documents of 1.2 and 1.3.
struct LasHeader
{
    unsigned minor = 0;     ///< of version 1.0 to 1.4
    unsigned format = 0;    ///< of the points, 0 to 10
    std::size_t stride = 0; ///< bytes of a point, extra bytes too
    std::uint64_t points = 0;
    std::size_t bodyOffset = 0; ///< first byte of the first point
    Position scale{};           ///< coordinates are whole numbers times this
    Position offset{};          ///< plus this
};

/// Bytes that a point takes at least.
[[nodiscard]] ZORVAN_SCANS_API std::size_t LasPointBytes(unsigned format);

/// Where red, green and blue stand in a point, two bytes each; nothing for a format without them.
[[nodiscard]] ZORVAN_SCANS_API std::optional<std::size_t> LasColourOffset(unsigned format);

/// @param bytes     the whole file, or its beginning with the header
/// @param fileSize  of the whole file, which the counts are compared with; nothing: bytes are all
/// @throws CInputError naming the byte, "truncated" when the body is too short, and for LAZ with the way around it
[[nodiscard]] ZORVAN_SCANS_API LasHeader ReadLasHeader(std::string_view bytes, const std::filesystem::path& file,
                                                       std::optional<std::uint64_t> fileSize = {});

} // namespace Zorvan
