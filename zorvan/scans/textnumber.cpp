// SPDX-License-Identifier: MIT
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace Zorvan {

namespace {

std::string_view withoutPlus(std::string_view text)
{
    return text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.substr(1) : text;
}

bool isSeparator(char c, std::string_view extra)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f' || extra.find(c) != std::string_view::npos;
}

// from_chars reports that a number does not fit, not on which side; a negative exponent says that it is too small.
double outOfRange(std::string_view text)
{
    if (text.find("e-") != std::string_view::npos || text.find("E-") != std::string_view::npos) return 0.0;
    constexpr double inf = std::numeric_limits<double>::infinity();
    return text.front() == '-' ? -inf : inf;
}

} // namespace

std::optional<double> ParseNumber(std::string_view text)
{
    text = withoutPlus(text);
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::invalid_argument || end != text.data() + text.size()) return std::nullopt;
    return error == std::errc::result_out_of_range ? outOfRange(text) : value;
}

std::optional<long long> ParseInteger(std::string_view text)
{
    text = withoutPlus(text);
    long long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string_view NextWord(std::string_view& line, std::string_view extra)
{
    const auto separates = [extra](char c) { return isSeparator(c, extra); };
    const auto begin = std::find_if_not(line.begin(), line.end(), separates);
    const auto end = std::find_if(begin, line.end(), separates);
    const std::string_view word(begin, end);
    line = std::string_view(end, line.end());
    return word;
}

std::string_view NextLine(std::string_view& text)
{
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

std::string Quoted(std::string_view word)
{
    std::string text(1, '"');
    text.append(word.substr(0, 40)).push_back('"');
    return text;
}

std::string ToText(double value, int digits)
{
    std::array<char, 64> buffer{};
    const auto [end, error] =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general, digits);
    return error == std::errc() ? std::string(buffer.data(), end) : std::string("?");
}

std::string ToExactText(double value)
{
    std::array<char, 64> buffer{};
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    std::string text(buffer.data(), end);
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

} // namespace Zorvan
