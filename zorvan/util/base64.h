// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstdint>
#include <memory>

/// Binary data as text: the standard alphabet of RFC 4648 with `=` padding. Sizes are the caller's duty, no bound of an
/// output is checked. All functions are reentrant; a null pointer as input counts as empty.
namespace Zorvan::Base64 {

/// Characters of the code of `size` bytes, the closing NUL included.
[[nodiscard]] constexpr std::uint64_t LenEncoded(std::uint64_t size) { return (size + 2) / 3 * 4 + 1; }

/// The most bytes that a text of this length can decode to.
[[nodiscard]] constexpr std::uint64_t LenDecoded(std::uint64_t textLength)
{
    return (textLength / 4 + (textLength % 4 != 0)) * 3;
}

/// The code of the data, closed by a NUL. No data gives the empty text.
[[nodiscard]] ZORVAN_API std::unique_ptr<char[]> Encode(const void* data, std::uint64_t size);
/// The same into `LenEncoded(size)` characters of the caller. A null `out` is allocated with new[], and then the
/// caller's to delete. @return where the text is
ZORVAN_API char* Encode(char* out, const void* data, std::uint64_t size);

/// Decodes whatever it is given: each four characters give 1 byte, 2 when the third is of the alphabet, 3 when the
/// fourth is too. Characters outside the alphabet, line feeds among them, are not skipped but count as the value 64.
/// @return `LenDecoded` bytes, of which those behind the decoded ones are zero
[[nodiscard]] ZORVAN_API std::unique_ptr<unsigned char[]> Decode(const char* text);
/// The same into `LenDecoded` bytes of the caller. @return how many were written
ZORVAN_API std::uint64_t Decode(unsigned char* out, const char* text);

/// The text with a line feed after every `width` characters, but none at the very end.
/// @return the text, NUL-terminated; the empty pointer for a width of 0
/// @throws std::bad_alloc for an empty text: writers of documents rely on it to refuse empty binaries
[[nodiscard]] ZORVAN_API std::unique_ptr<char[]> Wrap(const char* text, std::uint64_t width);
/// `Wrap` of `Encode`. @throws std::bad_alloc for no data
[[nodiscard]] ZORVAN_API std::unique_ptr<char[]> EncodeAndWrap(const unsigned char* data, std::uint64_t size,
                                                               std::uint64_t width);

} // namespace Zorvan::Base64
