// SPDX-License-Identifier: MIT
#include "zorvan/scans/movestream.h"

#include "zorvan/scans/inputerror.h"

#include <algorithm>
#include <system_error>

namespace Zorvan {

CMoveStream::CMoveStream(const std::filesystem::path& from, const CNewFile* to, IPointListener* listener,
                         const Hooks& hooks)
    : m_file(from), m_to(to), m_listener(listener), m_hooks(hooks), m_stream(from, std::ios::binary)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(from, error)) Fail("no such file", "check the path");
    m_size = m_left = std::filesystem::file_size(from, error);
    if (error || !m_stream) Fail("cannot be read", "check its permissions");
    if (m_size == 0) Fail("empty (0 bytes)", "write or copy it again");
    m_hooks.Start(from.filename().string(), m_size);
}

std::string_view CMoveStream::Peek(std::size_t least)
{
    if (m_buffer.size() - m_at < least && m_left > 0) {
        if (m_hooks.IsAborted()) throw Stopped();
        m_buffer.erase(0, m_at);
        m_at = 0;
        const std::size_t before = m_buffer.size();
        const std::size_t more = std::min<std::uint64_t>(std::max(uiBlock, least) - before, m_left);
        m_buffer.resize(before + more);
        m_stream.read(m_buffer.data() + before, static_cast<std::streamsize>(more));
        if (m_stream.gcount() != static_cast<std::streamsize>(more))
            Fail("cannot be read to its end", "check its permissions and the disk");
        m_left -= more;
        m_hooks.Advance(more);
    }
    return std::string_view(m_buffer).substr(m_at);
}

std::string_view CMoveStream::Take(std::size_t size)
{
    const std::string_view bytes = Peek(size);
    if (bytes.size() < size)
        Fail("truncated: " + std::to_string(size - bytes.size()) + " bytes are missing at its end",
             "write or copy it again");
    m_at += size;
    return bytes.substr(0, size);
}

std::string_view CMoveStream::TakeLine()
{
    ++m_line;
    std::string_view bytes = Peek(1);
    std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) {
        bytes = Peek();
        end = bytes.find('\n');
    }
    if (end == std::string_view::npos && bytes.size() >= uiBlock) FailLine("a line of more than 4 MiB");
    return Take(end == std::string_view::npos ? bytes.size() : end + 1);
}

void CMoveStream::Put(std::string_view bytes)
{
    if (m_to == nullptr) return;
    if (bytes.size() >= uiBlock / 2) {
        Flush();
        m_to->Write(bytes);
        m_written += bytes.size();
        return;
    }
    m_out += bytes;
    if (m_out.size() >= uiBlock) Flush();
}

void CMoveStream::Copy(std::uint64_t size)
{
    while (size > 0) {
        const std::size_t part = std::min<std::uint64_t>(size, uiBlock);
        Put(Take(part));
        size -= part;
    }
}

void CMoveStream::PutAt(std::uint64_t place, std::string_view bytes)
{
    if (m_to == nullptr) return;
    Flush();
    m_to->WriteAt(place, bytes);
}

void CMoveStream::Flush()
{
    if (m_to == nullptr) return;
    m_to->Write(m_out);
    m_written += m_out.size();
    m_out.clear();
}

void CMoveStream::FailLine(const std::string& why) const
{
    Fail("line " + std::to_string(m_line) + ": " + why, "export the file again");
}

void CMoveStream::Fail(const std::string& why, const std::string& advice) const
{
    throw CInputError(m_file, why, advice);
}

} // namespace Zorvan
