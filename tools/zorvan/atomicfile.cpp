#include "atomicfile.h"

#include "inputerror.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace tools {

namespace {

std::string reason(int error) { return "cannot be written: " + std::generic_category().message(error); }

[[noreturn]] void fail(const std::filesystem::path& file, int error)
{
    throw CInputError(file, reason(error), "check the folder, its permissions and the disk");
}

/// A new file beside the final one; gone at the end of its life unless it was moved there.
class CTemporaryFile
{
public:
    explicit CTemporaryFile(const std::filesystem::path& target) : m_target(target), m_name(nameBeside(target))
    {
        m_descriptor = ::open(m_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (m_descriptor < 0) fail(m_target, errno);
    }

    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    ~CTemporaryFile()
    {
        if (m_descriptor >= 0) ::close(m_descriptor);
        if (!m_isMoved) ::unlink(m_name.c_str());
    }

    void Write(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) fail(m_target, errno);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    // The bytes have to be on the disk before the name points to them, or a power cut leaves an empty file.
    void MoveToTarget()
    {
        if (::fsync(m_descriptor) != 0) fail(m_target, errno);
        if (::close(std::exchange(m_descriptor, -1)) != 0) fail(m_target, errno);
        if (::rename(m_name.c_str(), m_target.c_str()) != 0) fail(m_target, errno);
        m_isMoved = true;
    }

private:
    static std::string nameBeside(const std::filesystem::path& target)
    {
        return target.string() + ".tmp" + std::to_string(::getpid());
    }

    const std::filesystem::path& m_target;
    std::string m_name;
    int m_descriptor = -1;
    bool m_isMoved = false;
};

// Renaming over a device or a folder would replace it, or fail only after the work is done.
void requireReplaceable(const std::filesystem::path& file)
{
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw CInputError(file, "cannot be written: it is there and not a file", "give another name");
}

} // namespace

void RequireWritable(const std::filesystem::path& file)
{
    requireReplaceable(file);
    const CTemporaryFile probe(file);
}

void WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes)
{
    requireReplaceable(file);
    CTemporaryFile temporary(file);
    temporary.Write(bytes);
    temporary.MoveToTarget();
}

void MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder)) fail(folder, error ? error.value() : ENOTDIR);
}

} // namespace tools
