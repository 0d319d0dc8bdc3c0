// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/fileinfo.h"

#include <filesystem>
#include <vector>

namespace prereg {

/// See DescribeFile; nothing for a file that is small enough to be read as a whole, or that has to be.
/// @throws CInputError
[[nodiscard]] std::vector<ScanInfo> DescribeWalking(const std::filesystem::path& file,
                                                    const Zorvan::ThinLimits& limits);

} // namespace prereg
