// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/exchange/cobjparser.h"
#include "zorvan/scans/export.h"

#include <cstddef>
#include <filesystem>
#include <istream>
#include <streambuf>
#include <string>
#include <string_view>

namespace Zorvan {

/// The text of an OBJ file, line by line, so that it is known where a parser stopped.
class ZORVAN_SCANS_API CObjText : private std::wstreambuf, public std::wistream
{
public:
    enum class EMaterials
    {
        Read,
        PassOver ///< the lines that name libraries and materials become comments
    };

    /// @param bytes  must outlive this
    CObjText(std::string_view bytes, EMaterials eMaterials);

    /// Reads everything. @throws CInputError with line and reason, also when a line that begins with no word ended the
    /// reading: half a file must not pass for a whole one
    void Parse(Zorvan::COBJParser& parser, const std::filesystem::path& file) const;

private:
    std::wstreambuf::int_type underflow() override;

    std::string_view m_rest;
    std::wstring m_line;
    std::size_t m_lineNumber = 1; ///< of the line given out last
    std::size_t m_numBreaks = 0;
    EMaterials m_eMaterials;
    bool m_isLastGiven = false;
    bool m_isAtEnd = false;
};

} // namespace Zorvan
