// SPDX-License-Identifier: MIT
#include "zorvan/scans/filelock.h"

#include "zorvan/scans/inputerror.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace Zorvan {

namespace {

[[noreturn]] void fail(const std::string& name, int error)
{
    throw CInputError(name, "cannot be locked: " + std::generic_category().message(error),
                      "check the folder and its permissions");
}

/// Neither a link is followed nor a pipe waited for that somebody has put there.
int openLockFile(const std::string& name)
{
    const int descriptor = ::open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
    if (descriptor < 0) fail(name, errno);
    return descriptor;
}

std::string holderOf(int descriptor)
{
    std::array<char, 20> digits{};
    const ssize_t count = ::pread(descriptor, digits.data(), digits.size(), 0);
    const std::string pid(digits.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    const bool isNumber = !pid.empty() && pid.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? "process " + pid : "another process";
}

/// @return whether the file has its name still
bool lock(int descriptor, const std::string& name, const CFileLock::WhenHeld& whenHeld)
{
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) fail(name, errno);
        whenHeld(holderOf(descriptor));
        while (::flock(descriptor, LOCK_EX) != 0)
            if (errno != EINTR) fail(name, errno);
    }
    return HasName(descriptor, name); // its last holder removes the file, and then a lock on it keeps nobody out
}

} // namespace

bool HasName(int descriptor, const std::filesystem::path& path)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(descriptor, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

CFileLock::CFileLock(const std::filesystem::path& file, const WhenHeld& whenHeld) : m_name(file.string() + ".lock")
{
    bool isLocked = false;
    while (!isLocked) {
        m_descriptor = openLockFile(m_name);
        try {
            isLocked = lock(m_descriptor, m_name, whenHeld);
        } catch (...) {
            ::close(m_descriptor);
            throw;
        }
        if (!isLocked) ::close(m_descriptor);
    }
    const std::string pid = std::to_string(::getpid());
    // Only words for others: the lock holds without them.
    if (::ftruncate(m_descriptor, 0) == 0) static_cast<void>(::pwrite(m_descriptor, pid.data(), pid.size(), 0) > 0);
}

CFileLock::CFileLock(CFileLock&& other) noexcept
    : m_name(std::move(other.m_name)), m_descriptor(std::exchange(other.m_descriptor, -1))
{
}

CFileLock::~CFileLock()
{
    if (m_descriptor < 0) return;
    ::unlink(m_name.c_str());
    ::close(m_descriptor);
}

} // namespace Zorvan
