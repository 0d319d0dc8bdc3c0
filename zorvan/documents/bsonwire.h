// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/platform/bytebuffer.h"

#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

/// What the sources of this folder share about the bytes of an element; not installed.
namespace bson::detail {

/// Its text is the same on every system.
class CBadCast : public std::bad_cast
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "bad cast"; }
};

/// Four bytes of length open a frozen document, one zero byte closes it.
inline constexpr std::uint64_t uiLengthBytes = sizeof(std::uint32_t);
inline constexpr std::uint64_t uiFrameBytes = uiLengthBytes + 1;
inline constexpr std::uint64_t uiBinaryHeaderBytes = sizeof(std::uint32_t) + 1;

/// What fills the two spare bytes of a regular expression that was read. No type code has this value.
inline constexpr unsigned char uiRegexPadding = 0xFF;
inline constexpr std::uint64_t uiRegexPaddingBytes = 2;

/// Smaller elements get bytes of their own: copying a page costs no more than sharing it, and a setting that is kept
/// should not keep a whole session in memory.
inline constexpr std::uint64_t uiSmallestShared = 4096;

/// Bytes of a value whose type alone fixes them; none for the other types and for unknown ones.
[[nodiscard]] inline std::optional<std::uint64_t> fixedValueSize(element::Type type) noexcept
{
    switch (type) {
    case element::eDouble:
    case element::eDateTime:
    case element::eUInt64:
    case element::eInt64:
        return 8;
    case element::eInt32:
    case element::eFloat:
    case element::eUInt32:
        return 4;
    case element::eInt16:
    case element::eUInt16:
        return 2;
    case element::eBoolean:
    case element::eUInt8:
    case element::eInt8:
        return 1;
    case element::eNull:
        return 0;
    default:
        return std::nullopt;
    }
}

/// A size as the format stores it; throws std::length_error if it does not fit.
[[nodiscard]] inline std::uint32_t length32(std::uint64_t size)
{
    if (size > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("document too large");
    return static_cast<std::uint32_t>(size);
}

template <typename T>
[[nodiscard]] T load(const unsigned char* from) noexcept
{
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
}

template <typename T>
unsigned char* store(unsigned char* to, T value) noexcept
{
    std::memcpy(to, &value, sizeof(T));
    return to + sizeof(T);
}

/// Copies bytes that may be none at all, and returns the place behind them.
inline unsigned char* storeBytes(unsigned char* to, const void* from, std::uint64_t size) noexcept
{
    if (size != 0) std::memcpy(to, from, size);
    return to + size;
}

/// Makes elements of values and buffers that the public interface does not take.
struct CElementBuilder
{
    /// An element with type and name, and room for the value at its end.
    static element allocate(element::Type type, const std::string& name, std::uint64_t valueSize)
    {
        return {type, name, valueSize};
    }

    /// For who has just allocated it: no other element sees these bytes yet.
    static unsigned char* value(element& e) noexcept { return const_cast<unsigned char*>(e.raw_value()); }

    template <typename T>
    static element number(element::Type type, const std::string& name, T number)
    {
        element result(type, name, sizeof(T));
        store(value(result), number);
        return result;
    }

    /// Makes the element one of bytes that begin with its type and end with its value, which are copied or shared.
    static void copy(element& e, const unsigned char* bytes, std::uint64_t size, std::uint64_t valueSize)
    {
        auto owned = Zorvan::MakeByteBuffer(size);
        storeBytes(owned.get(), bytes, size);
        share(e, std::move(owned), size, valueSize);
    }
    static void share(element& e, std::shared_ptr<const unsigned char[]> bytes, std::uint64_t size,
                      std::uint64_t valueSize) noexcept
    {
        e.m_buffer = std::move(bytes);
        e.m_size = size;
        e.m_valueSize = valueSize;
    }

    static std::vector<element>& elements(object& o) noexcept { return o.m_elements; }

    static bool isAsRead(const element& e) noexcept { return e.m_isAsRead; }
    static void setAsRead(element& e, bool isAsRead) noexcept { e.m_isAsRead = isAsRead; }
};

/// Writes the frozen form, o.size() bytes, and returns the place behind it.
unsigned char* storeObject(unsigned char* to, const object& o);

/// The document at the start of these bytes, which are the value of an element that is as a reader would write it: only
/// its outermost level is looked at. Large elements lie in the bytes, or are copies when the pointer does not own them.
[[nodiscard]] object childrenOf(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size);

/// Throws std::length_error if one more document around these elements would be too many.
void demandRoomAround(const object& o);

/// One of the documents that a walk through all levels stands in; a walk keeps them in a container, since the nesting
/// may come from outside and be too deep to recurse over.
struct CLevel
{
    explicit CLevel(const object& outermost) noexcept : begin(outermost.begin()), next(begin), end(outermost.end()) {}
    explicit CLevel(object&& inner) noexcept
        : document(std::move(inner)), begin(document.begin()), next(begin), end(document.end())
    {
    }

    CLevel(CLevel&&) noexcept = default; // the elements stay where they are
    CLevel& operator=(CLevel&&) noexcept = default;
    ~CLevel() = default;

    object document; ///< empty for the outermost, which is the caller's
    const element* begin = nullptr;
    const element* next = nullptr;
    const element* end = nullptr;
};

/// Whether an identifier's 16 bytes are there; a binary from outside may carry the type and be shorter.
[[nodiscard]] bool holdsUUID(const element& e) noexcept;

} // namespace bson::detail
