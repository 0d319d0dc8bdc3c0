// SPDX-License-Identifier: MIT
#pragma once

#include <fstream>
#include <istream>
#include <streambuf>
#include <string>
#include <vector>

namespace Zorvan {

/// The bytes of a file as wide characters, each byte one character, through a buffer of a given size. A byte order mark
/// of UTF-8 at the start is passed over. What is no regular file counts as missing: opening a pipe would wait for
/// somebody to write into it.
class CWideFileBuffer : public std::wstreambuf
{
public:
    CWideFileBuffer(const std::string& fileName, std::size_t bufferSize);

    [[nodiscard]] bool IsOpen() const { return m_file.is_open(); }
    /// Whether the disk, and not the end of the file, ended the reading.
    [[nodiscard]] bool HasFailed() const { return m_file.bad(); }
    [[nodiscard]] std::size_t GetBytesRead() const { return m_bytesRead; }

protected:
    int_type underflow() override;

private:
    std::ifstream m_file;
    std::vector<char> m_bytes;
    std::vector<wchar_t> m_characters;
    std::size_t m_bytesRead = 0;
};

/// The same as a stream.
class CWideFile : private CWideFileBuffer, public std::wistream
{
public:
    CWideFile(const std::string& fileName, std::size_t bufferSize)
        : CWideFileBuffer(fileName, bufferSize), std::wistream(static_cast<CWideFileBuffer*>(this))
    {
    }
    using CWideFileBuffer::GetBytesRead;
    using CWideFileBuffer::HasFailed;
    using CWideFileBuffer::IsOpen;
};

} // namespace Zorvan
