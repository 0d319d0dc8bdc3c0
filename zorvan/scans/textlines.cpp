// SPDX-License-Identifier: MIT
#include "zorvan/scans/textlines.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/textnumber.h"

#include <cmath>
#include <optional>

namespace Zorvan {

namespace {

constexpr std::size_t uiMostNumbers = 16;
constexpr double dMostCount = 2147483647.0; // indices are 31 bits wide in the search tree

} // namespace

bool CTextLines::IsAtEnd() const { return m_rest.find_first_not_of(" \t\r\n\v\f") == std::string_view::npos; }

std::span<const double> CTextLines::Numbers(std::size_t fewest)
{
    m_numbers.clear();
    while (m_numbers.empty()) {
        if (m_rest.empty()) Fail("truncated: a line is missing behind it");
        ++m_line;
        std::string_view line = NextLine(m_rest);
        for (auto word = NextWord(line); !word.empty() && m_numbers.size() < uiMostNumbers; word = NextWord(line)) {
            const std::optional<double> value = ParseNumber(word);
            if (!value) Fail(Quoted(word) + " is not a number");
            m_numbers.push_back(*value);
        }
    }
    if (m_numbers.size() < fewest)
        Fail(std::to_string(m_numbers.size()) + (m_numbers.size() == 1 ? " number" : " numbers") + " where " +
             std::to_string(fewest) + " are wanted");
    return m_numbers;
}

std::uint64_t CTextLines::Count()
{
    const std::span<const double> numbers = Numbers(1);
    const double value = numbers.front();
    if (numbers.size() != 1 || !(value >= 0.0) || !(value <= dMostCount) || value != std::trunc(value))
        Fail("a count from 0 to 2147483647 is wanted, alone in its line");
    return static_cast<std::uint64_t>(value);
}

void CTextLines::Fail(const std::string& why, const std::string& advice) const
{
    throw CInputError(m_file, "line " + std::to_string(m_line) + ": " + why, advice);
}

} // namespace Zorvan
