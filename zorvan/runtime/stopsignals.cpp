// SPDX-License-Identifier: MIT
#include "zorvan/runtime/stopsignals.h"

#include <ctime>
#include <initializer_list>

namespace Zorvan {

namespace {

bool isIgnored(int signal)
{
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

CStopSignals::CStopSignals()
{
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal)) sigaddset(&m_signals, signal);
    sigprocmask(SIG_BLOCK, &m_signals, nullptr);
}

bool CStopSignals::ArePending() const
{
    sigset_t pending{};
    sigpending(&pending);
    return sigandset(&pending, &pending, &m_signals) == 0 && sigisemptyset(&pending) == 0;
}

void CStopSignals::WaitFor(double seconds) const
{
    constexpr double dLongest = 1e9; // 30 years; what is longer has no end
    if (seconds > dLongest) {
        int signal = 0;
        sigwait(&m_signals, &signal);
        return;
    }
    timespec time{};
    time.tv_sec = static_cast<time_t>(seconds);
    time.tv_nsec = static_cast<long>((seconds - static_cast<double>(time.tv_sec)) * 1e9);
    sigtimedwait(&m_signals, nullptr, &time);
}

} // namespace Zorvan
