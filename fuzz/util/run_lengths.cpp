// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/util/rle.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

namespace RLE = Zorvan::RLE;
using Bytes = std::vector<unsigned char>;

constexpr std::uint64_t uiMostPerByte = 32768;
constexpr std::uint64_t uiMostTried = 1 << 20; // filling more finds nothing new

/// The input as a stream that somebody else has written.
void checkStream(const Bytes& stream)
{
    const std::uint64_t size = RLE::UncompressedSize(stream.data(), stream.size());
    Law(size <= uiMostPerByte * stream.size(), "a byte stands for no more than the longest run");
    if (size > uiMostTried) return;
    Bytes out(size + 1, 0xAA);
    Law(RLE::Uncompress(stream.data(), out.data(), stream.size()) == size, "the size is known before");
    Law(RLE::UncompressWithMTF(stream.data(), out.data(), stream.size()) == size, "and does not depend on the values");
    Law(out.back() == 0xAA, "nothing is written behind it");
}

/// The input as data.
void checkRoundTrip(const Bytes& data, int escape)
{
    Bytes stream(RLE::MaxCompSize(data.size()));
    Bytes again(data.size());
    stream.resize(RLE::Compress(data.data(), stream.data(), data.size(), escape));
    Law(RLE::UncompressedSize(stream.data(), stream.size()) == data.size(), "the stream has the size of the data");
    RLE::Uncompress(stream.data(), again.data(), stream.size());
    Law(again == data, "what was compressed comes back");

    stream.resize(RLE::MaxCompSize(data.size()));
    stream.resize(RLE::CompressWithMTF(data.data(), stream.data(), data.size()));
    RLE::UncompressWithMTF(stream.data(), again.data(), stream.size());
    Law(again == data, "what was compressed with the transform comes back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const Bytes bytes(data, data + size);
    checkStream(bytes);
    checkRoundTrip(bytes, -1);
    checkRoundTrip(bytes, bytes.front());
    return 0;
}
