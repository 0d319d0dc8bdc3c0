#include "interruption.h"

#include <csignal>

namespace tools {

namespace {

volatile std::sig_atomic_t isRequested = 0;

extern "C" void remember(int signal)
{
    isRequested = 1;
    std::signal(signal, SIG_DFL);
}

} // namespace

CInterruption::CInterruption()
{
    isRequested = 0;
    std::signal(SIGINT, &remember);
}

CInterruption::~CInterruption() { std::signal(SIGINT, SIG_DFL); }

bool CInterruption::IsRequested() const { return isRequested != 0; }

} // namespace tools
