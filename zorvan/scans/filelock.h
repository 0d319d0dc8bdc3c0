// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <filesystem>
#include <functional>
#include <string>

namespace Zorvan {

/// While it lives, no other process has a lock on the same file. The file itself is not touched, nor need it be there:
/// the lock lies on FILE.lock beside it, which goes with the lock. It ends with its process, also when that is killed.
///
///     const CFileLock lock(folder / "session.zdoc", [](const std::string& holder) { throw CBusy(holder); });
class ZORVAN_SCANS_API CFileLock
{
public:
    /// Called when somebody else has the lock, with words for who that is; when it returns, the lock is waited for.
    using WhenHeld = std::function<void(const std::string& holder)>;

    /// @throws CInputError when no lock can be made there
    CFileLock(const std::filesystem::path& file, const WhenHeld& whenHeld);
    CFileLock(CFileLock&& other) noexcept;
    CFileLock& operator=(CFileLock&&) = delete;
    CFileLock(const CFileLock&) = delete;
    CFileLock& operator=(const CFileLock&) = delete;
    ~CFileLock();

private:
    std::string m_name;
    int m_descriptor = -1;
};

/// Whether the open file or folder is still what the path leads to; another process may have removed or replaced it.
[[nodiscard]] ZORVAN_SCANS_API bool HasName(int descriptor, const std::filesystem::path& path);

} // namespace Zorvan
