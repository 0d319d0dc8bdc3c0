// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <string>
#include <string_view>

namespace Zorvan {

/// The only place that converts text. Wide text holds UTF-16 code units in `wchar_t`, also where `wchar_t` is wider, so
/// that documents and messages are the same on every system. Both throw std::range_error("bad conversion") for text
/// that is not valid UTF-8 or UTF-16.
[[nodiscard]] ZORVAN_API std::wstring Widen(std::string_view utf8);
[[nodiscard]] ZORVAN_API std::string Narrow(std::wstring_view utf16);

} // namespace Zorvan
