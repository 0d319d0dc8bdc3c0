// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Zorvan {

/// Whether both names lead to one file, through links, also of one that is not there yet.
[[nodiscard]] ZORVAN_SCANS_API bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b);

/// Says before anything is read that a result would take the place of what it is made from.
/// @param inputs  empty names are passed over
/// @throws CInputError
ZORVAN_SCANS_API void RequireApart(const std::filesystem::path& output, const std::vector<std::string>& inputs);

/// Poses are matched by file name. @throws CInputError for two scans of one name, in whatever folders
ZORVAN_SCANS_API void RequireDistinctNames(const std::vector<std::string>& scans);

} // namespace Zorvan
