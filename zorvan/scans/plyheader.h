// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

enum class EPlyFormat
{
    Ascii,
    LittleEndian,
    BigEndian
};

enum class EPlyType
{
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Float32,
    Float64
};

/// Bytes of one value in the binary formats.
[[nodiscard]] ZORVAN_SCANS_API std::size_t SizeOf(EPlyType type);

struct PlyProperty
{
    std::string name;
    EPlyType type = EPlyType::Float32; ///< of the value, or of each entry of a list
    bool isList = false;
    EPlyType countType = EPlyType::UInt8; ///< of the length of a list, a whole-number type
};

struct ZORVAN_SCANS_API PlyElement
{
    std::string name;
    std::uint64_t count = 0; ///< at most 2^31 - 1
    std::vector<PlyProperty> properties;

    /// Position of a scalar property, or -1.
    [[nodiscard]] int FindScalar(std::string_view property) const;
    /// Position of a list property, or -1.
    [[nodiscard]] int FindList(std::string_view property) const;
    /// Bytes that one entry takes at least in the file; lists count with their length field alone.
    [[nodiscard]] std::uint64_t MinimumBytes(EPlyFormat format) const;
};

/// A checked PLY header: format known, every element and property complete, and the body no shorter than the counts
/// promise. Source of the format: G. Turk, "The PLY polygon file format", Stanford 1994.
struct ZORVAN_SCANS_API PlyHeader
{
    EPlyFormat format = EPlyFormat::Ascii;
    std::vector<PlyElement> elements; ///< in the order of the body
    std::uint64_t gridColumns = 0;    ///< of `obj_info num_cols`, 0 without
    std::uint64_t gridRows = 0;
    std::size_t bodyOffset = 0; ///< first byte behind the header

    [[nodiscard]] const PlyElement* Find(std::string_view element) const;
};

/// @param bytes     the whole file, or its beginning with the header
/// @param fileSize  of the whole file, which the counts are compared with; nothing: bytes are all
/// @throws CInputError naming the header's line, or "truncated" when the body is too short for the counts
[[nodiscard]] ZORVAN_SCANS_API PlyHeader ReadPlyHeader(std::string_view bytes, const std::filesystem::path& file,
                                                       std::optional<std::uint64_t> fileSize = {});

} // namespace Zorvan
