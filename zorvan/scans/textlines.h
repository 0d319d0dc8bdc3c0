// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

/// A text of lines with numbers; knows where it stands when something is wrong.
class ZORVAN_SCANS_API CTextLines
{
public:
    /// @param bytes, file  must outlive this
    CTextLines(std::string_view bytes, const std::filesystem::path& file) : m_rest(bytes), m_file(file) {}

    /// Whether only blanks are left.
    [[nodiscard]] bool IsAtEnd() const;
    /// Bytes that are left.
    [[nodiscard]] std::size_t BytesLeft() const { return m_rest.size(); }
    /// The numbers of the next line that has any, at most 16 of them; they stand until the next call.
    /// @throws CInputError when there is no line, fewer numbers than `fewest`, or a word that is none
    std::span<const double> Numbers(std::size_t fewest);
    /// A line with one whole number from 0 to 2147483647. @throws CInputError
    std::uint64_t Count();

    /// @throws CInputError that names the line read last
    [[noreturn]] void Fail(const std::string& why, const std::string& advice = "write or copy the file again") const;

private:
    std::string_view m_rest;
    const std::filesystem::path& m_file;
    std::size_t m_line = 0;
    std::vector<double> m_numbers;
};

} // namespace Zorvan
