// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace Zorvan {

/// Calls `call(context)` `count` times, spread over the task library's threads and the calling one, and returns after
/// the last. The calling thread takes on nothing else meanwhile. `call` must not throw.
///
/// Caller and calls share state only through `context`, and synchronise there by atomics of their own: the task library
/// comes uninstrumented, so the thread sanitizer cannot see that it passes work on correctly. This source is the only
/// one that includes it, and is compiled without that sanitizer.
void RunInParallel(std::size_t count, void (*call)(void*), void* context);

} // namespace Zorvan
