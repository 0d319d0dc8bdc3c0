// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/util/base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

namespace Base64 = Zorvan::Base64;

/// The input as a text that somebody else has written.
void checkText(const std::string& text)
{
    const std::uint64_t room = Base64::LenDecoded(text.size());
    std::string out(room + 1, 'x');
    const std::uint64_t size = Base64::Decode(reinterpret_cast<unsigned char*>(out.data()), text.c_str());
    Law(size <= room && out.back() == 'x', "no more is decoded than there is room for");
    const auto all = Base64::Decode(text.c_str());
    Law(std::equal(all.get(), all.get() + size, reinterpret_cast<unsigned char*>(out.data())), "both decode alike");
    Law(std::all_of(all.get() + size, all.get() + room, [](unsigned char c) { return c == 0; }), "the rest is zero");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    checkText(bytes.substr(0, bytes.find('\0')));
    if (size == 0) return 0;

    const std::string text = Base64::Encode(data, size).get();
    Law(text.size() + 1 == Base64::LenEncoded(size), "the length is known before");
    const auto again = Base64::Decode(text.c_str());
    Law(std::equal(data, data + size, again.get()), "what was encoded comes back");

    const std::uint64_t width = data[0] + 1U;
    std::string wrapped = Base64::EncodeAndWrap(data, size, width).get();
    Law(wrapped.size() == text.size() + (text.size() - 1) / width, "one line feed between two lines");
    std::erase(wrapped, '\n');
    Law(wrapped == text, "lines hold the same text");
    return 0;
}
