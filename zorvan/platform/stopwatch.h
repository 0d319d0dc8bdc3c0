// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace Zorvan {

/// Seconds since it was made, for the log.
class Stopwatch
{
public:
    [[nodiscard]] double Seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

} // namespace Zorvan
