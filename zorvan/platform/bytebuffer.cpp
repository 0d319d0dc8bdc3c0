// SPDX-License-Identifier: MIT
#include "zorvan/platform/bytebuffer.h"

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace Zorvan {

namespace {

constexpr std::size_t largePage = std::size_t{2} << 20;

#if defined(__linux__)

/// Pages of its own: memory that the heap hands out again may hold small pages, which stay small.
class LargePages
{
public:
    explicit LargePages(std::size_t size) : m_size((size + 2 * largePage - 1) / largePage * largePage)
    {
        m_begin = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_begin == MAP_FAILED) throw std::bad_alloc();
        // A wish: a system without large pages refuses, and nothing is lost.
        static_cast<void>(::madvise(m_begin, m_size, MADV_HUGEPAGE));
    }
    LargePages(const LargePages&) = delete;
    LargePages& operator=(const LargePages&) = delete;
    ~LargePages() { ::munmap(m_begin, m_size); }

    /// The first address in it that is a multiple of the page's size.
    [[nodiscard]] unsigned char* Get() const
    {
        const auto behind = reinterpret_cast<std::uintptr_t>(m_begin) % largePage;
        return static_cast<unsigned char*>(m_begin) + (largePage - behind) % largePage;
    }

private:
    void* m_begin;
    std::size_t m_size;
};

#endif

} // namespace

std::shared_ptr<unsigned char[]> MakeByteBuffer(std::size_t size)
{
    if (size < largePage) return std::make_shared_for_overwrite<unsigned char[]>(size);
    const auto pages = std::make_shared<LargePages>(size);
    return {pages, pages->Get()};
}

} // namespace Zorvan
