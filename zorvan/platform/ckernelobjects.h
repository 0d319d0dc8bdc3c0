// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Zorvan {

/// The system's words for an error code of its own (errno): one line, UTF-8, not translated; for a code that it does
/// not know "failed; Unknown error code %08x (%d)".
[[nodiscard]] ZORVAN_API std::string SystemErrorText(int code);

/// What named memory and named semaphores have in common: a name that processes of one user share, and a life that ends
/// with the last handle, however that handle ended. A process that was killed leaves nothing that a later one would
/// inherit, and nothing is removed while somebody holds a handle.
///
/// An object is a file in the system's memory file system. Two of its bytes serve as locks that the kernel drops with
/// their owner: every handle shares the `alive` lock; whoever opens or removes takes the `gate` first. Who holds the
/// gate and gets `alive` for itself alone knows that nobody else has a handle. A removed file stays removed for those
/// who had opened it before: they see the missing link once they hold the gate, and start over.
///
/// A forked child shares the handles of its parent: the object lives until both have closed them. A file of that name
/// that belongs to another user is refused (EACCES) and not touched.
///
/// Any characters may stand in a name. An empty one is refused (EINVAL), and one whose file name would have more than
/// 255 bytes (ENAMETOOLONG): 13 to 22 of them are the prefix with the user's number, and a code unit that is none of
/// A-Z a-z 0-9 . _ - takes its hexadecimal digits and two more. For root that leaves 242 ASCII letters or digits, 60
/// letters from U+0080 to U+00FF, 48 up to U+0FFF, or 40 beyond; a code point beyond U+FFFF counts as two.
class ZORVAN_API AKernelObject
{
public:
    AKernelObject(const AKernelObject&) = delete;
    AKernelObject& operator=(const AKernelObject&) = delete;

    [[nodiscard]] explicit operator bool() const { return m_descriptor >= 0; }
    void Close() noexcept;

protected:
    /// Gives a new, empty file its content. @return 0, or the system's error code
    using Initialise = std::function<int(int descriptor)>;

    AKernelObject() = default;
    AKernelObject(AKernelObject&& other) noexcept;
    AKernelObject& operator=(AKernelObject&& other) noexcept;
    ~AKernelObject() { Close(); }

    /// Opens the object; makes it when `initialise` is given and nobody holds it. @return 0, or the system's error code
    [[nodiscard]] int reach(std::string_view kind, std::wstring_view name, const Initialise& initialise);
    [[nodiscard]] std::uint64_t fileSize() const;
    /// Maps the first `size` bytes, unmapped by the deleter; null sets errno.
    [[nodiscard]] std::shared_ptr<void> map(std::uint64_t size) const;

private:
    int m_descriptor = -1;
    std::string m_path;
};

/// One handle to a named block of memory. `error` receives 0 or the system's code, with a closed handle.
class ZORVAN_API CNamedMemory : public AKernelObject
{
public:
    /// A new block is zero-filled, has whole pages, and all of them are reserved: memory that is not there is an error
    /// here, not a fault at the first touch. An existing block is reached with the size that it has.
    static CNamedMemory Create(std::wstring_view name, std::uint64_t size, int& error);
    static CNamedMemory Open(std::wstring_view name, int& error);

    /// Bytes that a view spans; 0 for a closed handle.
    [[nodiscard]] std::uint64_t Size() const { return fileSize(); }
    /// The whole block, readable and writable; stays valid when the handle is closed. Null on failure, errno says why.
    [[nodiscard]] std::shared_ptr<void> CreateView() const { return map(fileSize()); }
};

/// One handle to a named counting semaphore. It has no owner: any thread of any process may release it, and what a
/// killed process took stays taken. All operations are thread-safe, but not while the handle is closed or moved.
class ZORVAN_API CNamedSemaphore : public AKernelObject
{
public:
    /// An existing semaphore is reached with the count and the maximum that it has.
    static CNamedSemaphore Create(std::wstring_view name, std::uint32_t initial, std::uint32_t maximum, int& error);
    static CNamedSemaphore Open(std::wstring_view name, int& error);

    void Close() noexcept;
    /// Takes one, after waiting for it without limit. @return false: the handle is closed
    [[nodiscard]] bool Wait() const;
    /// The same until `isAborted`, asked twice a second, says true. @return false: aborted, or the handle is closed
    [[nodiscard]] bool Wait(const std::function<bool()>& isAborted) const;
    /// Takes one if there is one.
    [[nodiscard]] bool TryWait() const;
    /// @return false: the handle is closed, or the count stands at its maximum
    [[nodiscard]] bool Release() const;

private:
    struct Shared;

    void attach(int& error);
    [[nodiscard]] Shared* shared() const;

    std::shared_ptr<void> m_view;
};

} // namespace Zorvan
