// SPDX-License-Identifier: MIT
#include "zorvan/core/bloomfilter.h"

#include <cmath>

namespace prereg {

namespace {

constexpr double negativeLn2Squared = -0.48045301391820094;
constexpr double ln2 = 0.693147180559945;

// Called for moduli below 2^32 only, so the products fit.
std::uint64_t powerMod(std::uint64_t base, std::uint64_t exponent, std::uint64_t modulus)
{
    std::uint64_t result = 1;
    for (base %= modulus; exponent != 0; exponent >>= 1) {
        if (exponent & 1) result = result * base % modulus;
        base = base * base % modulus;
    }
    return result;
}

// Fermat's test to the bases 2 and 3.
bool isProbablyPrime(std::uint64_t m) { return m > 3 && powerMod(2, m, m) == 2 && powerMod(3, m, m) == 3; }

// The next prime from `wanted` on, or the last one up to the limit when that would be passed.
std::uint64_t primeFrom(double wanted, std::uint64_t limit)
{
    if (wanted <= static_cast<double>(limit)) {
        auto m = static_cast<std::uint64_t>(wanted + 0.5) | 1U;
        for (int attempt = 0; attempt < 50 && !isProbablyPrime(m); ++attempt) m += 2;
        if (m <= limit) return m;
    }
    std::uint64_t m = limit % 2 == 0 ? limit - 1 : limit;
    while (m > 11 && !isProbablyPrime(m)) m -= 2;
    return m;
}

// 64-bit FNV-1a of the four bytes, low byte first.
std::uint64_t hashOf(std::uint32_t number)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        hash ^= (number >> shift) & 0xFF;
        hash *= 0x100000001B3;
    }
    return hash;
}

} // namespace

BloomFilter::BloomFilter(std::size_t n, double rate, std::uint64_t maxBits)
{
    const double bits = static_cast<double>(n) * std::log(rate) / negativeLn2Squared;
    m_numProbes = static_cast<unsigned>(bits * ln2 / static_cast<double>(n) + 0.5);
    m_numBits = primeFrom(bits, maxBits);
    m_bits.resize(m_numBits);
}

bool BloomFilter::Contains(std::uint32_t number) const
{
    const std::uint64_t hash = hashOf(number);
    for (unsigned i = 0; i < m_numProbes; ++i) {
        if (!m_bits[probe(hash, i)]) return false;
    }
    return true;
}

void BloomFilter::Insert(std::uint32_t number)
{
    const std::uint64_t hash = hashOf(number);
    for (unsigned i = 0; i < m_numProbes; ++i) m_bits[probe(hash, i)] = true;
}

std::uint64_t BloomFilter::probe(std::uint64_t hash, unsigned i) const
{
    return (i * (hash & 0xFFFFFFFF) + hash) % m_numBits;
}

} // namespace prereg
