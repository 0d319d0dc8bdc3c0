// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <string>
#include <type_traits>

/// Numbers as text and numbers as other numbers, the same on every system and in every locale; not installed.
namespace bson::detail {

/// "%g" with 6 significant digits, as a stream writes by default.
[[nodiscard]] std::string toShortText(double value);
/// "%f", with 6 decimals.
[[nodiscard]] std::string toFixedText(double value);

/// The standard functions of these names, in base 10 and the classic locale: leading blanks and trailing text are
/// passed over. Throw std::invalid_argument("invalid stoi argument") and std::out_of_range("stoi argument out of
/// range"), with their own names. `long` has 32 bits, and the unsigned ones take a minus sign and wrap. Denormals are
/// in range.
[[nodiscard]] int stoi(const std::string& text);
[[nodiscard]] unsigned int stoul(const std::string& text);
[[nodiscard]] long long stoll(const std::string& text);
[[nodiscard]] unsigned long long stoull(const std::string& text);
[[nodiscard]] float stof(const std::string& text);
[[nodiscard]] double stod(const std::string& text);

/// A cast that is defined for every value: a floating-point number is cut towards zero and keeps its low bits, as an
/// integer does; NaN and infinity give 0.
template <typename To, typename From>
[[nodiscard]] To truncate(From value)
{
    if constexpr (std::is_floating_point_v<To> || !std::is_floating_point_v<From>) {
        return static_cast<To>(value);
    } else {
        constexpr double dTwoTo64 = 18446744073709551616.0;
        if (!std::isfinite(value)) return 0;
        const double rest = std::fmod(std::trunc(static_cast<double>(value)), dTwoTo64);
        const auto magnitude = static_cast<unsigned long long>(std::fabs(rest));
        return static_cast<To>(rest < 0 ? 0 - magnitude : magnitude);
    }
}

} // namespace bson::detail
