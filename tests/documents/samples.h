// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"

#include <algorithm>
#include <ostream>
#include <string>

namespace bson {

inline bool operator==(const object& a, const object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

inline void PrintTo(const element& e, std::ostream* out) { *out << '<' << int{e.type()} << "> " << e.dump(); }

inline void PrintTo(const object& o, std::ostream* out) { *out << o.dump(); }

} // namespace bson

/// One element of every type, with names, texts and payloads of several lengths.
inline bson::object EveryType()
{
    return {{"double", -2.5},
            {"f", 0.25F},
            {"string", "\xC3\xA4 text"},
            {"", ""},
            {"binary", "0123456789abcdefgh", 18},
            bson::element::make_uuid_from_string("uuid", "{01234567-89ab-CDEF-0123-456789abcdef}"),
            {"boolean", true},
            {"date", std::chrono::milliseconds(-1)},
            bson::element("null"),
            {"i8", std::int8_t{-8}},
            {"u8", std::uint8_t{200}},
            {"i16", std::int16_t{-1600}},
            {"u16", std::uint16_t{50000}},
            {"i32", -320000},
            {"u32", 3200000000U},
            {"i64", -640000000000},
            {"u64", 1ULL << 63}};
}

inline std::string Bytes(const bson::object& o)
{
    const auto [data, size] = o.freeze();
    return {reinterpret_cast<const char*>(data.get()), size};
}

/// Reads from memory of exactly this size, so that the address sanitizer sees the first byte read beyond it.
inline bson::object Unfreeze(const std::string& bytes)
{
    const auto copy = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return bson::object::unfreeze(copy.get(), bytes.size());
}
