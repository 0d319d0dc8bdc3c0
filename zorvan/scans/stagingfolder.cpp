// SPDX-License-Identifier: MIT
#include "zorvan/scans/stagingfolder.h"

#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace Zorvan {

namespace {

namespace fs = std::filesystem;

const std::string sMaking = ".zorvan-making-";
const std::string sPromise = ".zorvan-whole-";

bool hasPrefix(const fs::path& name, const std::string& prefix) { return name.string().starts_with(prefix); }

int openFolder(const fs::path& path) { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }

/// The lock on a folder that no living process has and that is ours; otherwise negative.
int lockIfLeft(const fs::path& path)
{
    const int descriptor = openFolder(path);
    struct stat status = {};
    if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && status.st_uid == ::geteuid() &&
        ::flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        return descriptor;
    if (descriptor >= 0) ::close(descriptor);
    return -1;
}

std::vector<fs::path> namesIn(const fs::path& folder)
{
    std::error_code error;
    std::vector<fs::path> names;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        names.push_back(entry->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

void moveAll(const fs::path& from, const fs::path& to)
{
    for (const fs::path& name : namesIn(from)) {
        if (::rename((from / name).c_str(), (to / name).c_str()) != 0) RefuseWriting(to / name, errno);
    }
    ::rmdir(from.c_str());
}

void tidy(const fs::path& folder, const fs::path& name)
{
    const bool isPromise = hasPrefix(name, sPromise);
    if (!isPromise && !hasPrefix(name, sMaking)) return;
    const int lock = lockIfLeft(folder / name);
    if (lock < 0) return;
    std::error_code ignored;
    try {
        if (isPromise)
            moveAll(folder / name, folder);
        else
            fs::remove_all(folder / name, ignored);
    } catch (...) {
        ::close(lock);
        throw;
    }
    ::close(lock);
}

} // namespace

CStagingFolder::CStagingFolder(const fs::path& folder) : m_folder(folder.empty() ? "." : folder)
{
    TidyStagingFolders(m_folder);
    // Between its making and its lock, another process may take the folder for one of the dead.
    do {
        if (m_lock >= 0) ::close(m_lock);
        std::string name = (m_folder / (sMaking + "XXXXXX")).string();
        if (::mkdtemp(name.data()) == nullptr) RefuseWriting(m_folder, errno);
        m_path = name;
        m_lock = openFolder(m_path);
        if (m_lock >= 0) ::flock(m_lock, LOCK_EX); // where there are no locks, nobody tidies
    } while (m_lock < 0 || !HasName(m_lock, m_path));
}

CStagingFolder::~CStagingFolder()
{
    std::error_code ignored;
    if (!m_isPromised) fs::remove_all(m_path, ignored);
    ::close(m_lock);
}

void CStagingFolder::Publish()
{
    const std::vector<fs::path> names = namesIn(m_path);
    for (const fs::path& name : names) RequireReplaceable(m_folder / name);
    if (names.size() > 1) {
        const std::string random = m_path.filename().string().substr(sMaking.size());
        const fs::path promise = m_folder / (sPromise + random);
        if (::fsync(m_lock) != 0 || ::rename(m_path.c_str(), promise.c_str()) != 0) RefuseWriting(m_folder, errno);
        m_path = promise;
        m_isPromised = true;
    }
    moveAll(m_path, m_folder);
}

void TidyStagingFolders(const fs::path& folder)
{
    const fs::path place = folder.empty() ? "." : folder;
    for (const fs::path& name : namesIn(place)) tidy(place, name);
}

fs::path PublishedPath(const fs::path& staged)
{
    fs::path path;
    for (const fs::path& part : staged) {
        if (!hasPrefix(part, sMaking) && !hasPrefix(part, sPromise)) path /= part;
    }
    return path;
}

void RefuseWriting(const fs::path& file, int error)
{
    throw CInputError(PublishedPath(file), "cannot be written: " + std::generic_category().message(error),
                      "check the folder, its permissions and the disk");
}

void RequireReplaceable(const fs::path& file)
{
    std::error_code error;
    const auto status = fs::status(file, error);
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw CInputError(file, "cannot be written: it is there and not a file", "give another name");
}

} // namespace Zorvan
