// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace Zorvan {

/// A flag that one thread sets and others poll, where an interface hands it out as `const bool&`. Both sides come here,
/// so that no plain access meets one from another thread.
[[nodiscard]] inline bool ReadSharedFlag(const bool& flag)
{
    // The atomic view wants a mutable object even for a load; nothing is written.
    return std::atomic_ref<bool>(const_cast<bool&>(flag)).load();
}

inline void WriteSharedFlag(bool& flag, bool value) { std::atomic_ref<bool>(flag).store(value); }

} // namespace Zorvan
