// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace Zorvan {

/// The value whose bytes begin at `offset`, least significant first. They must be there.
template <typename T>
[[nodiscard]] T LoadLittle(std::string_view bytes, std::size_t offset)
{
    static_assert(std::is_arithmetic_v<T>);
    std::array<char, sizeof(T)> raw{};
    std::memcpy(raw.data(), bytes.substr(offset, sizeof(T)).data(), sizeof(T));
    if constexpr (std::endian::native == std::endian::big) std::reverse(raw.begin(), raw.end());
    return std::bit_cast<T>(raw);
}

/// Appends the bytes of the value, least significant first.
template <typename T>
void AppendLittle(std::string& bytes, T value)
{
    static_assert(std::is_arithmetic_v<T>);
    auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if constexpr (std::endian::native == std::endian::big) std::reverse(raw.begin(), raw.end());
    bytes.append(raw.data(), raw.size());
}

} // namespace Zorvan
