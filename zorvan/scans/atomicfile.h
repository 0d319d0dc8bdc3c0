// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/scans/export.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string_view>

namespace Zorvan {

/// Says in time that a file cannot be written: a missing folder, one without permission, a name that a folder has.
/// Leaves nothing behind. @throws CInputError
ZORVAN_SCANS_API void RequireWritable(const std::filesystem::path& file);

/// Writes a whole file or nothing: the bytes go to a new file in a staging folder, which then takes the place of `file`
/// in one step. An old file stays as it is when anything fails. @throws CInputError
ZORVAN_SCANS_API void WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes);
/// @return  false when the hooks stop it: nothing is written then
ZORVAN_SCANS_API bool WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes,
                                          const Hooks& hooks);

/// The same of bytes that never stand in memory all at once: `write` puts them into a stream, and what it throws
/// passes.
ZORVAN_SCANS_API void WriteFileAtomically(const std::filesystem::path& file,
                                          const std::function<void(std::ostream&)>& write);
/// @param size  of the file, for the progress
ZORVAN_SCANS_API bool WriteFileAtomically(const std::filesystem::path& file, std::uint64_t size,
                                          const std::function<void(std::ostream&)>& write, const Hooks& hooks);

/// Makes the folder and those above it. @throws CInputError
ZORVAN_SCANS_API void MakeFolder(const std::filesystem::path& folder);

} // namespace Zorvan
