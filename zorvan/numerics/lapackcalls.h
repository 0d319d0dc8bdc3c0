// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/tmatrix.h"

#include <lapack.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <span>
#include <stdexcept>
#include <type_traits>
#include <vector>

/// What the files that call LAPACK share. Its names differ by type alone, so each call is written once:
///     calls::Pick<T>(LAPACK_sgetrf, LAPACK_dgetrf)(&n, &n, a.data(), &n, swaps.data(), &info);
namespace Zorvan::lapack::calls {

static_assert(std::is_same_v<lapack_int, int>, "permutations and ranks are handed to LAPACK as they are");

template <typename T, typename Single, typename Double>
[[nodiscard]] constexpr auto* Pick(Single* single, Double* twice)
{
    if constexpr (std::is_same_v<T, float>)
        return single;
    else
        return twice;
}

/// A number of rows or columns. LAPACK multiplies it by its block sizes, at most 64, in 32-bit integers, and adds what
/// comes out for both sides.
[[nodiscard]] inline int Size(std::size_t size)
{
    constexpr auto most = static_cast<std::size_t>(std::numeric_limits<int>::max() / 128);
    if (size > most) throw std::length_error("LAPACK takes no more than 16777215 rows or columns");
    return static_cast<int>(size);
}

/// The side of a square workspace: divide and conquer takes up to 4 n^2 values, in the same integers.
inline void RequireSquareWorkspace(std::size_t side)
{
    if (side > 16383) throw std::length_error("spectra take matrices whose smaller side is at most 16383");
}

/// LAPACK wants the distance of columns to be at least 1, also of those without rows.
[[nodiscard]] inline int Stride(int rows) { return std::max(rows, 1); }

/// Calls with the workspace that the same call asks for when its length is -1.
/// @param call  takes the workspace and its length
template <typename T, typename Call>
void WithWorkspace(const Call& call)
{
    T wanted = 0;
    call(&wanted, -1);
    // An answer in single precision may have been rounded down.
    const double length = std::ceil(static_cast<double>(wanted) * (1.0 + std::numeric_limits<T>::epsilon()));
    if (!(length <= std::numeric_limits<int>::max())) throw std::length_error("LAPACK's workspace is too long");
    std::vector<T> work(std::max<std::size_t>(static_cast<std::size_t>(length), 1));
    call(work.data(), static_cast<int>(work.size()));
}

template <typename T>
[[nodiscard]] bool IsFinite(const TMatrix<T>& a)
{
    return std::all_of(a.data(), a.data() + a.Rows() * a.Columns(), [](T value) { return std::isfinite(value); });
}

/// The largest sum of absolute values in a column. With `isLower` the matrix is symmetric and has its lower triangle.
template <typename T>
[[nodiscard]] T OneNorm(const TMatrix<T>& a, bool isLower = false)
{
    std::vector<T> sums(a.Columns(), T(0));
    for (std::size_t j = 0; j < a.Columns(); ++j) {
        for (std::size_t i = isLower ? j : 0; i < a.Rows(); ++i) {
            sums[j] += std::abs(a(i, j));
            if (isLower && i != j) sums[i] += std::abs(a(i, j));
        }
    }
    return sums.empty() ? T(0) : *std::max_element(sums.begin(), sums.end());
}

/// Estimate of 1 / condition, in the 1-norm, of the upper triangle at the top left.
template <typename T>
[[nodiscard]] T ReciprocalConditionOfTriangle(const TMatrix<T>& a, int side)
{
    if (side == 0) return T(1);
    const int stride = Stride(Size(a.Rows()));
    T reciprocal = 0;
    int info = 0;
    std::vector<T> work(3 * static_cast<std::size_t>(side));
    std::vector<int> integers(static_cast<std::size_t>(side));
    Pick<T>(LAPACK_strcon_base, LAPACK_dtrcon_base)("1", "U", "N", &side, a.data(), &stride, &reciprocal, work.data(),
                                                    integers.data(), &info, 1, 1, 1);
    return reciprocal;
}

/// The given tolerance, or where that is below 0 what rounding does to a matrix of this size.
template <typename T>
[[nodiscard]] T ToleranceFor(T tolerance, std::size_t longSide)
{
    return tolerance < T(0) ? static_cast<T>(longSide) * std::numeric_limits<T>::epsilon() : tolerance;
}

/// How many of the sizes are larger than the tolerance times the first, up to the first one that is not.
template <typename T>
[[nodiscard]] int RankOf(TVectorView<const T> values, T tolerance)
{
    const auto isNegligible = [&](T value) { return !(std::abs(value) > tolerance * std::abs(values[0])); };
    int rank = 0;
    for (const T value : values) {
        if (isNegligible(value)) break;
        ++rank;
    }
    return rank;
}

inline void RequireSquare(std::size_t rows, std::size_t columns)
{
    if (rows != columns) throw std::invalid_argument("the matrix has to be square");
}

inline void RequireAsManyRows(std::size_t a, std::size_t b)
{
    if (a != b) throw std::invalid_argument("the right side has to have as many rows as the matrix");
}

} // namespace Zorvan::lapack::calls
