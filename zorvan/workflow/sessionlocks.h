// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/filelock.h"
#include "zorvan/workflow/export.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace prereg {

/// Locks the session that a run writes and the one that it reads (empty: none), in an order in which no two runs wait
/// for each other. A session in a folder that cannot be written needs no lock.
/// @param whenHeld  hears of a session that `holder` has locked; when it returns, the lock is waited for
/// @throws CInputError when no lock can be made
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<Zorvan::CFileLock>
LockSessions(const std::filesystem::path& written, const std::filesystem::path& read,
             const std::function<void(const std::string& file, const std::string& holder)>& whenHeld);

} // namespace prereg
