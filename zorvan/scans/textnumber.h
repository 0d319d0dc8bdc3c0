// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <optional>
#include <string>
#include <string_view>

namespace Zorvan {

/// The number that `text` is as a whole, in the classic locale whatever the host has set; a leading '+', "inf" and
/// "nan" are accepted. Infinite beyond the range of double, 0 below it. Nothing when `text` is not a number.
[[nodiscard]] ZORVAN_SCANS_API std::optional<double> ParseNumber(std::string_view text);

/// The whole number that `text` is, or nothing.
[[nodiscard]] ZORVAN_SCANS_API std::optional<long long> ParseInteger(std::string_view text);

/// Cuts the next word off the front of `line`; empty at the end. Space, tab, carriage return and `extra` separate
/// words.
[[nodiscard]] ZORVAN_SCANS_API std::string_view NextWord(std::string_view& line, std::string_view extra = {});

/// Cuts the next line off the front of `text`, without its line end ("\n" or "\r\n").
[[nodiscard]] ZORVAN_SCANS_API std::string_view NextLine(std::string_view& text);

/// A word of a file as messages show it: in quotes, cut to 40 bytes.
[[nodiscard]] ZORVAN_SCANS_API std::string Quoted(std::string_view word);

/// `value` with `digits` significant digits, "inf" or "nan".
[[nodiscard]] ZORVAN_SCANS_API std::string ToText(double value, int digits = 4);

/// The shortest text that reads back as the same number, with a point or an exponent: "5.0", "0.1", "1e-07".
[[nodiscard]] ZORVAN_SCANS_API std::string ToExactText(double value);

} // namespace Zorvan
