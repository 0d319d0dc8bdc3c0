// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <numeric>
#include <vector>

namespace Zorvan {

/// A plain array that holds each of 0 .. size - 1 once, as the operations fill it; nothing is checked on the way.
template <typename T>
class TPermutation
{
public:
    TPermutation() = default;
    /// The identity.
    explicit TPermutation(std::size_t size) : m_entries(size) { std::iota(m_entries.begin(), m_entries.end(), T(0)); }
    TPermutation(std::initializer_list<T> entries) : m_entries(entries) {}

    [[nodiscard]] std::size_t Size() const { return m_entries.size(); }
    [[nodiscard]] T& operator[](std::size_t i) { return m_entries[i]; }
    [[nodiscard]] const T& operator[](std::size_t i) const { return m_entries[i]; }
    [[nodiscard]] auto begin() { return m_entries.begin(); }
    [[nodiscard]] auto end() { return m_entries.end(); }
    [[nodiscard]] auto begin() const { return m_entries.begin(); }
    [[nodiscard]] auto end() const { return m_entries.end(); }
    [[nodiscard]] bool operator==(const TPermutation&) const = default;

    /// Whether each of 0 .. size - 1 stands in it once.
    [[nodiscard]] bool IsValid() const
    {
        std::vector<bool> isSeen(Size(), false);
        for (const T entry : m_entries) {
            if (entry < T(0) || static_cast<std::size_t>(entry) >= Size() || isSeen[static_cast<std::size_t>(entry)])
                return false;
            isSeen[static_cast<std::size_t>(entry)] = true;
        }
        return true;
    }

    /// The permutation that undoes this one, which must be valid.
    [[nodiscard]] TPermutation GetInverse() const
    {
        TPermutation inverse(Size());
        for (std::size_t i = 0; i < Size(); ++i) inverse[static_cast<std::size_t>(m_entries[i])] = static_cast<T>(i);
        return inverse;
    }

    /// Turns the array round.
    void Reverse() { std::reverse(m_entries.begin(), m_entries.end()); }

private:
    std::vector<T> m_entries;
};

} // namespace Zorvan
