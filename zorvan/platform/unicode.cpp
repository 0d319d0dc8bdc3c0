// SPDX-License-Identifier: MIT
#include "zorvan/platform/unicode.h"

#include <utf8.h>

#include <iterator>
#include <stdexcept>

namespace Zorvan {

namespace {

[[noreturn]] void throwBadConversion() { throw std::range_error("bad conversion"); }

} // namespace

std::wstring Widen(std::string_view utf8)
{
    std::wstring result;
    result.reserve(utf8.size());
    try {
        utf8::utf8to16(utf8.begin(), utf8.end(), std::back_inserter(result));
    } catch (const utf8::exception&) {
        throwBadConversion();
    }
    return result;
}

std::string Narrow(std::wstring_view utf16)
{
    std::u16string units;
    units.reserve(utf16.size());
    for (const wchar_t unit : utf16) {
        // A unit above 16 bits would be cut silently by the conversion below.
        if (static_cast<unsigned long>(unit) > 0xFFFFUL) throwBadConversion();
        units.push_back(static_cast<char16_t>(unit));
    }

    std::string result;
    result.reserve(units.size());
    try {
        utf8::utf16to8(units.begin(), units.end(), std::back_inserter(result));
    } catch (const utf8::exception&) {
        throwBadConversion();
    }
    return result;
}

} // namespace Zorvan
