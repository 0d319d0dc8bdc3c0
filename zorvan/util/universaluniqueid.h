// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <regex>
#include <string>
#include <type_traits>

#if defined(_WIN32)
#include <guiddef.h>
#else
/// The system's identifier type, for hosts whose interfaces speak it.
struct _GUID // NOLINT(bugprone-reserved-identifier): the system's own name
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
#endif

/// The 128-bit identifier under which scans and clusters are kept; a plain value of 16 bytes.
///
///     const auto id = UniversalUniqueID::Create();
///     const std::string text = id;                       // "0f8fad5b-d9cb-469f-a165-70867728950e"
///     if (!UniversalUniqueID("no identifier")) ...       // a text that does not parse is the invalid identifier
///
/// The order is the reverse of the order of the texts: saved registrations rely on it.
class ZORVAN_API UniversalUniqueID
{
public:
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::uint16_t Data4 = 0;
    std::uint8_t Node[6] = {};

    UniversalUniqueID() = default; ///< all zero, the invalid identifier
    UniversalUniqueID(const _GUID& guid);
    /// From 8-4-4-4-12 hexadecimal digits of either case, with or without braces; anything else, also a null pointer,
    /// gives the invalid identifier. What follows a closing brace, or a further hexadecimal digit, is not looked at.
    UniversalUniqueID(const char* text);
    UniversalUniqueID(const wchar_t* text);
    UniversalUniqueID(const std::string& text);
    UniversalUniqueID(const std::wstring& text);

    /// A new random identifier (version 4, variant of RFC 4122), also for threads and processes that ask at one time.
    [[nodiscard]] static UniversalUniqueID Create();
    [[nodiscard]] static UniversalUniqueID InvalidID() { return {}; }
    /// @param bytes  16 bytes as they lie in memory and in documents; null gives the invalid identifier
    [[nodiscard]] static UniversalUniqueID Load(const void* bytes);

    UniversalUniqueID& Clear();

    /// False for the invalid identifier only.
    [[nodiscard]] explicit operator bool() const;
    [[nodiscard]] bool operator==(const UniversalUniqueID& other) const;
    /// Reverse order of the texts: true when the text of `this` stands behind that of `other`.
    [[nodiscard]] bool operator<(const UniversalUniqueID& other) const;

    /// The bytes by index. @throws std::out_of_range unless index is in 0..15
    [[nodiscard]] unsigned char& operator[](int index);
    [[nodiscard]] const unsigned char& operator[](int index) const;

    operator _GUID() const;
    operator std::string() const; ///< lower case, no braces
    operator std::wstring() const;

    /// Writes 36 characters and a NUL. @return out
    char* ToString(char* out, bool upperCase) const;
    wchar_t* ToString(wchar_t* out, bool upperCase) const;

    /// Whether the whole lower-case text fits the expression. The string is an expression too, taken without regard to
    /// case, so that a text form matches itself; one with a brace, which is no expression, is read as an identifier.
    /// @throws std::regex_error for a string that is no expression, or is longer than 1024 characters
    [[nodiscard]] bool Matches(const std::string& pattern) const;
    [[nodiscard]] bool Matches(const std::regex& pattern) const;

private:
    static bool check(const char* text);
    bool parse(const char* text);
    bool parse(const wchar_t* text);
};

static_assert(sizeof(UniversalUniqueID) == 16 && std::is_trivially_copyable_v<UniversalUniqueID>);

template <>
struct std::hash<UniversalUniqueID>
{
    [[nodiscard]] std::size_t operator()(const UniversalUniqueID& id) const noexcept
    {
        // The bytes of created identifiers are random, so folding them is enough.
        std::size_t result = id.Data1;
        result = result * 31 + (static_cast<std::size_t>(id.Data2) << 16 | id.Data3);
        for (const std::uint8_t byte : id.Node) result = result * 257 + byte;
        return result * 31 + id.Data4;
    }
};
