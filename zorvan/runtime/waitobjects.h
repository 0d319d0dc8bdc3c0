// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <condition_variable>
#include <mutex>

namespace Zorvan {

/// A count of free things. Waiting sleeps on a condition variable.
class ZORVAN_API CCountingSemaphore
{
public:
    explicit CCountingSemaphore(unsigned int initial) : m_count(initial) {}

    /// Waits until the count is not zero, and takes one.
    void Down();
    /// Takes one if there is one. @return whether it did
    [[nodiscard]] bool TryDown();
    void Up();

private:
    std::mutex m_mutex;
    std::condition_variable m_raised;
    unsigned int m_count;
};

/// A flag to wait for. It stays set until it is reset, however many threads have passed.
class ZORVAN_API CManualResetEvent
{
public:
    explicit CManualResetEvent(bool set) : m_set(set) {}

    /// @return whether it was not set before
    bool Set();
    /// @return whether it was set before
    bool Reset();
    void Wait() const;
    [[nodiscard]] bool IsSet() const;

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    bool m_set;
};

} // namespace Zorvan
