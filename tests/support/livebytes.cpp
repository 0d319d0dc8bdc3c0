// SPDX-License-Identifier: MIT
#include "tests/support/livebytes.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::ptrdiff_t> live = 0;
std::atomic<std::ptrdiff_t> peak = 0;
std::ptrdiff_t start = 0;

void* counted(void* block)
{
    if (block == nullptr) throw std::bad_alloc();
    const std::ptrdiff_t now = live += static_cast<std::ptrdiff_t>(::malloc_usable_size(block));
    for (std::ptrdiff_t most = peak; now > most && !peak.compare_exchange_weak(most, now);) {
    }
    return block;
}

void discount(void* block)
{
    live -= static_cast<std::ptrdiff_t>(::malloc_usable_size(block));
    std::free(block);
}

void* aligned(std::size_t size, std::align_val_t alignment)
{
    const auto step = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(step, (size + step - 1) / step * step));
}

} // namespace

namespace livebytes {

void Watch()
{
    start = live;
    peak = start;
}

std::size_t Peak() { return static_cast<std::size_t>(peak - start); }

} // namespace livebytes

// The program's own definitions go before those of the system's library, also for the shared libraries that it loads.
void* operator new(std::size_t size) { return counted(std::malloc(std::max<std::size_t>(size, 1))); }
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return aligned(size, alignment); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return aligned(size, alignment); }
void operator delete(void* block) noexcept { discount(block); }
void operator delete[](void* block) noexcept { discount(block); }
void operator delete(void* block, std::size_t) noexcept { discount(block); }
void operator delete[](void* block, std::size_t) noexcept { discount(block); }
void operator delete(void* block, std::align_val_t) noexcept { discount(block); }
void operator delete[](void* block, std::align_val_t) noexcept { discount(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { discount(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { discount(block); }
