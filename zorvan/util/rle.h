// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <cstdint>

/// Run-length code with a selectable escape symbol, and the move-to-front transform that prepares data for it.
///
/// The stream is the escape symbol E, then tokens:
///
///     B (not E)                one byte B
///     E, n <= 2                n + 1 bytes E
///     E, n in 3..127, v        n + 1 bytes v
///     E, n >= 128, m, v        ((n & 127) << 8) + m + 1 bytes v
///
/// It has no length of its own. All functions are reentrant; a null pointer or a size of 0 gives 0.
namespace Zorvan::RLE {

/// The room that `Compress` may need.
[[nodiscard]] constexpr std::uint64_t MaxCompSize(std::uint64_t size) { return ((3 * size + 1) >> 1) + 1; }

/// @param out     room for `MaxCompSize(size)` bytes
/// @param escape  0..255, or -1 for the value that is rarest in the data, from 2048 bytes on in a sample of 2048
///                positions, so that the choice costs a fixed number of reads
/// @return        bytes written
/// @throws std::invalid_argument "invalid escape symbol"
ZORVAN_API std::uint64_t Compress(const void* in, unsigned char* out, std::uint64_t size, int escape);

/// The size of what `Uncompress` writes. Ask before a stream of unknown origin is given any room: three bytes may stand
/// for 32768.
[[nodiscard]] ZORVAN_API std::uint64_t UncompressedSize(const unsigned char* in, std::uint64_t compressedSize);

/// @param out  room for `UncompressedSize` bytes; no bound is checked
/// @return     bytes written. A stream that ends inside a token gives what stands before this token.
ZORVAN_API std::uint64_t Uncompress(const unsigned char* in, void* out, std::uint64_t compressedSize);

/// Run-length code, with escape symbol 255, of the move-to-front transform. Room as for `Compress` and `Uncompress`.
ZORVAN_API std::uint64_t CompressWithMTF(const void* in, unsigned char* out, std::uint64_t size);
ZORVAN_API std::uint64_t UncompressWithMTF(const unsigned char* in, void* out, std::uint64_t compressedSize);

/// The transform of a whole buffer, from a fresh table; `in` and `out` may be the same. @return out
ZORVAN_API void* MoveToFront(const void* in, void* out, std::uint64_t size);
ZORVAN_API void* InverseMoveToFront(const void* in, void* out, std::uint64_t size);

/// Replaces each byte by its place in a table of all byte values, and moves it to the front of the table: what came
/// lately gets a small number. An encoder and a decoder that start alike stay alike. (Bentley, Sleator, Tarjan and Wei,
/// Comm. ACM 29, 1986.)
class ZORVAN_API CMoveToFrontTransform
{
public:
    CMoveToFrontTransform() { Reset(); }

    /// Back to the identity table.
    void Reset();
    unsigned char Encode(unsigned char value);
    unsigned char Decode(unsigned char place);

private:
    std::array<unsigned char, 256> m_table;
};

} // namespace Zorvan::RLE
