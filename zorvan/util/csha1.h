// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Zorvan {

/// A SHA-1 digest (FIPS 180-4), to recognise data again; not a protection against forgery.
///
/// The text form writes the LOW nibble of each byte first, unlike other tools: stored digests rely on it.
class ZORVAN_API CSHA1
{
public:
    /// The digest of `size` bytes. A null pointer counts as no data. Reentrant.
    [[nodiscard]] static CSHA1 Compute(const void* data, std::uint64_t size);

    /// The digest of what comes in parts. @param next  the next one: 64 bytes or a multiple of that, but for the last;
    ///                                                  empty behind it
    [[nodiscard]] static CSHA1 Compute(const std::function<std::string_view()>& next);

    /// 40 lower-case hexadecimal digits.
    [[nodiscard]] std::string ToString() const;
    [[nodiscard]] std::wstring ToWString() const;
    /// Writes 40 characters and a NUL.
    void LoadStringW(char* out) const;
    void LoadStringW(wchar_t* out) const;

    [[nodiscard]] bool operator==(const CSHA1& other) const = default;

private:
    std::array<std::uint8_t, 20> m_digest{};
};

} // namespace Zorvan
