// SPDX-License-Identifier: MIT
#include "zorvan/util/widetext.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <locale.h>
#include <system_error>

namespace Zorvan::WideText {

namespace {

/// Classic numbers with the letters of Unicode, where the system has them.
locale_t openLocale()
{
    const locale_t unicode = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    return unicode ? unicode : newlocale(LC_ALL_MASK, "C", nullptr);
}

locale_t locale()
{
    static const locale_t instance = openLocale();
    return instance;
}

wint_t asInt(wchar_t c) { return static_cast<wint_t>(c); }

// Nearly all characters are ASCII, and the system takes long over each.
bool isAscii(wchar_t c) { return asInt(c) < 0x80; }
bool isAsciiLetter(wchar_t c) { return (c | 0x20) >= L'a' && (c | 0x20) <= L'z'; }

/// Numbers of the plain kind, such as -1.5e3. @return false when the text is none, too long or out of range
bool readPlainDouble(const wchar_t* text, const wchar_t*& end, double& value)
{
    char digits[48];
    std::size_t length = 0;
    const wchar_t* const start = *text == L'+' ? text + 1 : text;
    const auto isPart = [](wchar_t c) {
        return IsDigit(c) || c == L'.' || c == L'e' || c == L'E' || c == L'+' || c == L'-';
    };
    for (; length < sizeof digits && isPart(start[length]); ++length) digits[length] = static_cast<char>(start[length]);
    if (length == 0 || length == sizeof digits || start[length] == L'x' || start[length] == L'X') return false;
    if (start != text && digits[0] == '-') return false;

    const auto [behind, error] = std::from_chars(digits, digits + length, value);
    end = start + (behind - digits);
    return error == std::errc();
}

} // namespace

bool IsAlpha(wchar_t c) { return isAscii(c) ? isAsciiLetter(c) : iswalpha_l(asInt(c), locale()) != 0; }

bool IsAlnum(wchar_t c) { return isAscii(c) ? isAsciiLetter(c) || IsDigit(c) : iswalnum_l(asInt(c), locale()) != 0; }

bool IsSpace(wchar_t c)
{
    return isAscii(c) ? c == L' ' || (c >= L'\t' && c <= L'\r') : iswspace_l(asInt(c), locale()) != 0;
}

wchar_t ToLower(wchar_t c)
{
    if (isAscii(c)) return c >= L'A' && c <= L'Z' ? c | 0x20 : c;
    return static_cast<wchar_t>(towlower_l(asInt(c), locale()));
}

bool ReadDouble(const wchar_t* text, const wchar_t*& end, double& value)
{
    if (readPlainDouble(text, end, value)) return true;
    wchar_t* behind = nullptr;
    const locale_t classic = locale(); // making it may set errno
    errno = 0;
    value = wcstod_l(text, &behind, classic);
    end = behind;
    // Some systems report subnormal numbers as out of range. They are not: meshes hold them as noise around zero.
    return errno == 0 || std::fpclassify(value) == FP_SUBNORMAL;
}

int ReadInteger(const wchar_t* text)
{
    while (IsSpace(*text)) ++text;
    const bool isNegative = *text == L'-';
    if (isNegative || *text == L'+') ++text;

    constexpr long long limit = std::numeric_limits<int>::max();
    long long value = 0;
    for (; IsDigit(*text) && value <= limit; ++text) value = value * 10 + (*text - L'0');
    if (value > limit) return isNegative ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    return static_cast<int>(isNegative ? -value : value);
}

} // namespace Zorvan::WideText
