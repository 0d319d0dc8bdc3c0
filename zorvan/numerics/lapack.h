// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/tmatrix.h"
#include "zorvan/numerics/tpermutation.h"
#include "zorvan/platform/export.h"

/// Factorisations by LAPACK, for float and double.
///
///     const lapack::TLU<double> lu(a);
///     if (lu && lu.GetCondition() < 1e12) use(lu.Solve(b));
///
/// Sizes that do not fit each other throw std::invalid_argument, and more than 2^24 - 1 rows or columns
/// std::length_error, since LAPACK counts in 32-bit integers. What the values bring about is a status: a factorisation
/// that failed gives empty matrices and vectors. An empty matrix is factored with condition 1. A matrix that is moved
/// in is overwritten where it lies. Source: Anderson et al., LAPACK Users' Guide, 3rd edition (1999).
namespace Zorvan::lapack {

enum class EStatus
{
    Success,
    Singular,            ///< a pivot is exactly 0; near singularity shows in the condition alone
    NotPositiveDefinite, ///< a pivot is 0 or less
    NotConverged,
    NotFinite ///< the matrix holds NaN or infinity, or a value on the way grew beyond all numbers
};

/// What each factorisation says of itself.
template <typename T>
class TFactorisation
{
public:
    [[nodiscard]] EStatus GetStatus() const { return m_eStatus; }
    explicit operator bool() const { return m_eStatus == EStatus::Success; }
    /// How many times larger a relative error of the matrix may be in the result, at least 1; infinite where the
    /// factorisation failed. An estimate or a value: each class says of what.
    [[nodiscard]] T GetCondition() const { return m_condition; }

protected:
    void fail(EStatus eStatus);
    /// @param reciprocal  1 / condition; 0 and NaN count as infinitely badly conditioned
    void setCondition(T reciprocal);

    EStatus m_eStatus = EStatus::Success;
    T m_condition = T(1);
};

/// P A = L U of a square matrix, with partial pivoting. The condition is an estimate in the 1-norm.
template <typename T>
class ZORVAN_API TLU : public TFactorisation<T>
{
public:
    explicit TLU(TMatrix<T> a);

    /// U, and below its diagonal L without its ones. A singular matrix has it, too.
    [[nodiscard]] const TMatrix<T>& GetFactors() const { return m_factors; }
    /// Row i of L U is row `GetRowOrder()[i]` of A.
    [[nodiscard]] const TPermutation<int>& GetRowOrder() const { return m_rowOrder; }
    /// NaN when the status is `NotFinite`.
    [[nodiscard]] T Determinant() const;
    /// A^-1 b; a b that is moved in is overwritten where it lies.
    [[nodiscard]] TMatrix<T> Solve(TMatrix<T> b) const;
    [[nodiscard]] TVector<T> Solve(TVector<T> b) const { return Solve(TMatrix<T>(std::move(b))).Release(); }

private:
    TMatrix<T> m_factors;
    std::vector<int> m_swaps; ///< row i was swapped with this one, counted from 1
    TPermutation<int> m_rowOrder;
};

/// A = L L^T of a symmetric positive definite matrix, of which the lower triangle is read. The condition is an estimate
/// in the 1-norm.
template <typename T>
class ZORVAN_API TCholesky : public TFactorisation<T>
{
public:
    explicit TCholesky(TMatrix<T> a);

    [[nodiscard]] const TMatrix<T>& GetL() const { return m_factor; }
    /// Logarithm of the determinant, which itself soon leaves the range of numbers; minus infinity after a failure.
    [[nodiscard]] T LogDeterminant() const;
    [[nodiscard]] TMatrix<T> Solve(TMatrix<T> b) const;
    [[nodiscard]] TVector<T> Solve(TVector<T> b) const { return Solve(TMatrix<T>(std::move(b))).Release(); }

private:
    TMatrix<T> m_factor;
};

/// A P = Q R of any matrix, with column pivoting: the diagonal of R does not grow in size. The condition is an estimate
/// for the square part of R in the 1-norm.
template <typename T>
class ZORVAN_API TPivotedQR : public TFactorisation<T>
{
public:
    explicit TPivotedQR(TMatrix<T> a);

    /// rows x min(rows, columns), with orthonormal columns; computed anew each time.
    [[nodiscard]] TMatrix<T> GetQ() const;
    /// min(rows, columns) x columns, zero below the diagonal.
    [[nodiscard]] TMatrix<T> GetR() const;
    /// Column j of Q R is column `GetColumnOrder()[j]` of A.
    [[nodiscard]] const TPermutation<int>& GetColumnOrder() const { return m_columnOrder; }
    /// How many entries on the diagonal of R are larger than `tolerance` times the first.
    /// @param tolerance  below 0: max(rows, columns) eps
    [[nodiscard]] int GetRank(T tolerance = T(-1)) const;

private:
    TMatrix<T> m_factors;    ///< R, and below it the reflections
    std::vector<T> m_scales; ///< of the reflections
    TPermutation<int> m_columnOrder;
};

} // namespace Zorvan::lapack
