// SPDX-License-Identifier: MIT
#include "zorvan/scans/atomicfile.h"

#include "zorvan/scans/stagingfolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Zorvan {

namespace {

/// A file that was not there before.
class CNewFile
{
public:
    explicit CNewFile(const std::filesystem::path& file)
        : m_file(file), m_descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666))
    {
        if (m_descriptor < 0) RefuseWriting(m_file, errno);
    }
    CNewFile(const CNewFile&) = delete;
    CNewFile& operator=(const CNewFile&) = delete;
    ~CNewFile()
    {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }

    void Write(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) RefuseWriting(m_file, errno);
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    // The bytes have to be on the disk before the final name points to them, or a power cut leaves an empty file.
    void Close()
    {
        if (::fsync(m_descriptor) != 0) RefuseWriting(m_file, errno);
        if (::close(std::exchange(m_descriptor, -1)) != 0) RefuseWriting(m_file, errno);
    }

private:
    const std::filesystem::path m_file;
    int m_descriptor;
};

} // namespace

void RequireWritable(const std::filesystem::path& file)
{
    RequireReplaceable(file);
    const CStagingFolder staging(file.parent_path());
    const CNewFile probe(staging / file.filename());
}

void WriteFileAtomically(const std::filesystem::path& file, std::string_view bytes)
{
    RequireReplaceable(file);
    CStagingFolder staging(file.parent_path());
    CNewFile written(staging / file.filename());
    written.Write(bytes);
    written.Close();
    staging.Publish();
}

void MakeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder)) RefuseWriting(folder, error ? error.value() : ENOTDIR);
}

} // namespace Zorvan
