// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/fileparts.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace Zorvan {

/// CRC-32C (Castagnoli): polynomial 0x1EDC6F41, reflected.
[[nodiscard]] ZORVAN_SCANS_API std::uint32_t Crc32c(std::string_view bytes);

/// Byte of the file at which a byte of content stands, in pages of 1024 bytes.
[[nodiscard]] ZORVAN_SCANS_API std::uint64_t E57PlaceOf(std::uint64_t content);

/// Cuts content into pages of 1024 bytes with their checksums, and fills in the header.
/// @param content  begins with 48 bytes for the header
/// @param xml      where in it the XML begins, which goes to its end
[[nodiscard]] ZORVAN_SCANS_API std::string E57Pages(std::string content, std::size_t xml);

/// The pages of an E57 file: all but the last four bytes of each are content, and those are its CRC-32C, most
/// significant byte first. "Place" is a byte of the file; content is counted without the checksums. Source of the
/// format: ASTM E2807-11.
class ZORVAN_SCANS_API CE57Pages
{
public:
    /// @param file  must outlive this
    /// @throws CInputError when this is no E57 file, or not all of it
    CE57Pages(CFileParts parts, const std::filesystem::path& file);

    /// The XML text.
    [[nodiscard]] std::string Xml();
    /// So many bytes of content from a place on, with their pages checked.
    /// @throws CInputError when they are not all in the file, a checksum does not fit, or more has been read in all
    ///         than the file holds: its parts do not overlap, and a file that says so could keep us busy for good
    [[nodiscard]] std::string Read(std::uint64_t place, std::uint64_t length);
    /// The same refusals before anything is read, but for checksums.
    void Demand(std::uint64_t place, std::uint64_t length) const;
    /// Bytes of content before a place, and the other way round.
    [[nodiscard]] std::uint64_t ContentBefore(std::uint64_t place) const;
    [[nodiscard]] std::uint64_t PlaceOf(std::uint64_t content) const;
    /// Bytes of the file.
    [[nodiscard]] std::uint64_t Size() const { return m_size; }

    /// @throws CInputError that names the byte
    [[noreturn]] void Fail(std::uint64_t place, const std::string& why) const;

private:
    CFileParts m_parts;
    const std::filesystem::path& m_file;
    std::uint64_t m_size = 0; ///< as the header has it
    std::uint64_t m_pageSize = 0;
    std::uint64_t m_xmlPlace = 0;
    std::uint64_t m_xmlLength = 0;
    std::uint64_t m_read = 0; ///< bytes in all
};

} // namespace Zorvan
