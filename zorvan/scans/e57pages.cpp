// SPDX-License-Identifier: MIT
#include "zorvan/scans/e57pages.h"

#include "zorvan/platform/simd.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/littleendian.h"

#include <algorithm>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::size_t uiHeaderBytes = 48;
constexpr std::uint64_t uiChecksum = 4;
constexpr std::uint64_t uiPage = 1024; // that is written
constexpr std::uint64_t uiSmallestPage = 64;
constexpr std::uint64_t uiLargestPage = 1U << 20U;
constexpr const char* sCopyAgain = "the file is damaged: write or copy it again";

std::uint32_t bigEndian(std::string_view bytes)
{
    std::uint32_t value = 0;
    for (const char byte : bytes) value = (value << 8U) | static_cast<unsigned char>(byte);
    return value;
}

} // namespace

std::uint32_t Crc32c(std::string_view bytes)
{
    constexpr std::size_t uiWord = sizeof(std::uint64_t);
    std::uint32_t crc = ~0U;
    for (; bytes.size() >= uiWord; bytes.remove_prefix(uiWord))
        crc = simd::Crc32(crc, LoadLittle<std::uint64_t>(bytes, 0));
    for (const char byte : bytes) crc = simd::Crc32(crc, static_cast<std::uint8_t>(byte));
    return ~crc;
}

std::uint64_t E57PlaceOf(std::uint64_t content)
{
    constexpr std::uint64_t each = uiPage - uiChecksum;
    return content / each * uiPage + content % each;
}

std::string E57Pages(std::string content, std::size_t xml)
{
    constexpr std::size_t each = uiPage - uiChecksum;
    const std::size_t xmlLength = content.size() - xml;
    const std::size_t pages = (content.size() + each - 1) / each;
    content.resize(pages * each, '\0');
    std::string header = "ASTM-E57";
    for (const std::uint32_t version : {1U, 0U}) AppendLittle(header, version);
    for (const std::uint64_t value :
         {static_cast<std::uint64_t>(pages * uiPage), E57PlaceOf(xml), static_cast<std::uint64_t>(xmlLength), uiPage})
        AppendLittle(header, value);
    content.replace(0, header.size(), header);
    std::string file;
    file.reserve(pages * uiPage);
    for (std::size_t at = 0; at < content.size(); at += each) {
        const std::string_view page = std::string_view(content).substr(at, each);
        file += page;
        const std::uint32_t crc = Crc32c(page);
        for (const unsigned shift : {24U, 16U, 8U, 0U}) file.push_back(static_cast<char>(crc >> shift));
    }
    return file;
}

CE57Pages::CE57Pages(CFileParts parts, const std::filesystem::path& file) : m_parts(std::move(parts)), m_file(file)
{
    const std::string_view bytes = m_parts.At(0, uiHeaderBytes);
    if (!bytes.starts_with("ASTM-E57"))
        throw CInputError(file, "byte 0: does not begin with \"ASTM-E57\"", "check that it is an E57 file");
    if (bytes.size() < uiHeaderBytes)
        throw CInputError(file, "truncated: " + std::to_string(bytes.size()) + " bytes are no E57 file",
                          "write or copy it again");
    const auto major = LoadLittle<std::uint32_t>(bytes, 8);
    if (major != 1)
        throw CInputError(file, "byte 8: version " + std::to_string(major), "version 1 is read: export it in that");
    m_size = LoadLittle<std::uint64_t>(bytes, 16);
    m_xmlPlace = LoadLittle<std::uint64_t>(bytes, 24);
    m_xmlLength = LoadLittle<std::uint64_t>(bytes, 32);
    m_pageSize = LoadLittle<std::uint64_t>(bytes, 40);
    if (m_size > m_parts.Size())
        throw CInputError(file,
                          "truncated: the header promises " + std::to_string(m_size) + " bytes, the file has " +
                              std::to_string(m_parts.Size()),
                          "write or copy it again");
    if (m_pageSize < uiSmallestPage || m_pageSize > uiLargestPage)
        Fail(40, "pages of " + std::to_string(m_pageSize) + " bytes");
}

std::string CE57Pages::Xml() { return Read(m_xmlPlace, m_xmlLength); }

std::uint64_t CE57Pages::ContentBefore(std::uint64_t place) const { return place - place / m_pageSize * uiChecksum; }

std::uint64_t CE57Pages::PlaceOf(std::uint64_t content) const
{
    const std::uint64_t each = m_pageSize - uiChecksum;
    return content / each * m_pageSize + content % each;
}

void CE57Pages::Demand(std::uint64_t place, std::uint64_t length) const
{
    if (place >= m_size || place % m_pageSize >= m_pageSize - uiChecksum || length > m_size - m_read)
        Fail(place, std::to_string(length) + " bytes are promised there");
}

std::string CE57Pages::Read(std::uint64_t place, std::uint64_t length)
{
    Demand(place, length);
    m_read += length;
    const std::uint64_t content = m_pageSize - uiChecksum;
    std::uint64_t at = place % m_pageSize;
    std::string result;
    result.reserve(length);
    for (std::uint64_t begin = place - at; result.size() < length; begin += m_pageSize, at = 0) {
        if (begin + m_pageSize > m_size)
            Fail(begin, "truncated: " + std::to_string(length - result.size()) + " bytes are missing");
        const std::string_view page = m_parts.At(begin, m_pageSize);
        if (Crc32c(page.substr(0, content)) != bigEndian(page.substr(content)))
            Fail(begin, "the checksum of the page does not fit");
        result += page.substr(at, std::min(content - at, length - result.size()));
    }
    return result;
}

void CE57Pages::Fail(std::uint64_t place, const std::string& why) const
{
    throw CInputError(m_file, "byte " + std::to_string(place) + ": " + why, sCopyAgain);
}

} // namespace Zorvan
