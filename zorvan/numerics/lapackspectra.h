// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/lapack.h"

#include <complex>

namespace Zorvan::lapack {

/// Whether a decomposition computes its vectors, too.
enum class EVectors
{
    None, ///< they stay empty
    All
};

// The smaller side of the matrices below is at most 16383, which bounds LAPACK's workspace: beyond that they throw
// std::length_error.

/// A = U diag(s) V^T of any matrix. The condition is largest by smallest singular value.
template <typename T>
class ZORVAN_API TSVD : public TFactorisation<T>
{
public:
    explicit TSVD(TMatrix<T> a, EVectors eVectors = EVectors::All);

    /// min(rows, columns) values, descending.
    [[nodiscard]] const TVector<T>& GetS() const { return m_s; }
    /// rows x min(rows, columns).
    [[nodiscard]] const TMatrix<T>& GetU() const { return m_u; }
    /// min(rows, columns) x columns.
    [[nodiscard]] const TMatrix<T>& GetVTransposed() const { return m_vTransposed; }
    /// How many singular values are larger than `tolerance` times the first.
    /// @param tolerance  below 0: max(rows, columns) eps
    [[nodiscard]] int GetRank(T tolerance = T(-1)) const;

private:
    std::size_t m_longSide = 0;
    TVector<T> m_s;
    TMatrix<T> m_u;
    TMatrix<T> m_vTransposed;
};

/// A = V diag(w) V^T of a symmetric matrix, of which the lower triangle is read. The condition is the largest by the
/// smallest absolute eigenvalue.
template <typename T>
class ZORVAN_API TSymmetricEigen : public TFactorisation<T>
{
public:
    explicit TSymmetricEigen(TMatrix<T> a, EVectors eVectors = EVectors::All);

    /// Ascending.
    [[nodiscard]] const TVector<T>& GetValues() const { return m_values; }
    /// One a column, of length 1 and perpendicular to each other.
    [[nodiscard]] const TMatrix<T>& GetVectors() const { return m_vectors; }

private:
    TVector<T> m_values;
    TMatrix<T> m_vectors;
};

/// A v = w v of any square matrix, balanced beforehand. The condition is that of the eigenvalue that suffers most.
template <typename T>
class ZORVAN_API TGeneralEigen : public TFactorisation<T>
{
public:
    explicit TGeneralEigen(TMatrix<T> a);

    /// In no order, but conjugate ones follow each other, with the positive imaginary part first.
    [[nodiscard]] const TVector<std::complex<T>>& GetValues() const { return m_values; }
    /// One a column, of length 1.
    [[nodiscard]] const TMatrix<std::complex<T>>& GetVectors() const { return m_vectors; }
    /// How many times further than an error of the balanced matrix each eigenvalue may move, at least 1: the reciprocal
    /// cosine between its left and right vector. Infinite where these are perpendicular, as in a Jordan block.
    [[nodiscard]] const TVector<T>& GetConditions() const { return m_conditions; }

private:
    TVector<std::complex<T>> m_values;
    TMatrix<std::complex<T>> m_vectors;
    TVector<T> m_conditions;
};

/// The shortest x among those that make |A x - b| least.
template <typename T>
struct TLeastSquares
{
    EStatus eStatus = EStatus::Success;
    TMatrix<T> x;       ///< columns of A x columns of b; empty after a failure
    int iRank = 0;      ///< of A, as the tolerance has it
    T condition = T(1); ///< of the part of A that the rank keeps; infinite after a failure

    explicit operator bool() const { return eStatus == EStatus::Success; }
};

/// By a complete orthogonal factorisation on top of QR with column pivoting: faster than by singular values.
/// @param tolerance  columns are kept as long as the estimated condition stays below 1 / tolerance; below 0:
///                   max(rows, columns) eps
/// The condition is an estimate in the 1-norm.
template <typename T>
[[nodiscard]] ZORVAN_API TLeastSquares<T> LeastSquaresQR(TMatrix<T> a, TMatrix<T> b, T tolerance = T(-1));

/// By singular values: the surest statement of the rank.
/// @param tolerance  singular values up to tolerance times the largest count as 0; below 0: max(rows, columns) eps
/// The condition is the largest by the smallest singular value that is kept.
template <typename T>
[[nodiscard]] ZORVAN_API TLeastSquares<T> LeastSquaresSVD(TMatrix<T> a, TMatrix<T> b, T tolerance = T(-1));

} // namespace Zorvan::lapack
