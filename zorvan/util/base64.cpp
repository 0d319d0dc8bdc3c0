// SPDX-License-Identifier: MIT
#include "zorvan/util/base64.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string_view>

namespace Zorvan::Base64 {

namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char ucOutside = 64;

constexpr auto values = [] {
    std::array<unsigned char, 256> table{};
    table.fill(ucOutside);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        table[static_cast<unsigned char>(alphabet[i])] = static_cast<unsigned char>(i);
    return table;
}();

/// Four characters for up to three bytes; what is missing is padding.
char* encodeGroup(char* out, const unsigned char* bytes, std::uint64_t count)
{
    const unsigned int bits =
        static_cast<unsigned int>(bytes[0]) << 16 | (count > 1 ? bytes[1] << 8 : 0) | (count > 2 ? bytes[2] : 0);
    out[0] = alphabet[bits >> 18];
    out[1] = alphabet[bits >> 12 & 63];
    out[2] = count > 1 ? alphabet[bits >> 6 & 63] : '=';
    out[3] = count > 2 ? alphabet[bits & 63] : '=';
    return out + 4;
}

/// One to three bytes for up to four characters; what is missing counts as outside the alphabet.
unsigned char* decodeGroup(unsigned char* out, std::string_view text)
{
    std::array<unsigned char, 4> v;
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = i < text.size() ? values[static_cast<unsigned char>(text[i])] : ucOutside;

    *out++ = static_cast<unsigned char>(v[0] << 2 | v[1] >> 4);
    if (v[2] == ucOutside) return out;
    *out++ = static_cast<unsigned char>(v[1] << 4 | v[2] >> 2);
    if (v[3] == ucOutside) return out;
    *out++ = static_cast<unsigned char>(v[2] << 6 | v[3]);
    return out;
}

std::string_view viewOf(const char* text) { return text ? std::string_view(text) : std::string_view(); }

} // namespace

std::unique_ptr<char[]> Encode(const void* data, std::uint64_t size)
{
    return std::unique_ptr<char[]>(Encode(nullptr, data, size));
}

char* Encode(char* out, const void* data, std::uint64_t size)
{
    if (!data) size = 0;
    if (!out) out = new char[LenEncoded(size)];

    const auto* bytes = static_cast<const unsigned char*>(data);
    char* end = out;
    for (std::uint64_t i = 0; i < size; i += 3) end = encodeGroup(end, bytes + i, size - i);
    *end = '\0';
    return out;
}

std::unique_ptr<unsigned char[]> Decode(const char* text)
{
    auto out = std::make_unique<unsigned char[]>(LenDecoded(viewOf(text).size()));
    Decode(out.get(), text);
    return out;
}

std::uint64_t Decode(unsigned char* out, const char* text)
{
    const std::string_view all = viewOf(text);
    unsigned char* end = out;
    for (std::size_t i = 0; i < all.size(); i += 4) end = decodeGroup(end, all.substr(i, 4));
    return static_cast<std::uint64_t>(end - out);
}

std::unique_ptr<char[]> Wrap(const char* text, std::uint64_t width)
{
    if (width == 0) return nullptr;
    const std::string_view all = viewOf(text);
    if (all.empty()) throw std::bad_alloc();

    std::unique_ptr<char[]> result(new char[(all.size() - 1) / width + 1 + all.size()]);
    char* out = result.get();
    for (std::uint64_t i = 0; i < all.size();) {
        if (i > 0) *out++ = '\n';
        const std::uint64_t count = std::min<std::uint64_t>(width, all.size() - i);
        out = std::copy_n(all.data() + i, count, out);
        i += count;
    }
    *out = '\0';
    return result;
}

std::unique_ptr<char[]> EncodeAndWrap(const unsigned char* data, std::uint64_t size, std::uint64_t width)
{
    return Wrap(Encode(data, size).get(), width);
}

} // namespace Zorvan::Base64
