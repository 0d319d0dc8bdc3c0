// SPDX-License-Identifier: MIT
#include "zorvan/platform/ckernelobjects.h"

#include <fmt/printf.h>

#include <linux/futex.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

namespace Zorvan {

namespace {

constexpr const char* szFolder = "/dev/shm/";

/// Offsets of the two lock bytes. A lock on a byte does not touch its content.
constexpr off_t iGate = 0;
constexpr off_t iAlive = 1;

class CDescriptor
{
public:
    explicit CDescriptor(int descriptor) : m_descriptor(descriptor) {}
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    ~CDescriptor()
    {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }

    [[nodiscard]] int Get() const { return m_descriptor; }
    [[nodiscard]] int Hand() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor;
};

/// Locks belong to the open file, not to the process: two handles of one process count as two, and the kernel drops
/// them with the last descriptor. A change from exclusive to shared leaves no gap.
[[nodiscard]] bool lockByte(int descriptor, off_t byte, short type, int command)
{
    struct flock request = {};
    request.l_type = type;
    request.l_whence = SEEK_SET;
    request.l_start = byte;
    request.l_len = 1;
    int result = 0;
    do {
        result = ::fcntl(descriptor, command, &request);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

[[nodiscard]] std::string namePrefix() { return fmt::format("zorvan-{}-", ::geteuid()); }

/// Every code unit outside a small set of letters is written by its number, so different names give different files.
[[nodiscard]] std::string filePath(std::string_view kind, std::wstring_view name)
{
    constexpr std::wstring_view plain = L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
    std::string path = szFolder + namePrefix() + std::string(kind) + "-";
    for (const wchar_t unit : name) {
        if (plain.find(unit) != std::wstring_view::npos)
            path += static_cast<char>(unit);
        else
            path += fmt::format("%{:x};", static_cast<unsigned long>(unit));
    }
    return path;
}

[[nodiscard]] int openFile(const std::string& path, int flags)
{
    return ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, S_IRUSR | S_IWUSR);
}

[[nodiscard]] bool isLinked(const struct stat& status) { return status.st_nlink != 0; }

/// Locks of another user's file are never waited for: he could hold them for good. @return false sets errno
[[nodiscard]] bool isOurs(int descriptor)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) return false;
    if (status.st_uid == ::geteuid()) return true;
    errno = EACCES;
    return false;
}

/// @param command  F_OFD_SETLKW to wait for the gate, F_OFD_SETLK to leave a busy object alone
void removeIfAbandoned(const std::string& path, int command)
{
    const CDescriptor file(openFile(path, 0));
    if (file.Get() < 0 || !isOurs(file.Get()) || !lockByte(file.Get(), iGate, F_WRLCK, command)) return;
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0 || !isLinked(status)) return;
    if (lockByte(file.Get(), iAlive, F_WRLCK, F_OFD_SETLK)) ::unlink(path.c_str());
}

/// Killed processes leave memory that nobody may ask for again under the same name.
void removeAllAbandoned()
{
    const std::string prefix = namePrefix();
    std::error_code error;
    std::filesystem::directory_iterator entry(szFolder, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string file = entry->path().filename().string();
        if (file.starts_with(prefix)) removeIfAbandoned(szFolder + file, F_OFD_SETLK);
    }
}

[[nodiscard]] int reserve(int descriptor, std::uint64_t size)
{
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    if (size > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) - page) return EFBIG;
    const std::uint64_t whole = (size + page - 1) / page * page;
    int result = 0;
    do {
        result = ::posix_fallocate(descriptor, 0, static_cast<off_t>(whole));
    } while (result == EINTR);
    return result;
}

enum class EFound
{
    Shared,    ///< somebody holds a handle
    New,       ///< empty and ours alone
    Abandoned, ///< left behind by a killed process
    Removed,   ///< by somebody else, after we had opened the file
    Refused    ///< errno says why
};

/// Waits for the gate and looks at what stands behind it.
[[nodiscard]] EFound look(int descriptor)
{
    struct stat status = {};
    if (!isOurs(descriptor) || !lockByte(descriptor, iGate, F_WRLCK, F_OFD_SETLKW) || ::fstat(descriptor, &status) != 0)
        return EFound::Refused;
    if (!isLinked(status)) return EFound::Removed;
    if (!lockByte(descriptor, iAlive, F_WRLCK, F_OFD_SETLK)) return EFound::Shared;
    return status.st_size == 0 ? EFound::New : EFound::Abandoned;
}

/// Turns the gate into a share of the `alive` lock.
[[nodiscard]] bool enter(int descriptor)
{
    return lockByte(descriptor, iAlive, F_RDLCK, F_OFD_SETLK) && lockByte(descriptor, iGate, F_UNLCK, F_OFD_SETLK);
}

} // namespace

std::string SystemErrorText(int code)
{
    const char* text = ::strerrordesc_np(code);
    return text != nullptr ? std::string(text) : fmt::sprintf("failed; Unknown error code %08x (%d)", code, code);
}

AKernelObject::AKernelObject(AKernelObject&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)), m_path(std::move(other.m_path))
{
}

AKernelObject& AKernelObject::operator=(AKernelObject&& other) noexcept
{
    if (this == &other) return *this;
    Close();
    m_descriptor = std::exchange(other.m_descriptor, -1);
    m_path = std::move(other.m_path);
    return *this;
}

void AKernelObject::Close() noexcept
{
    if (m_descriptor < 0) return;
    ::close(std::exchange(m_descriptor, -1));
    // Asked through a new descriptor: it sees the share that a forked process may still have in ours.
    removeIfAbandoned(m_path, F_OFD_SETLKW);
}

int AKernelObject::reach(std::string_view kind, std::wstring_view name, const Initialise& initialise)
{
    if (name.empty()) return EINVAL;
    if (initialise) removeAllAbandoned();
    std::string path = filePath(kind, name);
    for (;;) {
        CDescriptor file(openFile(path, initialise ? O_CREAT : 0));
        if (file.Get() < 0) return errno;

        const EFound found = look(file.Get());
        if (found == EFound::Refused) return errno;
        if (found == EFound::Removed) continue;
        if (found == EFound::Abandoned || (found == EFound::New && !initialise)) {
            // Not emptied but replaced: a process that closed its handle may still look at the old content.
            ::unlink(path.c_str());
            continue;
        }
        if (found == EFound::New) {
            if (const int error = initialise(file.Get()); error != 0) {
                ::unlink(path.c_str());
                return error;
            }
        }
        if (!enter(file.Get())) return errno;
        m_descriptor = file.Hand();
        m_path = std::move(path);
        return 0;
    }
}

std::uint64_t AKernelObject::fileSize() const
{
    struct stat status = {};
    return ::fstat(m_descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::shared_ptr<void> AKernelObject::map(std::uint64_t size) const
{
    if (m_descriptor < 0) {
        errno = EBADF;
        return nullptr;
    }
    // A mapping keeps its open file, and so its locks, alive: through our own, a view would count as a handle.
    const CDescriptor file(::open(fmt::format("/proc/self/fd/{}", m_descriptor).c_str(), O_RDWR | O_CLOEXEC));
    if (file.Get() < 0) return nullptr;
    void* start = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    if (start == MAP_FAILED) return nullptr;
    return {start, [size](void* view) { ::munmap(view, size); }};
}

CNamedMemory CNamedMemory::Create(std::wstring_view name, std::uint64_t size, int& error)
{
    CNamedMemory memory;
    error = size == 0 ? EINVAL : memory.reach("mem", name, [size](int file) { return reserve(file, size); });
    return memory;
}

CNamedMemory CNamedMemory::Open(std::wstring_view name, int& error)
{
    CNamedMemory memory;
    error = memory.reach("mem", name, nullptr);
    return memory;
}

/// Lies at the start of the file. Lock-free atomics without an address in them work between processes.
struct CNamedSemaphore::Shared
{
    std::atomic<std::uint32_t> count;
    std::atomic<std::uint32_t> sleepers; ///< never too low; too high after a sleeper was killed
    std::uint32_t maximum;

    static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
    static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

    bool TryTake()
    {
        std::uint32_t seen = count.load();
        while (seen != 0)
            if (count.compare_exchange_weak(seen, seen - 1)) return true;
        return false;
    }

    void SleepUntilRaised()
    {
        // A process killed between its wake-up and its take would leave the others asleep; a second look now and then
        // heals that.
        const std::timespec lookAgain = {0, 500'000'000};
        ::syscall(SYS_futex, &count, FUTEX_WAIT, 0, &lookAgain, nullptr, 0);
    }

    bool Raise()
    {
        std::uint32_t seen = count.load();
        do {
            if (seen >= maximum) return false;
        } while (!count.compare_exchange_weak(seen, seen + 1));
        if (sleepers.load() != 0) ::syscall(SYS_futex, &count, FUTEX_WAKE, 1, nullptr, nullptr, 0);
        return true;
    }
};

CNamedSemaphore CNamedSemaphore::Create(std::wstring_view name, std::uint32_t initial, std::uint32_t maximum,
                                        int& error)
{
    CNamedSemaphore semaphore;
    const auto initialise = [&](int file) {
        if (const int failure = reserve(file, sizeof(Shared)); failure != 0) return failure;
        const std::uint32_t content[] = {initial, 0, maximum};
        return ::pwrite(file, content, sizeof(content), 0) == sizeof(content) ? 0 : EIO;
    };
    error = semaphore.reach("sem", name, initialise);
    semaphore.attach(error);
    return semaphore;
}

CNamedSemaphore CNamedSemaphore::Open(std::wstring_view name, int& error)
{
    CNamedSemaphore semaphore;
    error = semaphore.reach("sem", name, nullptr);
    semaphore.attach(error);
    return semaphore;
}

void CNamedSemaphore::attach(int& error)
{
    if (error != 0) return;
    m_view = map(sizeof(Shared));
    if (m_view) return;
    error = errno;
    Close();
}

void CNamedSemaphore::Close() noexcept
{
    m_view.reset();
    AKernelObject::Close();
}

CNamedSemaphore::Shared* CNamedSemaphore::shared() const { return static_cast<Shared*>(m_view.get()); }

bool CNamedSemaphore::Wait() const
{
    return Wait([] { return false; });
}

bool CNamedSemaphore::Wait(const std::function<bool()>& isAborted) const
{
    if (!m_view) return false;
    // No spinning and no yielding before the sleep: with other work on the processors both cost milliseconds a turn.
    if (shared()->TryTake()) return true;
    shared()->sleepers.fetch_add(1);
    bool isTaken = false;
    while (!(isTaken = shared()->TryTake()) && !isAborted()) shared()->SleepUntilRaised();
    shared()->sleepers.fetch_sub(1);
    return isTaken;
}

bool CNamedSemaphore::TryWait() const { return m_view && shared()->TryTake(); }

bool CNamedSemaphore::Release() const { return m_view && shared()->Raise(); }

} // namespace Zorvan
