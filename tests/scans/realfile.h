// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

/// A file that another program has written; nothing where the environment names no folder with real scans.
inline std::optional<std::filesystem::path> RealFile(const std::string& name)
{
    const char* const data = std::getenv("ZORVAN_DATA");
    if (data == nullptr) return std::nullopt;
    return std::filesystem::path(data) / "formats" / name;
}
