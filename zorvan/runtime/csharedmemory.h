// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/ckernelobjects.h"
#include "zorvan/platform/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Zorvan {

/// One named block of memory that several processes of a user map.
///
///     CSharedMemory memory = CSharedMemory::Create(L"scanner", 4096);
///     if (memory) std::memset(memory.CreateView().get(), 0, memory.MappedSize());
///
/// The block lives as long as any process holds a handle, and starts zero-filled after that, also when the last holder
/// was killed. A view outlives its handle, but does not keep the name.
class ZORVAN_API CSharedMemory
{
public:
    CSharedMemory() = default;
    /// Opens the block of that name anew, so that the copy has a handle of its own.
    CSharedMemory(const CSharedMemory& other);
    CSharedMemory& operator=(const CSharedMemory& other);
    /// The source keeps its name, without a handle.
    CSharedMemory(CSharedMemory&& other) noexcept;
    CSharedMemory& operator=(CSharedMemory&& other) noexcept;
    ~CSharedMemory() = default;

    /// Makes the block, or reaches the one of that name, whatever its size. A failure (size 0, no memory, bad name)
    /// gives an empty object; nothing is thrown.
    [[nodiscard]] static CSharedMemory Create(const std::wstring& name, std::uint64_t size);
    /// Reaches an existing block; `size` is believed. A failure is as for `Create`.
    [[nodiscard]] static CSharedMemory Open(const std::wstring& name, std::uint64_t size);

    /// Maps the whole block: `MappedSize()` bytes, readable and writable, until the last copy of the pointer goes.
    /// @throws std::runtime_error with the system's words
    [[nodiscard]] std::shared_ptr<void> CreateView();
    /// Closes the handle; views stay valid.
    void Close() { m_handle.Close(); }

    [[nodiscard]] explicit operator bool() const { return static_cast<bool>(m_handle); }
    /// What was asked for; 0 after a failure.
    [[nodiscard]] std::uint64_t Size() const { return m_size; }
    /// What a view really spans: the creator's size in whole pages; 0 without a handle.
    [[nodiscard]] std::uint64_t MappedSize() const { return m_handle.Size(); }
    /// Empty after a failure.
    [[nodiscard]] const std::wstring& GetUniqueName() const { return m_uniqueName; }

private:
    CSharedMemory(const std::wstring& name, CNamedMemory handle, std::uint64_t size);

    std::wstring m_uniqueName;
    CNamedMemory m_handle;
    std::uint64_t m_size = 0;
};

} // namespace Zorvan
