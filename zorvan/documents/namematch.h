// SPDX-License-Identifier: MIT
#pragma once

#include <regex>
#include <string_view>

/// Not installed.
namespace bson::detail {

/// std::regex_match of the whole name, for names that come from outside: the stack it takes does not grow with the
/// name, nor does the time explode for patterns such as "(a*)*b". The exception are patterns with back-references. They
/// throw std::regex_error(error_stack) rather than take more than a megabyte of stack.
[[nodiscard]] bool matches(std::string_view name, const std::regex& pattern,
                           std::regex_constants::match_flag_type flags);

} // namespace bson::detail
