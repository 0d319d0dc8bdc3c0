#pragma once

#include <filesystem>
#include <string>

namespace tools {

/// The whole file as bytes.
/// @throws CInputError when the file is missing, no regular file, empty or unreadable
[[nodiscard]] std::string ReadFileBytes(const std::filesystem::path& file);

} // namespace tools
