// SPDX-License-Identifier: MIT
#include "zorvan/runtime/csharedflags.h"

#include "zorvan/platform/clogger.h"
#include "zorvan/runtime/semaphorecalls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"Zorvanlib.SharedFlags");

constexpr std::uint32_t uiMaxCount = 1024;

[[nodiscard]] std::wstring mutexName(const std::wstring& name) { return L"Global\\" + name + L".mutex"; }

/// Opens or makes the semaphore; two processes that start at once settle on one.
[[nodiscard]] CNamedSemaphore reachSemaphore(const std::wstring& name, const std::function<bool()>& isAborted)
{
    for (;;) {
        int error = 0;
        CNamedSemaphore semaphore = CNamedSemaphore::Open(mutexName(name), error);
        if (!semaphore) semaphore = CNamedSemaphore::Create(mutexName(name), 1, uiMaxCount, error);
        // No amount of patience makes such a name good.
        if (error == ENAMETOOLONG)
            logger.Error(L"a name of %u characters is too long for shared flags; the store stays closed",
                         static_cast<unsigned>(name.size()));
        if (semaphore || name.empty() || error == ENAMETOOLONG || isAborted()) return semaphore;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

template <class F>
auto thenRelease(const CNamedSemaphore& semaphore, const F& operation)
{
    try {
        auto result = operation();
        ReleaseOrThrow(semaphore);
        return result;
    } catch (...) {
        (void)semaphore.Release();
        throw;
    }
}

template <class F>
auto withSemaphore(const CNamedSemaphore& semaphore, const F& operation)
{
    WaitOrThrow(semaphore);
    return thenRelease(semaphore, operation);
}

// The block is read without the semaphore too, while another thread may write: byte by byte, so that a reader sees old
// or new bytes and never a torn access.

void copyIn(unsigned char* block, const unsigned char* bytes, std::uint64_t size)
{
    for (std::uint64_t i = 0; i < size; ++i)
        std::atomic_ref<unsigned char>(block[i]).store(bytes[i], std::memory_order_relaxed);
}

void copyOut(unsigned char* bytes, unsigned char* block, std::uint64_t size)
{
    for (std::uint64_t i = 0; i < size; ++i)
        bytes[i] = std::atomic_ref<unsigned char>(block[i]).load(std::memory_order_relaxed);
}

} // namespace

CSharedFlags::CSharedFlags(const std::wstring& name, std::uint64_t capacity)
    : CSharedFlags(name, capacity, [] { return false; })
{
}

CSharedFlags::CSharedFlags(const std::wstring& name, std::uint64_t capacity, const std::function<bool()>& isAborted)
    : m_capacity(capacity), m_mutexSemaphore(reachSemaphore(name, isAborted))
{
    const bool attached =
        m_mutexSemaphore.Wait(isAborted) && thenRelease(m_mutexSemaphore, [&] { return attach(name); });
    if (!attached) m_mutexSemaphore.Close();
}

bool CSharedFlags::attach(const std::wstring& name)
{
    m_memory = CSharedMemory::Open(name, m_capacity);
    if (!m_memory) m_memory = CSharedMemory::Create(name, m_capacity);
    if (!m_memory) return false;
    m_view = m_memory.CreateView();
    m_viewSize = m_memory.MappedSize();
    return true;
}

CSharedFlags::CSharedFlags(const CSharedFlags& other)
{
    int error = 0;
    m_mutexSemaphore = CNamedSemaphore::Open(mutexName(other.m_memory.GetUniqueName()), error);
    if (!m_mutexSemaphore) return;
    m_memory = withSemaphore(m_mutexSemaphore, [&] { return CSharedMemory(other.m_memory); });
    m_capacity = other.m_capacity;
}

CSharedFlags& CSharedFlags::operator=(const CSharedFlags& other)
{
    if (this != &other) *this = CSharedFlags(other);
    return *this;
}

CSharedFlags::CSharedFlags(CSharedFlags&& other) noexcept { *this = std::move(other); }

CSharedFlags& CSharedFlags::operator=(CSharedFlags&& other) noexcept
{
    if (this == &other) return *this;
    close();
    m_memory = std::exchange(other.m_memory, {});
    m_capacity = std::exchange(other.m_capacity, 0);
    m_mutexSemaphore = std::move(other.m_mutexSemaphore);
    m_view = std::move(other.m_view);
    m_viewSize = std::exchange(other.m_viewSize, 0);
    return *this;
}

CSharedFlags::~CSharedFlags() { close(); }

void CSharedFlags::close() noexcept
{
    const bool taken = m_mutexSemaphore.Wait();
    m_memory.Close();
    if (taken) (void)m_mutexSemaphore.Release();
    m_view.reset();
    m_mutexSemaphore.Close();
}

bool CSharedFlags::Set(const bson::element& e)
{
    return isMapped() && withSemaphore(m_mutexSemaphore, [&] { return update(e); });
}

bson::element CSharedFlags::Get(const std::string& name) const
{
    if (!isMapped()) return {};
    return withSemaphore(m_mutexSemaphore, [&] { return read().child(name); });
}

bson::element CSharedFlags::Get() const
{
    if (!isMapped()) return {};
    return {bson::convert(m_memory.GetUniqueName()), read()};
}

bool CSharedFlags::Exists(const std::string& name) const { return static_cast<bool>(Get(name)); }

bool CSharedFlags::Erase(const std::string& name)
{
    if (!isMapped()) return false;
    return withSemaphore(m_mutexSemaphore, [&] {
        const bson::object before = read();
        const bson::object after = before.erase(name);
        write(after);
        return after.size() < before.size();
    });
}

bool CSharedFlags::ReplaceAll(const bson::object& all)
{
    if (!isMapped() || all.size() <= m_capacity) return false;
    return withSemaphore(m_mutexSemaphore, [&] {
        write(all);
        return true;
    });
}

void CSharedFlags::Clear()
{
    if (!isMapped()) return;
    withSemaphore(m_mutexSemaphore, [&] {
        const std::vector<unsigned char> zeros(std::min(m_capacity, m_viewSize));
        copyIn(static_cast<unsigned char*>(m_view.get()), zeros.data(), zeros.size());
        write({});
        return true;
    });
}

bson::object CSharedFlags::read() const
{
    auto* block = static_cast<unsigned char*>(m_view.get());
    std::array<unsigned char, sizeof(std::uint32_t)> prefix = {};
    copyOut(prefix.data(), block, prefix.size());
    std::uint32_t length = 0;
    std::memcpy(&length, prefix.data(), sizeof(length));

    // The length leaves out itself and the closing NUL.
    constexpr std::uint64_t uiUncounted = 5;
    std::vector<unsigned char> bytes(std::min(length + uiUncounted, m_viewSize));
    copyOut(bytes.data(), block, bytes.size());
    return bson::object::unfreeze(bytes.data(), bytes.size());
}

bool CSharedFlags::update(const bson::element& e)
{
    const bson::object updated = read().update(e);
    if (updated.size() > std::min(m_capacity, m_viewSize)) return false;
    write(updated);
    return true;
}

void CSharedFlags::write(const bson::object& document)
{
    const auto [bytes, size] = document.freeze();
    copyIn(static_cast<unsigned char*>(m_view.get()), bytes.get(), std::min(size, m_viewSize));
}

bool ReadBooleanFlag(const CSharedFlags& flags, const std::string& name, bool* value)
{
    const bson::element flag = flags.Get(name);
    if (flag.type() != bson::element::eBoolean) return false;
    if (value != nullptr) *value = flag.as_boolean();
    return true;
}

bson::object ReadObjectFlag(const CSharedFlags& flags, const std::string& name) { return flags.Get(name).as_object(); }

} // namespace Zorvan
