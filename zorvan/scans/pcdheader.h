// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/scan.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

enum class EPcdData
{
    Text,
    Binary,
    Compressed
};

enum class EPcdType
{
    Signed,
    Unsigned,
    Float
};

struct PcdField
{
    std::string name;
    EPcdType eType = EPcdType::Float;
    std::uint64_t size = 4;   ///< bytes of a value
    std::uint64_t count = 1;  ///< values of a point
    std::uint64_t offset = 0; ///< bytes of a point before this field
    std::uint64_t column = 0; ///< values of a point before this field
};

/// A checked PCD header: every field complete, and the body no shorter than the counts promise.
/// Source of the format: the Point Cloud Library's page "The PCD file format", versions 0.5 to 0.7.
struct PcdHeader
{
    std::vector<PcdField> fields;
    std::uint64_t width = 0;
    std::uint64_t height = 1;        ///< more than 1: the points are the pixels of an image, row by row from the top
    std::uint64_t points = 0;        ///< width * height, at most 2^31 - 1
    std::uint64_t columns = 0;       ///< values of a point
    std::uint64_t pointBytes = 0;    ///< of the binary forms
    std::optional<FramePose> sensor; ///< empty where the view point is the one that is written for want of another
    EPcdData eData = EPcdData::Text;
    std::size_t bodyOffset = 0; ///< first byte behind the header
    std::size_t bodyLine = 0;   ///< and its line, counted from 1

    [[nodiscard]] const PcdField* Find(std::string_view field) const;
    /// Whether the points are those of an image.
    [[nodiscard]] bool IsImage() const { return width > 1 && height > 1; }
};

/// @param bytes     the whole file, or its beginning with the header
/// @param fileSize  of the whole file, which the counts are compared with; nothing: bytes are all
/// @throws CInputError naming the header's line, or "truncated" when the body is too short for the counts
[[nodiscard]] ZORVAN_SCANS_API PcdHeader ReadPcdHeader(std::string_view bytes, const std::filesystem::path& file,
                                                       std::optional<std::uint64_t> fileSize = {});

} // namespace Zorvan
