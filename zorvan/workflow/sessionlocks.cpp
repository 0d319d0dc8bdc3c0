// SPDX-License-Identifier: MIT
#include "zorvan/workflow/sessionlocks.h"

#include <unistd.h>

#include <set>

namespace prereg {

std::vector<Zorvan::CFileLock>
LockSessions(const std::filesystem::path& written, const std::filesystem::path& read,
             const std::function<void(const std::string& file, const std::string& holder)>& whenHeld)
{
    std::set<std::filesystem::path> files{std::filesystem::canonical(written.parent_path()) / written.filename()};
    if (!read.empty()) {
        const auto whole = std::filesystem::weakly_canonical(std::filesystem::absolute(read));
        // Where we cannot write, no run of ours changes it.
        if (::access(whole.parent_path().c_str(), W_OK) == 0) files.insert(whole);
    }
    std::vector<Zorvan::CFileLock> locks;
    locks.reserve(files.size());
    for (const std::filesystem::path& file : files)
        locks.emplace_back(file, [&](const std::string& holder) { whenHeld(file.string(), holder); });
    return locks;
}

} // namespace prereg
