// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"
#include "zorvan/scans/movestream.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan {

/// The words of a line, some of which are numbers to be moved; what stands between them stays.
class ZORVAN_SCANS_API CMovedLine
{
public:
    using Columns = std::array<std::size_t, 3>;

    /// @param separators  between words, beside blanks
    explicit CMovedLine(std::string_view line, std::string_view separators = {});

    [[nodiscard]] std::size_t NumWords() const { return m_words.size(); }
    /// Empty where there is none.
    [[nodiscard]] std::string_view Word(std::size_t i) const
    {
        return i < m_words.size() ? m_words[i] : std::string_view();
    }
    /// The numbers in three columns; nothing when one is missing or no number. Infinite and NaN are numbers.
    [[nodiscard]] std::optional<Position> Numbers(const Columns& columns) const;
    /// Writes others there, with the decimals that the words have and two more, and as many as words of
    /// nine digits would have. Words stay
    /// where a number is not finite.
    void Replace(const Columns& columns, const Position& numbers);

    [[nodiscard]] std::string Text() const;

private:
    std::string_view m_line;
    std::vector<std::string_view> m_words;
    std::vector<std::string> m_replaced; ///< by word; empty: as it is
};

/// Replaces a point, and a direction where there are columns of one, or says them to who listens to the stream.
/// @return false when a word is missing or no number
[[nodiscard]] ZORVAN_SCANS_API bool MoveColumns(CMovedLine& line, const CMovedLine::Columns& point,
                                                const std::optional<CMovedLine::Columns>& direction,
                                                const CMovement& movement, const CMoveStream& stream);

} // namespace Zorvan
