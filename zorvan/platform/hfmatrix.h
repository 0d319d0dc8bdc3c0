// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>

/// A small vector of the host, N values of type T.
template <typename T, std::size_t N>
struct HfVector
{
    std::array<T, N> data{};

    [[nodiscard]] constexpr T& operator[](std::size_t i) { return data[i]; }
    [[nodiscard]] constexpr const T& operator[](std::size_t i) const { return data[i]; }
    friend constexpr bool operator==(const HfVector&, const HfVector&) = default;
};

using HfVector2Ri = HfVector<int, 2>;
using HfVector2Rd = HfVector<double, 2>;
using HfVector3Rd = HfVector<double, 3>;
using HfVector3Rf = HfVector<float, 3>;

/// A 4x4 matrix of the host. `data` is column-major; a pose has its translation in elements 12, 13, 14.
template <typename T>
struct HfMatrix4R
{
    std::array<T, 16> data{};

    [[nodiscard]] constexpr T& operator()(std::size_t row, std::size_t col) { return data[4 * col + row]; }
    [[nodiscard]] constexpr const T& operator()(std::size_t row, std::size_t col) const { return data[4 * col + row]; }
    friend constexpr bool operator==(const HfMatrix4R&, const HfMatrix4R&) = default;
};

using HfMatrix4Rd = HfMatrix4R<double>;
using HfMatrix4Rf = HfMatrix4R<float>;
