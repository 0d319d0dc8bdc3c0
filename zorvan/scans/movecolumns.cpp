// SPDX-License-Identifier: MIT
#include "zorvan/scans/movecolumns.h"

#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace Zorvan {

namespace {

constexpr int iMoreDecimals = 2; // a number that is turned has its rounding in all axes
constexpr int iDigits = 9;
constexpr int iMostDecimals = 17;

bool isFinite(const Position& p)
{
    return std::ranges::all_of(p, [](double c) { return std::isfinite(c); });
}

/// Before the point.
int wholeDigits(std::string_view number)
{
    const double value = std::abs(ParseNumber(number).value_or(0.0));
    return value < 1.0 ? 1 : static_cast<int>(std::floor(std::log10(value))) + 1;
}

/// @param before  the number that it takes the place of
std::string textOf(double value, std::string_view before)
{
    const bool isFixed = before.find_first_of("eE") == std::string_view::npos && std::abs(value) < 1e15;
    if (!isFixed) return ToExactText(value);
    const std::size_t point = before.find('.');
    const int had = point == std::string_view::npos
                        ? 0
                        : static_cast<int>(std::min<std::size_t>(before.size() - point - 1, iMostDecimals));
    const int decimals = std::clamp(std::max(had + iMoreDecimals, iDigits - wholeDigits(before)), 0, iMostDecimals);
    std::array<char, 64> buffer{};
    const auto [end, error] =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed, decimals);
    if (error != std::errc()) return ToExactText(value);
    std::string text(buffer.data(), end);
    if (text.find('.') == std::string::npos) return text;
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

} // namespace

CMovedLine::CMovedLine(std::string_view line, std::string_view separators) : m_line(line)
{
    std::string_view rest = line.substr(0, line.find('\n'));
    for (std::string_view word = NextWord(rest, separators); !word.empty(); word = NextWord(rest, separators))
        m_words.push_back(word);
    m_replaced.resize(m_words.size());
}

std::optional<Position> CMovedLine::Numbers(const Columns& columns) const
{
    Position numbers{};
    for (std::size_t k = 0; k < 3; ++k) {
        const std::optional<double> number = ParseNumber(Word(columns[k]));
        if (!number) return std::nullopt;
        numbers[k] = *number;
    }
    return numbers;
}

void CMovedLine::Replace(const Columns& columns, const Position& numbers)
{
    if (!isFinite(numbers)) return;
    for (std::size_t k = 0; k < 3; ++k) m_replaced[columns[k]] = textOf(numbers[k], m_words[columns[k]]);
}

std::string CMovedLine::Text() const
{
    std::string text;
    std::size_t at = 0;
    for (std::size_t i = 0; i < m_words.size(); ++i) {
        if (m_replaced[i].empty()) continue;
        const auto begin = static_cast<std::size_t>(m_words[i].data() - m_line.data());
        text += m_line.substr(at, begin - at);
        text += m_replaced[i];
        at = begin + m_words[i].size();
    }
    text += m_line.substr(at);
    return text;
}

bool MoveColumns(CMovedLine& line, const CMovedLine::Columns& point,
                 const std::optional<CMovedLine::Columns>& direction, const CMovement& movement,
                 const CMoveStream& stream)
{
    const std::optional<Position> place = line.Numbers(point);
    const std::optional<Position> normal = direction ? line.Numbers(*direction) : std::nullopt;
    if (!place || normal.has_value() != direction.has_value()) return false;
    if (IPointListener* const listener = stream.Listener()) {
        listener->TakePoint(*place, normal ? &*normal : nullptr);
        return true;
    }
    line.Replace(point, movement.Point(*place));
    if (normal) line.Replace(*direction, movement.Direction(*normal));
    return true;
}

} // namespace Zorvan
