// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/export.h"

#include <string>
#include <string_view>

namespace Zorvan {

/// A name of a file or a text of a document as tables and messages show it: control characters, and bytes that are no
/// UTF-8, become "\n", "\t", "\x1b", so that they neither break the line nor steer the terminal.
[[nodiscard]] ZORVAN_SCANS_API std::string ToShown(std::string_view text);

/// The longest line that is shown to the user, in characters.
inline constexpr std::size_t uiLongestMessage = 300;

/// One line: as `ToShown`, and what is too long loses its middle, since the file stands at its front and what to do at
/// its end.
[[nodiscard]] ZORVAN_SCANS_API std::string ToMessage(std::string_view text);

} // namespace Zorvan
