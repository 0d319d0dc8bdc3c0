// SPDX-License-Identifier: MIT
#include "zorvan/documents/bsonnumbers.h"

#include <charconv>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace bson::detail {

namespace {

constexpr int iDigits = 6;

std::string toText(double value, std::chars_format format)
{
    // The longest is the largest double with 6 decimals: sign, 309 digits, point, 6 digits.
    char text[320];
    const auto result = std::to_chars(text, text + sizeof(text), value, format, iDigits);
    return {text, result.ptr};
}

[[noreturn]] void throwInvalid(const char* function)
{
    throw std::invalid_argument("invalid " + std::string(function) + " argument");
}

[[noreturn]] void throwOutOfRange(const char* function)
{
    throw std::out_of_range(std::string(function) + " argument out of range");
}

/// The text behind leading blanks and the sign.
struct SSigned
{
    std::string_view digits;
    bool bNegative;
};

SSigned splitSign(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    return {text, negative};
}

/// The magnitude of a whole number. Throws if there is none or it exceeds 64 bits.
unsigned long long magnitude(std::string_view digits, const char* function)
{
    unsigned long long value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec == std::errc::invalid_argument) throwInvalid(function);
    if (result.ec == std::errc::result_out_of_range) throwOutOfRange(function);
    return value;
}

template <typename T>
T toSigned(const std::string& text, const char* function)
{
    const SSigned parts = splitSign(text);
    const unsigned long long value = magnitude(parts.digits, function);
    const unsigned long long largest = std::numeric_limits<T>::max();
    if (value > largest + (parts.bNegative ? 1 : 0)) throwOutOfRange(function);
    return static_cast<T>(parts.bNegative ? 0 - value : value);
}

template <typename T>
T toUnsigned(const std::string& text, const char* function)
{
    const SSigned parts = splitSign(text);
    const unsigned long long value = magnitude(parts.digits, function);
    if (value > std::numeric_limits<T>::max()) throwOutOfRange(function);
    return static_cast<T>(parts.bNegative ? 0 - value : value);
}

/// Whether a hexadecimal number stands here, and not just a zero before an x.
bool isHex(std::string_view digits)
{
    if (!digits.starts_with("0x") && !digits.starts_with("0X")) return false;
    const auto isDigit = [&](std::size_t i) {
        return i < digits.size() &&
               std::string_view("0123456789abcdefABCDEF").find(digits[i]) != std::string_view::npos;
    };
    return isDigit(2) || (digits.substr(2).starts_with('.') && isDigit(3));
}

template <typename T>
T toFloating(const std::string& text, const char* function)
{
    SSigned parts = splitSign(text);
    // from_chars takes a minus sign of its own, and no prefix before hexadecimal digits.
    if (parts.digits.starts_with('-')) throwInvalid(function);
    const bool hex = isHex(parts.digits);
    if (hex) parts.digits.remove_prefix(2);

    T value = 0;
    const char* const begin = parts.digits.data();
    const auto result = std::from_chars(begin, begin + parts.digits.size(), value,
                                        hex ? std::chars_format::hex : std::chars_format::general);
    if (result.ec == std::errc::invalid_argument) throwInvalid(function);
    if (result.ec == std::errc::result_out_of_range) throwOutOfRange(function);
    return parts.bNegative ? -value : value;
}

} // namespace

std::string toShortText(double value) { return toText(value, std::chars_format::general); }

std::string toFixedText(double value) { return toText(value, std::chars_format::fixed); }

int stoi(const std::string& text) { return toSigned<int>(text, "stoi"); }

unsigned int stoul(const std::string& text) { return toUnsigned<unsigned int>(text, "stoul"); }

long long stoll(const std::string& text) { return toSigned<long long>(text, "stoll"); }

unsigned long long stoull(const std::string& text) { return toUnsigned<unsigned long long>(text, "stoull"); }

float stof(const std::string& text) { return toFloating<float>(text, "stof"); }

double stod(const std::string& text) { return toFloating<double>(text, "stod"); }

} // namespace bson::detail
