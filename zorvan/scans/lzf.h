// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Zorvan {

/// A block of LZF makes no more than so many bytes of one: 264 of a back reference of 3.
inline constexpr std::size_t uiLzfMostPerByte = 88;

/// Expands a block of LZF: literal runs of 1 to 32 bytes and back references of 3 to 264 bytes over at most 8192.
/// @param size  of the result
/// @return      nothing when the block does not make exactly so many bytes or refers to what is before its beginning;
///              nothing is allocated for a size that the block cannot make
/// Source: M. Lehmann, liblzf, description of the format.
[[nodiscard]] ZORVAN_SCANS_API std::optional<std::string> ExpandLzf(std::string_view block, std::size_t size);

} // namespace Zorvan
