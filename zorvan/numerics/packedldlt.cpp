// SPDX-License-Identifier: MIT
#include "zorvan/numerics/packedldlt.h"

#include <algorithm>

namespace Zorvan::symsolvers {

namespace {

double residualSumOfSquares(const double* design, const double* rhs, int rows, int cols, const double* solution)
{
    double sum = 0.0;
    for (int r = 0; r < rows; ++r) {
        const double* row = design + static_cast<std::ptrdiff_t>(r) * cols;
        double residual = rhs[r];
        for (int c = 0; c < cols; ++c) residual -= row[c] * solution[c];
        sum += residual * residual;
    }
    return sum;
}

} // namespace

void AddNormalEquation(double* a, double* b, const double* row, double rhs, double weight, int n)
{
    for (int i = 0; i < n; ++i) {
        const double weighted = weight * row[i];
        for (int j = 0; j <= i; ++j) *a++ += weighted * row[j];
        b[i] += weighted * rhs;
    }
}

void AddNormalEquation(double* a, double* b, const double* row, double rhs, int n)
{
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j <= i; ++j) *a++ += row[i] * row[j];
        b[i] += row[i] * rhs;
    }
}

bool LDLtFactor(double* a, int n, double* work)
{
    double* row = a;
    for (int i = 0; i < n; row += ++i) {
        const double* other = a;
        for (int j = 0; j < i; other += ++j) {
            // work[k] = L(i, k) D(k), as far as it is known.
            double sum = row[j];
            for (int k = 0; k < j; ++k) sum -= work[k] * other[k];
            work[j] = sum;
        }
        double pivot = row[i];
        const double* diagonal = a;
        for (int k = 0; k < i; diagonal += ++k + 1) {
            row[k] = work[k] / *diagonal;
            pivot -= work[k] * row[k];
        }
        if (!(pivot > 0.0)) return false;
        row[i] = pivot;
    }
    return true;
}

void LDLtSolve(const double* factor, double* b, int n)
{
    const double* row = factor;
    for (int i = 0; i < n; row += ++i) {
        for (int k = 0; k < i; ++k) b[i] -= row[k] * b[k];
    }
    for (int i = 0; i < n; ++i) b[i] /= factor[PackedSize(i) + i];
    for (int i = n - 1; i >= 0; --i) {
        row = factor + PackedSize(i);
        for (int k = 0; k < i; ++k) b[k] -= row[k] * b[i];
    }
}

void LDLtInverse(const double* factor, double* inverse, int n, double* work)
{
    // Row i of the inverse is the solution for the i-th unit vector; its first i + 1 values are the packed row.
    for (int i = 0; i < n; ++i) {
        std::fill_n(work, n, 0.0);
        work[i] = 1.0;
        LDLtSolve(factor, work, n);
        inverse = std::copy_n(work, i + 1, inverse);
    }
}

bool LinearRegression(const double* design, const double* rhs, int rows, int cols, double* solution, double* covariance,
                      double* work)
{
    double* normal = work;
    double* rowWork = work + PackedSize(cols);
    std::fill_n(normal, PackedSize(cols), 0.0);
    std::fill_n(solution, cols, 0.0);
    for (int r = 0; r < rows; ++r) {
        AddNormalEquation(normal, solution, design + static_cast<std::ptrdiff_t>(r) * cols, rhs[r], cols);
    }
    if (!LDLtFactor(normal, cols, rowWork)) return false;
    LDLtSolve(normal, solution, cols);
    if (covariance == nullptr) return true;

    LDLtInverse(normal, covariance, cols, rowWork);
    const double variance = residualSumOfSquares(design, rhs, rows, cols, solution) / (rows - cols);
    std::for_each_n(covariance, PackedSize(cols), [variance](double& value) { value *= variance; });
    return true;
}

} // namespace Zorvan::symsolvers
