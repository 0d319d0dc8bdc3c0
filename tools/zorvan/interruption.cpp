#include "interruption.h"

#include "zorvan/runtime/sharedflag.h"

#include <atomic>
#include <csignal>

namespace tools {

namespace {

// Written by the signal handler, so through an atomic access without a lock.
bool isRequested = false;
static_assert(std::atomic_ref<bool>::is_always_lock_free);

extern "C" void remember(int signal)
{
    Zorvan::WriteSharedFlag(isRequested, true);
    std::signal(signal, SIG_DFL);
}

} // namespace

CInterruption::CInterruption()
{
    Zorvan::WriteSharedFlag(isRequested, false);
    std::signal(SIGINT, &remember);
}

CInterruption::~CInterruption() { std::signal(SIGINT, SIG_DFL); }

bool CInterruption::IsRequested() const { return Zorvan::ReadSharedFlag(isRequested); }

const bool& CInterruption::GetFlag() const { return isRequested; }

} // namespace tools
