// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Zorvan {

/// @throws CInputError when there is nothing to be read: the file is missing, no regular file, or empty
[[nodiscard]] ZORVAN_SCANS_API std::uint64_t DemandFileSize(const std::filesystem::path& file);

/// The whole file as bytes.
/// @throws CInputError when the file is missing, no regular file, empty or unreadable
[[nodiscard]] ZORVAN_SCANS_API std::string ReadFileBytes(const std::filesystem::path& file);

struct SharedBytes
{
    std::shared_ptr<const unsigned char[]> bytes;
    std::size_t size;
};
/// The same for large files.
[[nodiscard]] ZORVAN_SCANS_API SharedBytes ReadFileShared(const std::filesystem::path& file);

/// The ending of a name in lower case, ".ply"; it names the format.
[[nodiscard]] ZORVAN_SCANS_API std::string EndingOf(const std::filesystem::path& file);

} // namespace Zorvan
