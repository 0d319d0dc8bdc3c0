// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

/// Remembers which 32-bit numbers were seen, in a flat bit vector: never forgets one, and takes about `rate` of the
/// others for seen. Sized by Bloom's formula (Bloom, Comm. ACM 13, 1970) to a prime number of bits.
class ZORVAN_API BloomFilter
{
public:
    /// @param n         numbers expected, at least 1
    /// @param rate      share of false positives, in (0, 1)
    /// @param maxBits   upper limit of the bit vector, from 11 to 2^31
    BloomFilter(std::size_t n, double rate, std::uint64_t maxBits);

    /// True when the number counts as seen.
    [[nodiscard]] bool Contains(std::uint32_t number) const;
    void Insert(std::uint32_t number);

    [[nodiscard]] std::uint64_t GetNumBits() const { return m_numBits; }
    [[nodiscard]] unsigned GetNumProbes() const { return m_numProbes; }

private:
    [[nodiscard]] std::uint64_t probe(std::uint64_t hash, unsigned i) const;

    std::uint64_t m_numBits;
    unsigned m_numProbes;
    std::vector<bool> m_bits;
};

} // namespace prereg
