// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <csignal>

namespace Zorvan {

/// From its making on, Ctrl-C, SIGTERM and SIGHUP end a wait of the calling thread instead of the process; what is
/// ignored from outside (nohup) stays so. They stay blocked in the thread, and in threads that it starts, when this
/// ends. For work that polls, see CInterruption.
class ZORVAN_API CStopSignals
{
public:
    CStopSignals();

    /// Whether one has come.
    [[nodiscard]] bool ArePending() const;
    /// Returns after `seconds`, or when one comes; with infinity only then.
    void WaitFor(double seconds) const;

private:
    sigset_t m_signals{};
};

} // namespace Zorvan
