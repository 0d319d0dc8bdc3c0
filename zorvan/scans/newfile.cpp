// SPDX-License-Identifier: MIT
#include "zorvan/scans/newfile.h"

#include "zorvan/scans/stagingfolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace Zorvan {

CNewFile::CNewFile(const std::filesystem::path& file)
    : m_file(file), m_descriptor(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666))
{
    if (m_descriptor < 0) RefuseWriting(m_file, errno);
}

CNewFile::~CNewFile()
{
    if (m_descriptor >= 0) ::close(m_descriptor);
}

void CNewFile::Write(std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) RefuseWriting(m_file, errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void CNewFile::WriteAt(std::uint64_t place, std::string_view bytes) const
{
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(m_descriptor, bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) RefuseWriting(m_file, errno);
        bytes.remove_prefix(static_cast<std::size_t>(written));
        place += static_cast<std::uint64_t>(written);
    }
}

// The bytes have to be on the disk before the final name points to them, or a power cut leaves an empty file.
void CNewFile::Close()
{
    if (::fsync(m_descriptor) != 0) RefuseWriting(m_file, errno);
    if (::close(std::exchange(m_descriptor, -1)) != 0) RefuseWriting(m_file, errno);
}

} // namespace Zorvan
