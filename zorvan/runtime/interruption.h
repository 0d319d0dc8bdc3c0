// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <csignal>

namespace Zorvan {

/// While it lives, Ctrl-C and SIGTERM do not end the process but are remembered, so that long work can stop and keep
/// what it has. The second of a kind ends the process as usual. One that is ignored from outside (nohup) stays so. One
/// at a time in a process.
///
///     const CInterruption interruption;
///     const Hooks hooks([&] { return interruption.IsRequested(); }, nullptr);
class ZORVAN_API CInterruption
{
public:
    CInterruption();
    ~CInterruption();
    CInterruption(const CInterruption&) = delete;
    CInterruption& operator=(const CInterruption&) = delete;

    [[nodiscard]] bool IsRequested() const;
    /// The same as a flag for work that polls one.
    [[nodiscard]] const bool& GetFlag() const;

private:
    static constexpr std::array<int, 2> signals{SIGINT, SIGTERM};

    std::array<struct sigaction, 2> m_before{};
};

} // namespace Zorvan
