// SPDX-License-Identifier: MIT
#include "zorvan/scans/showntext.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Zorvan {

namespace {

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

/// Bytes of the character at the front, 0 when it is none that may be shown: a control character, no UTF-8, or a longer
/// form than needed.
std::size_t shownBytes(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
    if (!std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(size), isContinuation)) return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    const bool isControl = first == 0xC2 && second < 0xA0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isBeyond = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return isControl || isOverlong || isBeyond ? 0 : size;
}

std::string escaped(char c)
{
    constexpr std::string_view digits = "0123456789abcdef";
    if (c == '\n') return "\\n";
    if (c == '\t') return "\\t";
    if (c == '\r') return "\\r";
    const auto byte = static_cast<unsigned char>(c);
    return {'\\', 'x', digits[byte >> 4U], digits[byte & 0xFU]};
}

} // namespace

std::string ToShown(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const std::size_t size = shownBytes(text);
        shown += size > 0 ? std::string(text.substr(0, size)) : escaped(text.front());
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return shown;
}

std::string ToMessage(std::string_view text)
{
    constexpr std::string_view gap = " ... ";
    constexpr std::size_t half = (uiLongestMessage - gap.size()) / 2;
    std::string shown = ToShown(text);
    const auto begins = [](char c) { return !isContinuation(c); };
    const auto characters = static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), begins));
    if (characters <= uiLongestMessage) return shown;
    std::string line;
    std::size_t number = 0;
    for (const char c : shown) {
        if (begins(c) && ++number == half + 1) line += gap;
        if (number <= half || number > characters - half) line += c;
    }
    return line;
}

} // namespace Zorvan
