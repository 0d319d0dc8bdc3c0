// SPDX-License-Identifier: MIT
#include "zorvan/runtime/waitobjects.h"

#include <utility>

namespace Zorvan {

// All wake-ups are sent under the mutex: a waiter may destroy the object as soon as it has seen the new state.

void CCountingSemaphore::Down()
{
    std::unique_lock lock(m_mutex);
    m_raised.wait(lock, [this] { return m_count != 0; });
    --m_count;
}

bool CCountingSemaphore::TryDown()
{
    const std::lock_guard lock(m_mutex);
    if (m_count == 0) return false;
    --m_count;
    return true;
}

void CCountingSemaphore::Up()
{
    const std::lock_guard lock(m_mutex);
    ++m_count;
    m_raised.notify_one();
}

bool CManualResetEvent::Set()
{
    const std::lock_guard lock(m_mutex);
    const bool changed = !std::exchange(m_set, true);
    m_changed.notify_all();
    return changed;
}

bool CManualResetEvent::Reset()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_set, false);
}

void CManualResetEvent::Wait() const
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_set; });
}

bool CManualResetEvent::IsSet() const
{
    const std::lock_guard lock(m_mutex);
    return m_set;
}

} // namespace Zorvan
