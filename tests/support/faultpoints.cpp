// SPDX-License-Identifier: MIT
#include "tests/support/faultpoints.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int iNever = 0;

struct Fault
{
    int callsLeft = iNever;
    bool isDeath = false;
    bool isForRenamesOnly = false;
    bool isDiskFull = false;
};

Fault fault;

/// @return whether the call has to fail
bool passes(bool isRename = false)
{
    if (fault.isDiskFull) {
        errno = ENOSPC;
        return true;
    }
    if (fault.callsLeft == iNever || (fault.isForRenamesOnly && !isRename) || --fault.callsLeft > 0) return false;
    if (fault.isDeath) ::raise(SIGKILL);
    fault.isDiskFull = true;
    errno = ENOSPC;
    return true;
}

/// What the system has under the name.
template <typename Function>
Function* systemCall(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

namespace faults {

void KillAt(int call) { fault = {call, true, false, false}; }
void FillDiskAt(int call) { fault = {call, false, false, false}; }
void KillAtRename(int call) { fault = {call, true, true, false}; }
void Disarm() { fault = {}; }

} // namespace faults

// The program's own definitions go before those of the system's library, also for the shared libraries that it loads.
#pragma GCC visibility push(default)
extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t count)
{
    return passes() ? -1 : systemCall<ssize_t(int, const void*, size_t)>("write")(descriptor, bytes, count);
}

int fsync(int descriptor) { return passes() ? -1 : systemCall<int(int)>("fsync")(descriptor); }

int rename(const char* from, const char* to) noexcept
{
    return passes(true) ? -1 : systemCall<int(const char*, const char*)>("rename")(from, to);
}

char* mkdtemp(char* name) noexcept { return passes() ? nullptr : systemCall<char*(char*)>("mkdtemp")(name); }

int rmdir(const char* name) noexcept { return passes() ? -1 : systemCall<int(const char*)>("rmdir")(name); }
}
#pragma GCC visibility pop
