// SPDX-License-Identifier: MIT
#include "zorvan/util/universaluniqueid.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <stdexcept>
#include <tuple>

static_assert(sizeof(_GUID) == sizeof(UniversalUniqueID));

namespace {

constexpr std::size_t uiTextLength = 36;
constexpr std::size_t uiMaxPatternLength = 1024; // expressions are compiled recursively: bound what may nest

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

unsigned int hexValue(char c)
{
    if (c <= '9') return static_cast<unsigned int>(c - '0');
    return static_cast<unsigned int>((c | 0x20) - 'a' + 10);
}

template <typename T>
T readHex(const char* digits)
{
    T value = 0;
    for (std::size_t i = 0; i < 2 * sizeof(T); ++i) value = static_cast<T>(value * 16U + hexValue(digits[i]));
    return value;
}

/// Unlike any other of this process, and of others that ask at the same tick.
std::mt19937_64 makeEngine()
{
    static std::atomic<std::uint64_t> counter{0};
    const auto tick = static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    const std::uint64_t seed = (tick + 2 * (counter += 2)) ^ 0x915629014603dd3cULL;

    std::random_device device;
    std::seed_seq sequence{static_cast<unsigned int>(seed), static_cast<unsigned int>(seed >> 32), device(), device()};
    return std::mt19937_64(sequence);
}

auto fieldsOf(const UniversalUniqueID& id)
{
    std::array<std::uint8_t, 6> node;
    std::copy(std::begin(id.Node), std::end(id.Node), node.begin());
    return std::make_tuple(id.Data1, id.Data2, id.Data3, id.Data4, node);
}

std::array<char, uiTextLength + 1> textOf(const UniversalUniqueID& id, bool upperCase)
{
    std::array<char, uiTextLength + 1> text;
    const char* const format =
        upperCase ? "%08X-%04X-%04X-%04X-%02X%02X%02X%02X%02X%02X" : "%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x";
    std::snprintf(text.data(), text.size(), format, id.Data1, id.Data2, id.Data3, id.Data4, id.Node[0], id.Node[1],
                  id.Node[2], id.Node[3], id.Node[4], id.Node[5]);
    return text;
}

void checkIndex(int index)
{
    if (index < 0 || index > 15) throw std::out_of_range("invalid byte index");
}

} // namespace

UniversalUniqueID::UniversalUniqueID(const _GUID& guid) : UniversalUniqueID(Load(&guid)) {}

UniversalUniqueID::UniversalUniqueID(const char* text) { parse(text); }

UniversalUniqueID::UniversalUniqueID(const wchar_t* text) { parse(text); }

UniversalUniqueID::UniversalUniqueID(const std::string& text) { parse(text.c_str()); }

UniversalUniqueID::UniversalUniqueID(const std::wstring& text) { parse(text.c_str()); }

UniversalUniqueID UniversalUniqueID::Create()
{
    std::mt19937_64 engine = makeEngine();
    UniversalUniqueID id;
    for (int i = 0; i < 16; ++i) id[i] = static_cast<unsigned char>(engine() >> 56);

    // Some read version and variant from the bytes in memory order, others from the text, where the little-endian
    // fields turn them round. Both bytes of the two fields carry the mark, so that all see a random identifier of RFC
    // 4122.
    for (const int i : {6, 7}) id[i] = static_cast<unsigned char>((id[i] & 0x0F) | 0x40);
    for (const int i : {8, 9}) id[i] = static_cast<unsigned char>((id[i] & 0x3F) | 0x80);
    return id;
}

UniversalUniqueID UniversalUniqueID::Load(const void* bytes)
{
    UniversalUniqueID id;
    if (bytes) std::memcpy(&id, bytes, sizeof(id));
    return id;
}

UniversalUniqueID& UniversalUniqueID::Clear() { return *this = {}; }

UniversalUniqueID::operator bool() const { return *this != UniversalUniqueID(); }

bool UniversalUniqueID::operator==(const UniversalUniqueID& other) const { return fieldsOf(*this) == fieldsOf(other); }

bool UniversalUniqueID::operator<(const UniversalUniqueID& other) const
{
    // Hexadecimal digits of fixed width sort as the numbers do: no text is needed to compare.
    return fieldsOf(*this) > fieldsOf(other);
}

unsigned char& UniversalUniqueID::operator[](int index)
{
    checkIndex(index);
    return reinterpret_cast<unsigned char*>(this)[index];
}

const unsigned char& UniversalUniqueID::operator[](int index) const
{
    checkIndex(index);
    return reinterpret_cast<const unsigned char*>(this)[index];
}

UniversalUniqueID::operator _GUID() const
{
    _GUID guid;
    std::memcpy(&guid, this, sizeof(guid));
    return guid;
}

UniversalUniqueID::operator std::string() const { return textOf(*this, false).data(); }

UniversalUniqueID::operator std::wstring() const
{
    const auto text = textOf(*this, false);
    return {text.begin(), text.begin() + uiTextLength};
}

char* UniversalUniqueID::ToString(char* out, bool upperCase) const
{
    std::ranges::copy(textOf(*this, upperCase), out);
    return out;
}

wchar_t* UniversalUniqueID::ToString(wchar_t* out, bool upperCase) const
{
    std::ranges::copy(textOf(*this, upperCase), out);
    return out;
}

bool UniversalUniqueID::Matches(const std::string& pattern) const
{
    const bool isInBraces = pattern.starts_with('{') || (pattern.size() > uiTextLength && pattern[uiTextLength] == '}');
    if (UniversalUniqueID id; isInBraces && id.parse(pattern.c_str())) return id == *this;
    if (pattern.size() > uiMaxPatternLength) throw std::regex_error(std::regex_constants::error_complexity);
    return Matches(std::regex(pattern, std::regex::ECMAScript | std::regex::icase));
}

bool UniversalUniqueID::Matches(const std::regex& pattern) const
{
    return std::regex_match(textOf(*this, false).data(), pattern);
}

/// Stops at the first character that does not belong, so a short text is never read past its end.
bool UniversalUniqueID::check(const char* text)
{
    for (std::size_t i = 0; i < uiTextLength; ++i) {
        const bool isSeparator = i == 8 || i == 13 || i == 18 || i == 23;
        if (isSeparator ? text[i] != '-' : !isHexDigit(text[i])) return false;
    }
    const char last = text[uiTextLength];
    return last == '\0' || last == '}' || isHexDigit(last);
}

bool UniversalUniqueID::parse(const char* text)
{
    if (!text) return false;
    if (*text == '{') ++text;
    if (!check(text)) return false;

    Data1 = readHex<std::uint32_t>(text);
    Data2 = readHex<std::uint16_t>(text + 9);
    Data3 = readHex<std::uint16_t>(text + 14);
    Data4 = readHex<std::uint16_t>(text + 19);
    for (std::size_t i = 0; i < 6; ++i) Node[i] = readHex<std::uint8_t>(text + 24 + 2 * i);
    return true;
}

bool UniversalUniqueID::parse(const wchar_t* text)
{
    if (!text) return false;
    // One brace, the digits and separators, and the character behind them decide.
    std::array<char, uiTextLength + 3> narrow{};
    for (std::size_t i = 0; i < uiTextLength + 2 && text[i] != L'\0'; ++i)
        narrow[i] = text[i] > 0 && text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
    return parse(narrow.data());
}
