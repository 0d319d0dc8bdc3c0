#include "zorvan/util/widetext.h"

#include <cerrno>
#include <cmath>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <locale.h>

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

} // namespace

bool IsAlpha(wchar_t c) { return iswalpha_l(asInt(c), locale()) != 0; }

bool IsAlnum(wchar_t c) { return iswalnum_l(asInt(c), locale()) != 0; }

bool IsSpace(wchar_t c) { return iswspace_l(asInt(c), locale()) != 0; }

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

wchar_t ToLower(wchar_t c) { return static_cast<wchar_t>(towlower_l(asInt(c), locale())); }

bool ReadDouble(const wchar_t* text, const wchar_t*& end, double& value)
{
    wchar_t* behind = nullptr;
    errno = 0;
    value = wcstod_l(text, &behind, locale());
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
