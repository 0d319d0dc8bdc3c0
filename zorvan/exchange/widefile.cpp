// SPDX-License-Identifier: MIT
#include "zorvan/exchange/widefile.h"

#include "zorvan/util/direntries.h"

#include <algorithm>
#include <string_view>

namespace Zorvan {

CWideFileBuffer::CWideFileBuffer(const std::string& fileName, std::size_t bufferSize)
    : m_bytes(bufferSize), m_characters(bufferSize)
{
    if (IsRegularFile(fileName)) m_file.open(fileName, std::ios::binary);
}

CWideFileBuffer::int_type CWideFileBuffer::underflow()
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    m_file.read(m_bytes.data(), static_cast<std::streamsize>(m_bytes.size()));
    const auto count = static_cast<std::size_t>(m_file.gcount());
    const bool hasMark = m_bytesRead == 0 && std::string_view(m_bytes.data(), count).starts_with(byteOrderMark);
    m_bytesRead += count;

    const auto begin = m_bytes.begin() + (hasMark ? std::ssize(byteOrderMark) : 0);
    const auto end = std::transform(begin, m_bytes.begin() + static_cast<std::ptrdiff_t>(count), m_characters.begin(),
                                    [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
    setg(m_characters.data(), m_characters.data(), m_characters.data() + (end - m_characters.begin()));
    return gptr() == egptr() ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

} // namespace Zorvan
