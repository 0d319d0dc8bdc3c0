// SPDX-License-Identifier: MIT
#include "zorvan/util/direntries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utf8.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

namespace fs = std::filesystem;

namespace Zorvan {

namespace {

constexpr std::size_t uiLongestName = 255;
constexpr std::size_t uiLongestEnding = 32;
constexpr int iLastNumber = 1000000; ///< more entries of one name mean that something is wrong

bool isRefused(unsigned char c)
{
    return c < 0x20 || c == 0x7F || std::string_view("<>:\"/\\|?*").find(static_cast<char>(c)) != std::string::npos;
}

std::string withoutRefused(std::string_view text)
{
    std::string name;
    while (!text.empty()) {
        const auto good = static_cast<std::size_t>(utf8::find_invalid(text.begin(), text.end()) - text.begin());
        name += text.substr(0, good);
        if (good < text.size()) name += '_';
        text.remove_prefix(std::min(good + 1, text.size()));
    }
    std::replace_if(name.begin(), name.end(), isRefused, '_');
    return name;
}

/// Windows looks at what stands before the first dot.
bool isDevice(std::string_view name)
{
    name = name.substr(0, name.find('.'));
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    std::string word(name);
    std::transform(word.begin(), word.end(), word.begin(), [](char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; });
    if (word.size() == 4 && word[3] >= '0' && word[3] <= '9') word[3] = '#';
    constexpr std::array<std::string_view, 8> devices{"CON", "PRN", "AUX", "NUL", "COM#", "LPT#", "CONIN$", "CONOUT$"};
    return std::find(devices.begin(), devices.end(), word) != devices.end();
}

/// No character is cut in two.
std::string shortened(const std::string& name)
{
    if (name.size() <= uiLongestName) return name;
    const std::size_t dot = name.rfind('.');
    const std::string ending = dot != std::string::npos && name.size() - dot <= uiLongestEnding ? name.substr(dot) : "";
    std::size_t end = uiLongestName - ending.size();
    while ((static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) --end;
    return name.substr(0, end) + ending;
}

/// Where a free name is not to be had in one step with the renaming: an empty entry of the same kind takes the name,
/// and then gives way.
int renameOntoOwnEntry(const fs::path& from, const fs::path& to)
{
    struct stat status = {};
    if (::lstat(from.c_str(), &status) != 0) return -1;
    const bool isFolder = S_ISDIR(status.st_mode);
    if (isFolder) {
        if (::mkdir(to.c_str(), 0700) != 0) return -1;
    } else {
        const int descriptor = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (descriptor < 0) return -1;
        ::close(descriptor);
    }
    if (::rename(from.c_str(), to.c_str()) == 0) return 0;
    const int reason = errno;
    isFolder ? ::rmdir(to.c_str()) : ::unlink(to.c_str());
    errno = reason;
    return -1;
}

/// @return 0, or -1 and errno: EEXIST when the name is taken
int renameToFreeName(const fs::path& from, const fs::path& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    const bool isSupported = errno != EINVAL && errno != ENOSYS && errno != ENOTSUP;
    return isSupported ? -1 : renameOntoOwnEntry(from, to);
}

} // namespace

bool IsFolder(const fs::path& path)
{
    std::error_code ignored;
    return fs::is_directory(path, ignored);
}

bool IsRegularFile(const fs::path& path)
{
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

bool FileOrFolderExists(const fs::path& path)
{
    std::error_code ignored;
    return fs::exists(path, ignored);
}

std::string CreateDevName(std::string_view text)
{
    std::string name = withoutRefused(text);
    if (isDevice(name)) name.insert(0, 1, '_');
    name = shortened(name);
    name.erase(name.find_last_not_of(". ") + 1);
    return name.empty() ? "_" : name;
}

fs::path RenameExistingDirEnt(const fs::path& path, std::error_code& error)
{
    error.clear();
    const fs::path entry = path.has_filename() ? path : path.parent_path(); // a name may end with a separator
    if (!entry.has_filename() || entry.filename() == "." || entry.filename() == "..") {
        error = std::make_error_code(std::errc::invalid_argument);
        return {};
    }
    for (int number = 1; number <= iLastNumber; ++number) {
        fs::path free = entry;
        free += '.';
        free += std::to_string(number);
        if (renameToFreeName(entry, free) == 0) return free;
        if (errno == ENOENT || errno == ENOTDIR) return {};
        if (errno != EEXIST) break;
    }
    error.assign(errno, std::generic_category());
    return {};
}

} // namespace Zorvan
