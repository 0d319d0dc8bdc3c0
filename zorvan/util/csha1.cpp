// SPDX-License-Identifier: MIT
#include "zorvan/util/csha1.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::size_t uiBlock = 64;

using State = std::array<std::uint32_t, 5>;

std::uint32_t readBigEndian(const std::uint8_t* bytes)
{
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

std::array<std::uint32_t, 80> expand(const std::uint8_t* block)
{
    std::array<std::uint32_t, 80> words;
    for (std::size_t t = 0; t < 16; ++t) words[t] = readBigEndian(block + 4 * t);
    for (std::size_t t = 16; t < 80; ++t)
        words[t] = std::rotl(words[t - 3] ^ words[t - 8] ^ words[t - 14] ^ words[t - 16], 1);
    return words;
}

/// The round function and constant of step t, added up.
std::uint32_t mix(std::size_t t, std::uint32_t b, std::uint32_t c, std::uint32_t d)
{
    if (t < 20) return ((b & c) | (~b & d)) + 0x5A827999U;
    if (t < 40) return (b ^ c ^ d) + 0x6ED9EBA1U;
    if (t < 60) return ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDCU;
    return (b ^ c ^ d) + 0xCA62C1D6U;
}

void processBlock(State& state, const std::uint8_t* block)
{
    const auto words = expand(block);
    auto [a, b, c, d, e] = state;
    for (std::size_t t = 0; t < 80; ++t) {
        const std::uint32_t next = std::rotl(a, 5) + mix(t, b, c, d) + e + words[t];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d, state[4] + e};
}

/// The last bytes, a set bit, zeros, and the length in bits: one block, or two when the length finds no room.
void processTail(State& state, const std::uint8_t* tail, std::size_t count, std::uint64_t size)
{
    std::array<std::uint8_t, 2 * uiBlock> padded{};
    std::copy_n(tail, count, padded.begin());
    padded[count] = 0x80;

    const std::size_t end = count < uiBlock - 8 ? uiBlock : 2 * uiBlock;
    for (std::size_t i = 0; i < 8; ++i) padded[end - 1 - i] = static_cast<std::uint8_t>(size * 8 >> 8 * i);
    for (std::size_t i = 0; i < end; i += uiBlock) processBlock(state, padded.data() + i);
}

template <typename Char>
Char* writeText(const std::array<std::uint8_t, 20>& digest, Char* out)
{
    constexpr char digits[] = "0123456789abcdef";
    for (const std::uint8_t byte : digest) {
        *out++ = digits[byte & 15];
        *out++ = digits[byte >> 4];
    }
    return out;
}

} // namespace

CSHA1 CSHA1::Compute(const void* data, std::uint64_t size)
{
    std::string_view all(static_cast<const char*>(data), data ? size : 0);
    return Compute([&all] { return std::exchange(all, {}); });
}

CSHA1 CSHA1::Compute(const std::function<std::string_view()>& next)
{
    State state{0x67452301U, 0xEFCDAB89U, 0x98BADCFEU, 0x10325476U, 0xC3D2E1F0U};
    std::uint64_t size = 0;
    std::string tail;
    for (std::string_view part = next(); !part.empty(); part = next()) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(part.data());
        const std::size_t whole = part.size() / uiBlock * uiBlock;
        for (std::size_t i = 0; i < whole; i += uiBlock) processBlock(state, bytes + i);
        tail = part.substr(whole);
        size += part.size();
    }
    processTail(state, reinterpret_cast<const std::uint8_t*>(tail.data()), tail.size(), size);

    CSHA1 result;
    for (std::size_t i = 0; i < result.m_digest.size(); ++i)
        result.m_digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
    return result;
}

std::string CSHA1::ToString() const
{
    std::string text(2 * m_digest.size(), '\0');
    writeText(m_digest, text.data());
    return text;
}

std::wstring CSHA1::ToWString() const
{
    std::wstring text(2 * m_digest.size(), L'\0');
    writeText(m_digest, text.data());
    return text;
}

void CSHA1::LoadStringW(char* out) const { *writeText(m_digest, out) = '\0'; }

void CSHA1::LoadStringW(wchar_t* out) const { *writeText(m_digest, out) = L'\0'; }

} // namespace Zorvan
