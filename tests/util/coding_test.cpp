// SPDX-License-Identifier: MIT
#include "zorvan/util/base64.h"
#include "zorvan/util/csha1.h"
#include "zorvan/util/rle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace Zorvan {
namespace {

using Bytes = std::vector<unsigned char>;

/// Bytes of which long stretches repeat, from a small or the whole alphabet.
Bytes randomBytes(std::size_t size, unsigned int values, unsigned int maxRun)
{
    static std::mt19937 engine(47110815);
    Bytes data;
    while (data.size() < size) {
        const auto value = static_cast<unsigned char>(engine() % values * (256 / values));
        data.insert(data.end(), std::min<std::size_t>(1 + engine() % maxRun, size - data.size()), value);
    }
    return data;
}

Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

std::string encode(const Bytes& data) { return Base64::Encode(data.data(), data.size()).get(); }

Bytes decode(const std::string& text)
{
    Bytes out(Base64::LenDecoded(text.size()));
    out.resize(Base64::Decode(out.data(), text.c_str()));
    return out;
}

/// The first word or lines that a program of coreutils prints for the data.
std::string askSystem(const std::string& command, const Bytes& data)
{
    const std::string file = testing::TempDir() + "zorvan_coding_test_" + std::to_string(getpid());
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data.data()), std::ssize(data));
    std::string text;
    FILE* const pipe = popen((command + " <" + file).c_str(), "r");
    for (char buffer[4096]; pipe && std::fgets(buffer, sizeof(buffer), pipe);) text += buffer;
    EXPECT_TRUE(pipe && pclose(pipe) == 0 && std::remove(file.c_str()) == 0);
    return text.substr(0, text.find_last_not_of("\n -") + 1);
}

TEST(Base64, AgreesWithTheSystemAndComesBack)
{
    for (const std::size_t size : {0, 1, 2, 3, 57, 64, 1000, 4099}) {
        const Bytes data = randomBytes(size, 256, 1);
        EXPECT_EQ(encode(data), askSystem("base64 -w 0", data));
        EXPECT_EQ(decode(encode(data)), data);
        EXPECT_EQ(Base64::LenEncoded(size), encode(data).size() + 1);
        if (size == 0) continue; // no lines to wrap, see below
        EXPECT_EQ(Base64::EncodeAndWrap(data.data(), size, 64).get(), askSystem("base64 -w 64", data));
    }
    EXPECT_STREQ(Base64::Wrap("abc", 1).get(), "a\nb\nc");
    EXPECT_EQ(Base64::Wrap("abc", 0), nullptr);
    EXPECT_THROW(static_cast<void>(Base64::EncodeAndWrap(nullptr, 0, 64)), std::bad_alloc);
}

TEST(Base64, DecodesForeignCharactersAsTheMarkerWithoutReadingOn)
{
    EXPECT_EQ(decode("Zm9v\nZm9"), (Bytes{'f', 'o', 'o', 0x01, 0x99, 0xbd})) << "a line feed is not skipped";
    EXPECT_EQ(decode("Zg==Zg=="), bytesOf("ff"));
    EXPECT_EQ(decode("A"), (Bytes{4}));
    EXPECT_EQ(decode("\xff\x80=A"), (Bytes{4})) << "a fourth character counts only behind a good third";
}

TEST(CSHA1, AgreesWithTheSystemAroundTheBlockLimits)
{
    for (const std::size_t size : {0, 1, 54, 55, 56, 63, 64, 65, 119, 120, 128, 1000000}) {
        const Bytes data = randomBytes(size, 256, 1);
        std::string text = askSystem("sha1sum", data);
        for (std::size_t i = 1; i < text.size(); i += 2) std::swap(text[i - 1], text[i]); // ours: low nibble first
        EXPECT_EQ(CSHA1::Compute(data.data(), size).ToString(), text) << size;
    }
}

Bytes compress(const Bytes& data, int escape)
{
    Bytes out(RLE::MaxCompSize(data.size()));
    out.resize(RLE::Compress(data.data(), out.data(), data.size(), escape));
    return out;
}

Bytes uncompress(const Bytes& code)
{
    Bytes out(RLE::UncompressedSize(code.data(), code.size()) + 1);
    out.resize(RLE::Uncompress(code.data(), out.data(), code.size()));
    return out;
}

TEST(RLE, WritesTheShortestToken)
{
    constexpr unsigned char e = 7;
    const std::tuple<std::size_t, unsigned char, Bytes> cases[] = {
        {3, 'v', {e, 'v', 'v', 'v'}},
        {4, 'v', {e, e, 3, 'v'}},
        {128, 'v', {e, e, 127, 'v'}},
        {129, 'v', {e, e, 128, 128, 'v'}},
        {32768, 'v', {e, e, 255, 255, 'v'}},
        {32769, 'v', {e, e, 255, 255, 'v', 'v'}},
        {1, e, {e, e, 0}},
        {3, e, {e, e, 2}},
        {4, e, {e, e, 3, e}},
    };
    for (const auto& [length, value, code] : cases) {
        EXPECT_EQ(compress(Bytes(length, value), e), code) << length;
        EXPECT_EQ(uncompress(code), Bytes(length, value)) << length;
    }
    EXPECT_EQ(compress(Bytes(5000, 0), -1)[0], 1) << "the lowest of the rarest values";
    EXPECT_THROW(compress({1}, 256), std::invalid_argument);
}

TEST(RLE, ChoosesTheRarestOfAllBytesOrOfASample)
{
    // Every value is there; which is the rarest of the sample depends on each of its positions. The values were worked
    // out by a separate program.
    for (const auto& [size, rarest] : {std::pair(2047U, 3), {2048U, 1}, {70001U, 87}, {1000003U, 39}}) {
        Bytes data(size);
        for (std::uint64_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * i >> 4);
        EXPECT_EQ(compress(data, -1)[0], rarest) << size;
    }
}

TEST(RLE, ComesBackFromAllKindsOfDataWithinTheGivenRoom)
{
    for (const std::size_t size : {0, 1, 2, 100, 2047, 2048, 70000})
        for (const unsigned int values : {1U, 2U, 4U, 256U})
            for (const unsigned int maxRun : {1U, 5U, 300U}) {
                const Bytes data = randomBytes(size, values, maxRun);
                for (const int escape : {-1, 0}) EXPECT_EQ(uncompress(compress(data, escape)), data);
                Bytes code(RLE::MaxCompSize(size));
                code.resize(RLE::CompressWithMTF(data.data(), code.data(), size));
                Bytes back(RLE::UncompressedSize(code.data(), code.size()) + 1);
                back.resize(RLE::UncompressWithMTF(code.data(), back.data(), code.size()));
                EXPECT_EQ(back, data);
            }
}

TEST(RLE, StopsBeforeATokenThatIsCutOff)
{
    const Bytes code{7, 'a', 7, 3, 'v', 7, 128, 9, 'w', 7};
    const std::size_t sizes[] = {0, 0, 1, 1, 1, 5, 5, 5, 5, 15, 15};
    for (std::ptrdiff_t i = 0; i <= std::ssize(code); ++i) // copies, so that the sanitizer sees a read past the end
        EXPECT_EQ(uncompress(Bytes(code.begin(), code.begin() + i)).size(), sizes[i]) << i;
}

} // namespace
} // namespace Zorvan
