// SPDX-License-Identifier: MIT
#include "zorvan/runtime/csharedmemorypipe.h"

#include "zorvan/runtime/semaphorecalls.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>

namespace Zorvan {

static_assert(std::endian::native == std::endian::little);

namespace {

constexpr std::uint64_t uiHeaderSize = 8;
constexpr std::uint32_t uiMaxCount = 1024;
constexpr std::uint64_t uiMax32 = std::numeric_limits<std::uint32_t>::max();

/// The chunk count comes from another process: beyond this a message grows as its bytes arrive.
constexpr std::uint64_t uiMaxReserve = 256U << 20U;

/// Lies at the start of the block.
struct Header
{
    std::uint32_t uiCountOrIndex;
    std::uint32_t uiLength;
};
static_assert(sizeof(Header) == uiHeaderSize);

[[nodiscard]] std::wstring itemsName(const std::wstring& name) { return L"Global\\" + name + L".sem.items"; }
[[nodiscard]] std::wstring spacesName(const std::wstring& name) { return L"Global\\" + name + L".sem.spaces"; }

void throwOnError(const char* place, int error)
{
    if (error != 0) throw std::runtime_error(place + SystemErrorText(error));
}

} // namespace

/// Where the bytes of a message go.
struct CSharedMemoryPipe::Sink
{
    std::function<void(std::uint64_t size)> reserve;
    std::function<void(const unsigned char* data, std::uint64_t size)> append;

    static Sink Into(std::vector<unsigned char>& out)
    {
        return {[&out](std::uint64_t size) { out.reserve(std::min(size, uiMaxReserve)); },
                [&out](const unsigned char* data, std::uint64_t size) { out.insert(out.end(), data, data + size); }};
    }

    static Sink Into(void* out, std::uint64_t& written)
    {
        return {[](std::uint64_t) {},
                [out, &written](const unsigned char* data, std::uint64_t size) {
                    std::memcpy(static_cast<unsigned char*>(out) + written, data, size);
                    written += size;
                }};
    }
};

CSharedMemoryPipe::CSharedMemoryPipe(CSharedMemory memory, std::uint64_t size)
    : m_bufferSize(size), m_memory(std::move(memory)), m_viewSize(m_memory.MappedSize())
{
    if (m_memory) m_view = m_memory.CreateView();
}

CSharedMemoryPipe::CSharedMemoryPipe(CSharedMemoryPipe&& other) noexcept { *this = std::move(other); }

CSharedMemoryPipe& CSharedMemoryPipe::operator=(CSharedMemoryPipe&& other) noexcept
{
    if (this == &other) return *this;
    m_bufferSize = std::exchange(other.m_bufferSize, 0);
    m_memory = std::exchange(other.m_memory, {});
    m_itemsSemaphore = std::move(other.m_itemsSemaphore);
    m_spacesSemaphore = std::move(other.m_spacesSemaphore);
    m_view = std::move(other.m_view);
    m_viewSize = std::exchange(other.m_viewSize, 0);
    return *this;
}

CSharedMemoryPipe CSharedMemoryPipe::Create(const std::wstring& name, std::uint64_t size)
{
    constexpr const char* szPlace = "Zorvan::CSharedMemoryPipe::Create";
    CSharedMemoryPipe pipe(CSharedMemory::Create(name, size), size);
    if (!pipe.m_memory) return pipe;

    int error = 0;
    pipe.m_itemsSemaphore = CNamedSemaphore::Create(itemsName(name), 0, uiMaxCount, error);
    throwOnError(szPlace, error);
    pipe.m_spacesSemaphore = CNamedSemaphore::Create(spacesName(name), 1, uiMaxCount, error);
    throwOnError(szPlace, error);
    return pipe;
}

CSharedMemoryPipe CSharedMemoryPipe::Open(const std::wstring& name, std::uint64_t size)
{
    constexpr const char* szPlace = "Zorvan::CSharedMemoryPipe::Open";
    CSharedMemoryPipe pipe(CSharedMemory::Open(name, size), size);
    if (!pipe.m_memory) return pipe;

    int error = 0;
    pipe.m_itemsSemaphore = CNamedSemaphore::Open(itemsName(name), error);
    throwOnError(szPlace, error);
    pipe.m_spacesSemaphore = CNamedSemaphore::Open(spacesName(name), error);
    throwOnError(szPlace, error);
    return pipe;
}

void CSharedMemoryPipe::Close()
{
    m_memory.Close();
    m_itemsSemaphore.Close();
    m_spacesSemaphore.Close();
}

void CSharedMemoryPipe::Send(const void* data, std::uint64_t size)
{
    const std::uint64_t payload = payloadSize();
    if (payload == 0) throw std::invalid_argument("shared memory buffer too small");
    if (size == 0) return;
    const std::uint64_t count = (size - 1) / payload + 1;
    if (count > uiMax32) throw std::length_error("message too large for the shared memory buffer");

    const auto* next = static_cast<const unsigned char*>(data);
    for (std::uint64_t index = 0; index < count; ++index) {
        const std::uint64_t length = std::min(payload, size - index * payload);
        const Header header = {static_cast<std::uint32_t>(index == 0 ? count : index),
                               static_cast<std::uint32_t>(length)};
        lockProducer();
        std::memcpy(slot(), &header, sizeof(header));
        std::memcpy(slot() + uiHeaderSize, next, length);
        unlockProducer();
        next += length;
    }
}

void CSharedMemoryPipe::Send(const std::vector<unsigned char>& data) { Send(data.data(), data.size()); }

void CSharedMemoryPipe::Send(const std::string& text) { Send(text.c_str(), text.size() + 1); }

void CSharedMemoryPipe::Receive(std::vector<unsigned char>& out)
{
    out.clear();
    receive(EFirstChunk::Wait, Sink::Into(out));
}

std::vector<unsigned char> CSharedMemoryPipe::Receive()
{
    std::vector<unsigned char> message;
    Receive(message);
    return message;
}

void CSharedMemoryPipe::Receive(void* out, std::uint64_t& size)
{
    size = 0;
    receive(EFirstChunk::Wait, Sink::Into(out, size));
}

bool CSharedMemoryPipe::TryReceive(std::vector<unsigned char>& out)
{
    out.clear();
    return receive(EFirstChunk::Try, Sink::Into(out));
}

bool CSharedMemoryPipe::TryReceive(void* out, std::uint64_t& size)
{
    size = 0;
    return receive(EFirstChunk::Try, Sink::Into(out, size));
}

std::pair<std::vector<unsigned char>, bool> CSharedMemoryPipe::TryReceive()
{
    std::vector<unsigned char> message;
    const bool received = TryReceive(message);
    return {std::move(message), received};
}

/// P of both sides when they agree on the size. The smaller of what was asked for and what is there, so that another
/// process that made a smaller block costs a message and not a fault.
std::uint64_t CSharedMemoryPipe::payloadSize() const
{
    const std::uint64_t size = m_viewSize != 0 ? std::min(m_bufferSize, m_viewSize) : m_bufferSize;
    return size > uiHeaderSize ? std::min(size - uiHeaderSize, uiMax32) : 0;
}

/// @return false: there was no first chunk, and none was waited for
bool CSharedMemoryPipe::receive(EFirstChunk first, const Sink& sink)
{
    if (first == EFirstChunk::Wait)
        lockConsumer();
    else if (!tryLockConsumer())
        return false;

    std::uint64_t count = 0;
    std::uint64_t index = takeChunk(true, count, sink);
    while (index + 1 < count) {
        lockConsumer();
        index = takeChunk(false, count, sink);
    }
    return true;
}

/// Empties the slot, which the caller has locked, and unlocks it. @return the chunk's index
std::uint64_t CSharedMemoryPipe::takeChunk(bool isFirst, std::uint64_t& count, const Sink& sink)
{
    Header header = {};
    std::memcpy(&header, slot(), sizeof(header));
    try {
        if (isFirst) {
            count = header.uiCountOrIndex;
            const std::uint64_t payload = std::max<std::uint64_t>(payloadSize(), 1);
            sink.reserve(payload * std::min(count, uiMaxReserve / payload + 1));
        }
        sink.append(slot() + uiHeaderSize, std::min<std::uint64_t>(header.uiLength, m_viewSize - uiHeaderSize));
    } catch (...) {
        // Out of memory: this message is lost, but neither side is left locked out.
        unlockConsumer();
        throw;
    }
    unlockConsumer();
    return isFirst ? 0 : header.uiCountOrIndex;
}

void CSharedMemoryPipe::lockProducer()
{
    WaitOrThrow(m_spacesSemaphore);
    m_mutex.lock();
}

void CSharedMemoryPipe::unlockProducer()
{
    m_mutex.unlock();
    ReleaseOrThrow(m_itemsSemaphore);
}

void CSharedMemoryPipe::lockConsumer()
{
    WaitOrThrow(m_itemsSemaphore);
    m_mutex.lock();
}

void CSharedMemoryPipe::unlockConsumer()
{
    m_mutex.unlock();
    ReleaseOrThrow(m_spacesSemaphore);
}

bool CSharedMemoryPipe::tryLockConsumer()
{
    if (!m_itemsSemaphore) throw std::runtime_error("WaitForSingleObject() failed!");
    if (!m_itemsSemaphore.TryWait()) return false;
    m_mutex.lock();
    return true;
}

} // namespace Zorvan
