// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/packedldlt.h"
#include "zorvan/platform/export.h"

/// The small dense kernels under the registration code, on plain arrays of double. Symmetric matrices are packed (see
/// packedldlt.h), eigenvector matrices n x n row-major with eigenvector k in column k, points and normals three doubles
/// an item. Nothing allocates but the regression form of `PointToPlaneUpdateLS`.
namespace Zorvan::symsolvers {

enum StorageOrder
{
    RowMajor = 0,
    ColumnMajor = 1
};

/// Eigen-decomposition by cyclic Jacobi rotations. Source: Golub and Van Loan, Matrix Computations, 8.5.
/// @param a        packed n x n, destroyed
/// @param values   n eigenvalues, unsorted
/// @param vectors  n x n
/// @param work     2 n doubles
ZORVAN_API void JacobiIteration(double* a, double* values, double* vectors, int n, int maxSweeps, double* work);

/// Sorts eigenvalues and the columns of `vectors` together.
ZORVAN_API void SortEigenV(double* values, double* vectors, int n, bool ascending);

/// Rigid fit of `from` onto `to` by the closed quaternion method. Source: Horn, J. Opt. Soc. Am. A 4 (1987).
/// @param weights  n values or null. They weight the two centroids only; the cross-covariance sum is unweighted, and
///                 callers rely on exactly this form.
/// @param q        quaternion w, x, y, z with w >= 0; @param R  rotation; @param t  translation
/// @return         false for n < 3 or a null array (outputs untouched), and when the largest eigenvalue is not unique
///                 (outputs written all the same)
[[nodiscard]] ZORVAN_API bool Procrustes(const double* from, const double* to, const double* weights, double* q,
                                         double (*R)[3], double* t, unsigned int n);

/// Replaces M by the nearest rotation to its normalised columns. @return as `Procrustes`
[[nodiscard]] ZORVAN_API bool Orthonormalize(double (*M)[3]);

/// One linearised point-to-plane step: three small angles and a translation that bring `from` nearer to the planes
/// through `to`. Source: Chen and Medioni, Image and Vision Computing 10 (1992).
/// @param weights  n values, or null for 1 each
/// @return         false when the 6 x 6 normal equations are not positive definite; outputs then untouched
[[nodiscard]] ZORVAN_API bool PointToPlaneUpdate(const double* from, const double* to, const double* normals,
                                                 const double* weights, double* rotation, double* translation, int n);

/// The same step through the packed kernels.
/// @param singleWeight  true: weights[0] holds for all pairs (1 if null); false: weights[i]
[[nodiscard]] ZORVAN_API bool PointToPlaneUpdateLS(const double* from, const double* to, const double* normals,
                                                   const double* weights, double* rotation, double* translation, int n,
                                                   bool singleWeight);

/// The same step as a linear regression with unit weights; the fourth argument and the last have no effect.
/// @param covariance  receives the packed 6 x 6 covariance of (angles, translation), 21 values; NaN on failure
[[nodiscard]] ZORVAN_API bool PointToPlaneUpdateLS(const double* from, const double* to, const double* normals,
                                                   const double* unused, double* rotation, double* translation, int n,
                                                   double* covariance, bool);

/// Derivatives of a transformed point with R = Rz(angles[2]) Ry(angles[1]) Rx(angles[0]).
/// @param J  3 x 9 row-major: by the angles, by the translation (identity), by the point (R)
ZORVAN_API void TrafoJacobian(double* J, const double* point, const double* angles);

/// Variance of a transformed point, to first order.
/// @param full        false: out receives the variances of x, y, z; true: xx, xy, yy, xz, yz, zz
/// @param sigma       standard deviations of the point's coordinates
/// @param covariance  packed 6 x 6 of (angles, translation)
ZORVAN_API void PropagateTrafoErrors(bool full, double* out, const double* sigma, const double* covariance,
                                     const double* point, const double* angles);

/// Prints rows x cols values to standard output, each as " %g", a row ended by ";" and a line end.
ZORVAN_API void DumpFull(const double* a, unsigned int rows, unsigned int cols, StorageOrder order);
/// Prints the full symmetric matrix of a packed one in the same form.
ZORVAN_API void DumpLowerTri(const double* a, unsigned int n);

} // namespace Zorvan::symsolvers
