// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace Zorvan {

/// Whether a folder, or a file of bytes, lies at the end of a path. Links are followed; a pipe, a device and a socket
/// are neither. False for what cannot be looked at, and for a link that leads nowhere. Another process may change the
/// answer at once: take it for a message or to keep away from a pipe, and let the opening decide the rest.
[[nodiscard]] ZORVAN_API bool IsFolder(const std::filesystem::path& path);
[[nodiscard]] ZORVAN_API bool IsRegularFile(const std::filesystem::path& path);
/// Whether anything lies there, of whatever kind.
[[nodiscard]] ZORVAN_API bool FileOrFolderExists(const std::filesystem::path& path);

/// A name for a file or folder, made from any text in UTF-8, such as the name that a user gave a scan, which every file
/// system takes. One '_' stands for each byte that some system refuses: control characters, < > : " / \ | ? *, and
/// bytes that are no UTF-8. Dots and blanks at the end are left out, a name that Windows keeps for a device ("con",
/// "LPT1.txt") begins with '_', and what is longer than 255 bytes loses the middle, so that the ending stays. A text
/// that is a good name already stays as it is; different texts may give the same name.
[[nodiscard]] ZORVAN_API std::string CreateDevName(std::string_view text);

/// Makes room at a path: what lies there is renamed to its name with the first free of .1, .2, .3, ... behind it, in
/// the same folder, so that a higher number is later and no ending of a scan is left at the end.
/// @param path   a file, a folder, or a link, which is renamed itself
/// @param error  cleared, or why it could not be renamed; it then lies where it was
/// @return       the new path; empty when nothing lies there, and after an error
/// Nothing is ever replaced, whoever else makes and renames entries meanwhile.
ZORVAN_API std::filesystem::path RenameExistingDirEnt(const std::filesystem::path& path, std::error_code& error);

} // namespace Zorvan
