// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <cstddef>

/// Kernels on packed symmetric matrices: the lower triangle by rows, element (i, j) with j <= i at i (i + 1) / 2 + j.
/// None of them allocates; work arrays belong to the caller.
namespace Zorvan::symsolvers {

/// Number of packed values of an n x n matrix.
[[nodiscard]] constexpr std::size_t PackedSize(std::size_t n) { return n * (n + 1) / 2; }

/// Adds one equation row . x = rhs to the normal equations: A += w row row^T, b += w rhs row.
/// @param a  packed n x n; @param b  n values; @param row  n values
ZORVAN_API void AddNormalEquation(double* a, double* b, const double* row, double rhs, double weight, int n);
/// The same with weight 1.
ZORVAN_API void AddNormalEquation(double* a, double* b, const double* row, double rhs, int n);

/// In-place factorisation A = L D L^T; afterwards the diagonal holds D, the rest L without its unit diagonal.
/// @param work  n doubles
/// @return      false when a pivot is <= 0 or NaN (the matrix is then partly overwritten); true for n < 1
[[nodiscard]] ZORVAN_API bool LDLtFactor(double* a, int n, double* work);
/// Solves A x = b from the factor; b is replaced by x.
ZORVAN_API void LDLtSolve(const double* factor, double* b, int n);
/// Packed inverse of A from its factor.
/// @param work  n doubles
ZORVAN_API void LDLtInverse(const double* factor, double* inverse, int n, double* work);

/// Ordinary least squares by the normal equations.
/// @param design      rows x cols, row-major
/// @param rhs         rows values
/// @param solution    cols values
/// @param covariance  null, or receives the packed cols x cols covariance of the solution: the inverse of the normal
///                    matrix times residual sum of squares / (rows - cols). Not finite for rows = cols.
/// @param work        PackedSize(cols) + cols doubles
/// @return            false when the normal matrix is not positive definite
[[nodiscard]] ZORVAN_API bool LinearRegression(const double* design, const double* rhs, int rows, int cols,
                                               double* solution, double* covariance, double* work);

} // namespace Zorvan::symsolvers
