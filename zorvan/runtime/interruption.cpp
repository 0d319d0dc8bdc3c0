// SPDX-License-Identifier: MIT
#include "zorvan/runtime/interruption.h"

#include "zorvan/runtime/sharedflag.h"

#include <atomic>
#include <cstddef>

namespace Zorvan {

namespace {

// Written by the signal handler, so through an atomic access without a lock.
bool isRequested = false;
static_assert(std::atomic_ref<bool>::is_always_lock_free);

extern "C" void remember(int) { WriteSharedFlag(isRequested, true); }

} // namespace

CInterruption::CInterruption()
{
    WriteSharedFlag(isRequested, false);
    struct sigaction action = {};
    action.sa_handler = &remember;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        ::sigaction(signals[i], nullptr, &m_before[i]);
        if (m_before[i].sa_handler != SIG_IGN) ::sigaction(signals[i], &action, nullptr);
    }
}

CInterruption::~CInterruption()
{
    for (std::size_t i = 0; i < signals.size(); ++i) ::sigaction(signals[i], &m_before[i], nullptr);
}

bool CInterruption::IsRequested() const { return ReadSharedFlag(isRequested); }

const bool& CInterruption::GetFlag() const { return isRequested; }

} // namespace Zorvan
