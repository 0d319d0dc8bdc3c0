// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace bson {

using detail::CElementBuilder;

namespace {

constexpr std::uint64_t uiUUIDBytes = 16;
constexpr std::size_t uiUUIDTextLength = 36;

std::chrono::milliseconds now()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
}

std::string_view untilNul(const std::string& text) { return std::string_view(text).substr(0, text.find('\0')); }

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool isUUIDText(std::string_view text)
{
    if (text.size() < uiUUIDTextLength) return false;
    for (std::size_t i = 0; i < uiUUIDTextLength; ++i) {
        const bool separator = i == 8 || i == 13 || i == 18 || i == 23;
        if (separator ? text[i] != '-' : !isHexDigit(text[i])) return false;
    }
    const char last = text.size() > uiUUIDTextLength ? text[uiUUIDTextLength] : '\0';
    return last == '\0' || last == '}' || isHexDigit(last);
}

/// Reads as many digits as the field has, at a position that isUUIDText has checked.
template <typename T>
T hexField(std::string_view text, std::size_t position)
{
    T value = 0;
    const char* const digits = text.data() + position;
    std::from_chars(digits, digits + 2 * sizeof(T), value, 16);
    return value;
}

} // namespace

element element::make_binary(const std::string& name, const void* data, std::uint64_t size, BinaryType type)
{
    if (data == nullptr && size != 0) throw std::invalid_argument("binary value without data");
    const std::uint32_t length = detail::length32(size);
    element result = CElementBuilder::allocate(eBinary, name, detail::uiBinaryHeaderBytes + size);
    unsigned char* to = detail::store(CElementBuilder::value(result), length);
    *to++ = type;
    detail::storeBytes(to, data, size);
    return result;
}

element element::make_boolean(const std::string& name, bool value)
{
    return CElementBuilder::number<unsigned char>(eBoolean, name, value ? 1 : 0);
}

element element::make_datetime(const std::string& name, std::chrono::milliseconds value)
{
    const bool wantsNow = value == std::chrono::milliseconds::min();
    return CElementBuilder::number<std::int64_t>(eDateTime, name, (wantsNow ? now() : value).count());
}

element element::make_double(const std::string& name, double value)
{
    return CElementBuilder::number(eDouble, name, value);
}

element element::make_float(const std::string& name, float value)
{
    return CElementBuilder::number(eFloat, name, value);
}

element element::make_int8(const std::string& name, std::int8_t value)
{
    return CElementBuilder::number(eInt8, name, value);
}

element element::make_int16(const std::string& name, std::int16_t value)
{
    return CElementBuilder::number(eInt16, name, value);
}

element element::make_int32(const std::string& name, std::int32_t value)
{
    return CElementBuilder::number(eInt32, name, value);
}

element element::make_int64(const std::string& name, std::int64_t value)
{
    return CElementBuilder::number(eInt64, name, value);
}

element element::make_uint8(const std::string& name, std::uint8_t value)
{
    return CElementBuilder::number(eUInt8, name, value);
}

element element::make_uint16(const std::string& name, std::uint16_t value)
{
    return CElementBuilder::number(eUInt16, name, value);
}

element element::make_uint32(const std::string& name, std::uint32_t value)
{
    return CElementBuilder::number(eUInt32, name, value);
}

element element::make_uint64(const std::string& name, std::uint64_t value)
{
    return CElementBuilder::number(eUInt64, name, value);
}

element element::make_null(const std::string& name) { return CElementBuilder::allocate(eNull, name, 0); }

element element::make_object(const std::string& name, const object& value)
{
    detail::demandRoomAround(value);
    element result = CElementBuilder::allocate(eObject, name, value.size());
    detail::storeObject(CElementBuilder::value(result), value);
    CElementBuilder::setAsRead(result, std::all_of(value.begin(), value.end(), CElementBuilder::isAsRead));
    return result;
}

element element::make_object(const std::string& name, std::uint64_t count,
                             const std::function<element(std::uint64_t)>& make)
{
    std::uint64_t size = detail::uiFrameBytes;
    for (std::uint64_t i = 0; i < count; ++i) {
        const element e = make(i);
        detail::demandRoomAround({e});
        size += e.size();
    }
    element result = CElementBuilder::allocate(eObject, name, size);
    unsigned char* to = CElementBuilder::value(result);
    const unsigned char* const end = to + size;
    to = detail::store(to, detail::length32(size - detail::uiFrameBytes));
    bool isAsRead = true;
    for (std::uint64_t i = 0; i < count; ++i) {
        const element e = make(i);
        if (e.size() >= static_cast<std::uint64_t>(end - to)) throw std::logic_error("an element that grew");
        to = detail::storeBytes(to, e.raw(), e.size());
        isAsRead = isAsRead && CElementBuilder::isAsRead(e);
    }
    if (to + 1 != end) throw std::logic_error("an element that shrank");
    *to = 0;
    CElementBuilder::setAsRead(result, isAsRead);
    return result;
}

element element::make_regex(const std::string& name, const std::string& pattern, const std::string& options)
{
    // Further NUL characters would be read back as the start of other elements.
    const std::string_view parts[] = {untilNul(pattern), untilNul(options)};
    element result = CElementBuilder::allocate(eRegex, name, parts[0].size() + parts[1].size() + 2);
    unsigned char* to = CElementBuilder::value(result);
    for (const std::string_view part : parts) {
        to = detail::storeBytes(to, part.data(), part.size());
        *to++ = 0;
    }
    CElementBuilder::setAsRead(result, false);
    return result;
}

element element::make_string(const std::string& name, const std::string& value)
{
    const std::uint64_t size = value.size() + 1;
    const std::uint32_t length = detail::length32(size);
    element result = CElementBuilder::allocate(eString, name, sizeof(length) + size);
    detail::storeBytes(detail::store(CElementBuilder::value(result), length), value.c_str(), size);
    return result;
}

element element::make_string(const std::string& name, const std::wstring& value)
{
    return make_string(name, convert(value));
}

element element::make_uuid(const std::string& name, const void* bytes)
{
    return make_binary(name, bytes, uiUUIDBytes, eUUID);
}

element element::make_uuid_from_string(const std::string& name, const std::string& text)
{
    if (text.size() < uiUUIDTextLength) return {};
    std::string_view digits = text;
    if (digits.front() == '{') digits.remove_prefix(1);
    if (!isUUIDText(digits)) return {};

    std::array<unsigned char, uiUUIDBytes> bytes{};
    unsigned char* to = detail::store(bytes.data(), hexField<std::uint32_t>(digits, 0));
    for (const std::size_t position : {9U, 14U, 19U}) to = detail::store(to, hexField<std::uint16_t>(digits, position));
    for (std::size_t position = 24; position < uiUUIDTextLength; position += 2)
        to = detail::store(to, hexField<std::uint8_t>(digits, position));
    return make_uuid(name, bytes.data());
}

} // namespace bson
