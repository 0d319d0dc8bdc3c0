// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/ckernelobjects.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/csharedmemory.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan {

/// A one-way channel of messages from one process to another, through one slot of shared memory.
///
///     // receiver                                              // sender, afterwards
///     auto pipe = CSharedMemoryPipe::Create(L"scans", 65536);  auto pipe = CSharedMemoryPipe::Open(L"scans", 65536);
///     std::vector<unsigned char> message = pipe.Receive();     pipe.Send(bytes);
///
/// A message larger than the slot passes through it chunk by chunk, the sender held back until the receiver has emptied
/// the slot: one thread cannot send itself two chunks. One side sends and one receives at a time; the chunks of two
/// senders would mix. There is no time-out: a receiver waits for the rest of a message whose sender was killed. When
/// both sides have gone, the name starts afresh.
///
/// The block, little-endian: bytes 0-3 the number of chunks in a message's first chunk, the index of the chunk (from 0)
/// in every later one; bytes 4-7 the payload bytes of this chunk; then the payload. Two named semaphores count full and
/// free slots: "Global\NAME.sem.items" and "Global\NAME.sem.spaces".
///
/// Send and receive throw std::runtime_error when the pipe is closed. What the block says is checked against its size:
/// a broken header gives a wrong message, never an access outside the block.
class ZORVAN_API CSharedMemoryPipe
{
public:
    CSharedMemoryPipe() = default;
    CSharedMemoryPipe(CSharedMemoryPipe&& other) noexcept;
    CSharedMemoryPipe& operator=(CSharedMemoryPipe&& other) noexcept;
    ~CSharedMemoryPipe() = default;

    /// @param size  bytes of the block, 8 of them for the header; both sides give the same
    /// @return      a closed pipe when the block cannot be made
    /// @throws std::runtime_error when a semaphore cannot be made
    [[nodiscard]] static CSharedMemoryPipe Create(const std::wstring& name, std::uint64_t size);
    /// Reaches what another side has made. Returns and throws as `Create`.
    [[nodiscard]] static CSharedMemoryPipe Open(const std::wstring& name, std::uint64_t size);

    void Close();
    [[nodiscard]] explicit operator bool() const { return static_cast<bool>(m_itemsSemaphore); }

    /// Blocks until the last chunk lies in the slot. An empty message is not sent at all.
    /// @throws std::invalid_argument for a block without room for payload, whatever the message
    /// @throws std::length_error when the chunks cannot be counted in 32 bits
    void Send(const void* data, std::uint64_t size);
    void Send(const std::vector<unsigned char>& data);
    /// The terminating NUL travels with the text.
    void Send(const std::string& text);

    /// Waits for a message.
    void Receive(std::vector<unsigned char>& out);
    [[nodiscard]] std::vector<unsigned char> Receive();
    /// @param out   large enough for the message; not checked
    /// @param size  receives the bytes written
    void Receive(void* out, std::uint64_t& size);

    /// As `Receive`, but false at once when the slot is empty. Once the first chunk is there, waits for the others.
    bool TryReceive(std::vector<unsigned char>& out);
    bool TryReceive(void* out, std::uint64_t& size);
    [[nodiscard]] std::pair<std::vector<unsigned char>, bool> TryReceive();

private:
    struct Sink;
    enum class EFirstChunk
    {
        Wait,
        Try
    };

    CSharedMemoryPipe(CSharedMemory memory, std::uint64_t size);

    [[nodiscard]] std::uint64_t payloadSize() const;
    [[nodiscard]] unsigned char* slot() const { return static_cast<unsigned char*>(m_view.get()); }
    bool receive(EFirstChunk first, const Sink& sink);
    [[nodiscard]] std::uint64_t takeChunk(bool isFirst, std::uint64_t& count, const Sink& sink);

    void lockProducer();
    void unlockProducer();
    void lockConsumer();
    void unlockConsumer();
    [[nodiscard]] bool tryLockConsumer();

    std::uint64_t m_bufferSize = 0;
    CSharedMemory m_memory;
    CNamedSemaphore m_itemsSemaphore;  ///< the slot holds a chunk
    CNamedSemaphore m_spacesSemaphore; ///< the slot is free
    std::mutex m_mutex;                ///< the slot, against other threads of this process
    std::shared_ptr<void> m_view;
    std::uint64_t m_viewSize = 0;
};

} // namespace Zorvan
