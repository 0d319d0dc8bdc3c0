// SPDX-License-Identifier: MIT
#pragma once

/// Wide character classes and numbers that do not depend on the locale of the host.
namespace Zorvan::WideText {

/// A character as the classes of Unicode see it.
[[nodiscard]] bool IsAlpha(wchar_t c);
[[nodiscard]] bool IsAlnum(wchar_t c);
[[nodiscard]] bool IsSpace(wchar_t c);
[[nodiscard]] inline bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; } ///< 0 to 9 only
[[nodiscard]] wchar_t ToLower(wchar_t c);

/// Reads a number in the form of `wcstod` in the classic locale.
/// @param text   NUL-terminated
/// @param end    behind the number; `text` when there is none
/// @param value  the number, 0 when there is none
/// @return       false when the number is too large for a double, or too small to differ from 0
bool ReadDouble(const wchar_t* text, const wchar_t*& end, double& value);

/// Reads a decimal number in the form of `wcstol`. @return the number held at the limits of an int, 0 when there is
/// none
[[nodiscard]] int ReadInteger(const wchar_t* text);

} // namespace Zorvan::WideText
