// SPDX-License-Identifier: MIT
#include "zorvan/util/rle.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>

namespace Zorvan::RLE {

namespace {

constexpr std::uint64_t uiMaxRun = 32768;
constexpr std::uint64_t uiSample = 2048; // positions looked at to choose the escape symbol
constexpr int iMTFEscape = 255;          // after the transform the rarest value in practice

using Histogram = std::array<unsigned int, 256>;

/// Counts at positions that a fixed multiplicative sequence picks, so that equal data gives equal streams.
Histogram sampleHistogram(const unsigned char* in, std::uint64_t size)
{
    constexpr std::uint64_t inner = 48271;
    constexpr std::uint64_t outer = 0x8ae257e1;
    Histogram counts{};
    std::uint64_t s = 0x2d223098efbea600;
    for (std::uint64_t i = 0; i < uiSample / 2; ++i) {
        ++counts[in[s % size]];
        ++counts[in[s * inner % size]];
        s *= outer;
    }
    return counts;
}

Histogram fullHistogram(const unsigned char* in, std::uint64_t size)
{
    Histogram counts{};
    for (std::uint64_t i = 0; i < size; ++i) ++counts[in[i]];
    return counts;
}

unsigned char rarestValue(const unsigned char* in, std::uint64_t size)
{
    const Histogram counts = size < uiSample ? fullHistogram(in, size) : sampleHistogram(in, size);
    return static_cast<unsigned char>(std::min_element(counts.begin(), counts.end()) - counts.begin());
}

unsigned char* writeRun(unsigned char* out, unsigned char value, std::uint64_t length, unsigned char escape)
{
    if (length <= 3 && value != escape) return std::fill_n(out, length, value);
    const std::uint64_t n = length - 1;
    *out++ = escape;
    if (n > 127) *out++ = static_cast<unsigned char>(n >> 8 | 128);
    *out++ = static_cast<unsigned char>(n);
    if (n > 2) *out++ = value;
    return out;
}

/// Codes the bytes that `next` gives one by one.
template <typename Next>
std::uint64_t compress(std::uint64_t size, unsigned char* out, unsigned char escape, Next next)
{
    unsigned char* end = out;
    *end++ = escape;

    unsigned char value = next(0);
    std::uint64_t length = 1;
    for (std::uint64_t i = 1; i < size; ++i) {
        const unsigned char b = next(i);
        if (b == value && length < uiMaxRun) {
            ++length;
            continue;
        }
        end = writeRun(end, value, length, escape);
        value = b;
        length = 1;
    }
    end = writeRun(end, value, length, escape);
    return static_cast<std::uint64_t>(end - out);
}

/// Gives each run of the stream to `run(value, length)`, as long as its token is complete.
template <typename Run>
void forEachRun(const unsigned char* in, std::uint64_t compressedSize, Run run)
{
    const unsigned char* const end = in + compressedSize;
    const unsigned char escape = *in++;
    while (in < end) {
        const unsigned char first = *in++;
        if (first != escape) {
            run(first, 1);
            continue;
        }
        if (in == end) return;
        std::uint64_t n = *in++;
        if (n <= 2) {
            run(escape, n + 1);
            continue;
        }
        if (end - in < (n > 127 ? 2 : 1)) return;
        if (n > 127) n = (n & 127) << 8 | *in++;
        run(*in++, n + 1);
    }
}

} // namespace

std::uint64_t Compress(const void* in, unsigned char* out, std::uint64_t size, int escape)
{
    if (size == 0 || !in || !out) return 0;
    if (escape < -1 || escape > 255) throw std::invalid_argument("invalid escape symbol");

    const auto* const bytes = static_cast<const unsigned char*>(in);
    const unsigned char symbol = escape == -1 ? rarestValue(bytes, size) : static_cast<unsigned char>(escape);
    return compress(size, out, symbol, [bytes](std::uint64_t i) { return bytes[i]; });
}

std::uint64_t UncompressedSize(const unsigned char* in, std::uint64_t compressedSize)
{
    if (compressedSize == 0 || !in) return 0;
    std::uint64_t size = 0;
    forEachRun(in, compressedSize, [&size](unsigned char, std::uint64_t length) { size += length; });
    return size;
}

std::uint64_t Uncompress(const unsigned char* in, void* out, std::uint64_t compressedSize)
{
    if (compressedSize == 0 || !in || !out) return 0;
    auto* const begin = static_cast<unsigned char*>(out);
    unsigned char* end = begin;
    forEachRun(in, compressedSize,
               [&end](unsigned char value, std::uint64_t length) { end = std::fill_n(end, length, value); });
    return static_cast<std::uint64_t>(end - begin);
}

std::uint64_t CompressWithMTF(const void* in, unsigned char* out, std::uint64_t size)
{
    if (size == 0 || !in || !out) return 0;
    const auto* const bytes = static_cast<const unsigned char*>(in);
    CMoveToFrontTransform transform;
    return compress(size, out, iMTFEscape, [&](std::uint64_t i) { return transform.Encode(bytes[i]); });
}

std::uint64_t UncompressWithMTF(const unsigned char* in, void* out, std::uint64_t compressedSize)
{
    const std::uint64_t size = Uncompress(in, out, compressedSize);
    InverseMoveToFront(out, out, size);
    return size;
}

void* MoveToFront(const void* in, void* out, std::uint64_t size)
{
    if (!in || !out) return out;
    CMoveToFrontTransform transform;
    const auto* const bytes = static_cast<const unsigned char*>(in);
    std::transform(bytes, bytes + size, static_cast<unsigned char*>(out),
                   [&transform](unsigned char value) { return transform.Encode(value); });
    return out;
}

void* InverseMoveToFront(const void* in, void* out, std::uint64_t size)
{
    if (!in || !out) return out;
    CMoveToFrontTransform transform;
    const auto* const places = static_cast<const unsigned char*>(in);
    std::transform(places, places + size, static_cast<unsigned char*>(out),
                   [&transform](unsigned char place) { return transform.Decode(place); });
    return out;
}

void CMoveToFrontTransform::Reset() { std::iota(m_table.begin(), m_table.end(), static_cast<unsigned char>(0)); }

unsigned char CMoveToFrontTransform::Encode(unsigned char value)
{
    const auto* const found = static_cast<const unsigned char*>(std::memchr(m_table.data(), value, m_table.size()));
    const auto place = static_cast<unsigned char>(found - m_table.data());
    Decode(place);
    return place;
}

unsigned char CMoveToFrontTransform::Decode(unsigned char place)
{
    const unsigned char value = m_table[place];
    std::memmove(m_table.data() + 1, m_table.data(), place);
    m_table[0] = value;
    return value;
}

} // namespace Zorvan::RLE
