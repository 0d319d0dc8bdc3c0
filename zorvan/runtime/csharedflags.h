// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/platform/ckernelobjects.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/csharedmemory.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Zorvan {

/// A small dictionary that the processes of a user share: a service sets a flag, a running registration sees it.
///
///     CSharedFlags flags(L"zorvan.flags", 65536);
///     flags.Set(bson::element("debug_icp", true));
///
/// For a handful of flags: every operation reads the whole document, every write writes it again. The first bytes of
/// the named block are one frozen bson::object; a new block is all zeros, which is an empty one. Bytes behind the
/// document mean nothing. All operations but `Get()` take the named semaphore "Global\NAME.mutex" for their time,
/// without time-out: a process that was killed inside one blocks the others until the last of them has closed the
/// store.
///
/// A closed store (default constructed, moved from, or without memory) answers false, empty, or does nothing. So does a
/// copy: it keeps the store open, `operator bool` is true, but it has no view to read or write through.
///
/// Each object believes in its own `capacity`; nothing is ever read or written beyond the block itself. Waiting and
/// releasing throw std::runtime_error when the system refuses; a broken document throws what bson::object throws, with
/// the semaphore released.
class ZORVAN_API CSharedFlags
{
public:
    CSharedFlags() = default;
    /// Opens the store, or makes it. Closed on failure: an empty name, one that is too long (at most 226 ASCII letters
    /// or digits for root, a few less for others, and far less of other letters: see AKernelObject; logged as an
    /// error), or no memory. Any other failure to reach the semaphore (a full or read-only memory file system, a file
    /// of another user) is tried again, ten times a second, without limit. @param capacity  bytes of the block
    CSharedFlags(const std::wstring& name, std::uint64_t capacity);
    /// The same, but closed as soon as `isAborted`, asked again and again while it waits, says true.
    CSharedFlags(const std::wstring& name, std::uint64_t capacity, const std::function<bool()>& isAborted);
    CSharedFlags(const CSharedFlags& other);
    CSharedFlags& operator=(const CSharedFlags& other);
    CSharedFlags(CSharedFlags&& other) noexcept;
    CSharedFlags& operator=(CSharedFlags&& other) noexcept;
    ~CSharedFlags();

    [[nodiscard]] explicit operator bool() const { return static_cast<bool>(m_memory); }

    /// Adds the element, or puts it in the place of all top-level elements of its name, whatever their type.
    /// @return false: closed, or the result does not fit; the store is then as before
    bool Set(const bson::element& e);
    /// The first element of that name, shallow levels first; also inside nested objects. Empty if there is none.
    [[nodiscard]] bson::element Get(const std::string& name) const;
    /// The whole store as one object named like the block. Takes no semaphore, so it answers while another process is
    /// stuck, and may see what that one has half written: then some elements are missing or wrong, or it throws what a
    /// broken document throws, as std::invalid_argument "parse error". Ask again.
    [[nodiscard]] bson::element Get() const;
    [[nodiscard]] bool Exists(const std::string& name) const;
    /// Removes the top-level elements of that name. @return whether the document became shorter
    bool Erase(const std::string& name);
    /// Writes `all` only when it is larger than `capacity`; a smaller one is refused with false, and callers rely on
    /// it. What does not fit into the block is cut off.
    bool ReplaceAll(const bson::object& all);
    void Clear();

private:
    [[nodiscard]] bool isMapped() const { return m_memory && m_mutexSemaphore && m_view; }
    [[nodiscard]] bool attach(const std::wstring& name);
    [[nodiscard]] bson::object read() const;
    bool update(const bson::element& e);
    void write(const bson::object& document);
    void close() noexcept;

    CSharedMemory m_memory;
    std::uint64_t m_capacity = 0;
    CNamedSemaphore m_mutexSemaphore;
    std::shared_ptr<void> m_view;
    std::uint64_t m_viewSize = 0;
};

/// @param value  receives the flag's value, when there is one; may be null
/// @return       false: the store is closed, or the flag is absent or no boolean
ZORVAN_API bool ReadBooleanFlag(const CSharedFlags& flags, const std::string& name, bool* value);

/// @throws std::bad_cast when the store is closed, or the flag is absent or no object
[[nodiscard]] ZORVAN_API bson::object ReadObjectFlag(const CSharedFlags& flags, const std::string& name);

} // namespace Zorvan
