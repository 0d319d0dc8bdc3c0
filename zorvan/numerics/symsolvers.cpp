// SPDX-License-Identifier: MIT
#include "zorvan/numerics/symsolvers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

namespace Zorvan::symsolvers {

namespace {

constexpr int parameters = 6; // three angles, three translations
constexpr std::size_t packedParameters = PackedSize(parameters);

double& at(double* packed, int row, int col) { return packed[PackedSize(row) + col]; }

// One plane rotation of the packed matrix and of the eigenvectors: everything a Jacobi step touches.
struct JacobiStep
{
    double s;
    double tau;

    void Rotate(double& g, double& h) const
    {
        const double oldG = g;
        const double oldH = h;
        g = oldG - s * (oldH + oldG * tau);
        h = oldH + s * (oldG - oldH * tau);
    }
};

double rotationTangent(double apq, double h, double g)
{
    if (std::abs(h) + g == std::abs(h)) return apq / h;
    const double theta = 0.5 * h / apq;
    const double t = 1.0 / (std::abs(theta) + std::sqrt(theta * theta + 1.0));
    return theta < 0.0 ? -t : t;
}

void rotateRemaining(double* a, double* vectors, int n, int p, int q, const JacobiStep& step)
{
    for (int j = 0; j < p; ++j) step.Rotate(at(a, p, j), at(a, q, j));
    for (int j = p + 1; j < q; ++j) step.Rotate(at(a, j, p), at(a, q, j));
    for (int j = q + 1; j < n; ++j) step.Rotate(at(a, j, p), at(a, j, q));
    for (int j = 0; j < n; ++j) step.Rotate(vectors[j * n + p], vectors[j * n + q]);
}

double offDiagonalNorm(const double* a, int n)
{
    double sum = 0.0;
    for (int i = 1; i < n; ++i) {
        const double* row = a + PackedSize(i);
        sum += std::inner_product(row, row + i, row, 0.0);
    }
    return std::sqrt(sum);
}

void eliminate(double* a, double* values, double* vectors, int n, int p, int q, double* z, double g)
{
    double& apq = at(a, q, p);
    const double t = rotationTangent(apq, values[q] - values[p], g);
    const double c = 1.0 / std::sqrt(t * t + 1.0);
    const double s = t * c;
    const double h = t * apq;
    z[p] -= h;
    z[q] += h;
    values[p] -= h;
    values[q] += h;
    apq = 0.0;
    rotateRemaining(a, vectors, n, p, q, {s, s / (1.0 + c)});
}

void sweepOnce(double* a, double* values, double* vectors, int n, double* z, double threshold, bool dropTiny)
{
    for (int p = 0; p < n - 1; ++p) {
        for (int q = p + 1; q < n; ++q) {
            double& apq = at(a, q, p);
            const double g = 10.0 * std::abs(apq);
            const bool isTiny =
                std::abs(values[p]) + g == std::abs(values[p]) && std::abs(values[q]) + g == std::abs(values[q]);
            if (dropTiny && isTiny)
                apq = 0.0;
            else if (std::abs(apq) >= threshold)
                eliminate(a, values, vectors, n, p, q, z, g);
        }
    }
}

void swapEigenPairs(double* values, double* vectors, int n, int i, int j)
{
    std::swap(values[i], values[j]);
    for (int row = 0; row < n; ++row) std::swap(vectors[row * n + i], vectors[row * n + j]);
}

// Hoare's quicksort: few values, and every swap moves two columns, so it sorts in place.
template <typename Before>
void quicksort(double* values, double* vectors, int n, int first, int last, Before before)
{
    while (first < last) {
        const double pivot = values[first];
        int i = first - 1;
        int j = last + 1;
        while (true) {
            do ++i;
            while (before(values[i], pivot));
            do --j;
            while (before(pivot, values[j]));
            if (i >= j) break;
            swapEigenPairs(values, vectors, n, i, j);
        }
        quicksort(values, vectors, n, first, j, before);
        first = j + 1;
    }
}

void weightedCentroid(const double* points, const double* weights, unsigned int n, double total, double* centroid)
{
    std::fill_n(centroid, 3, 0.0);
    for (std::size_t k = 0; k < n; ++k) {
        const double w = weights != nullptr ? weights[k] : 1.0;
        for (std::size_t i = 0; i < 3; ++i) centroid[i] += w * points[3 * k + i];
    }
    for (int i = 0; i < 3; ++i) centroid[i] /= total;
}

void quaternionMatrix(const double (&S)[3][3], double* N)
{
    N[0] = S[0][0] + S[1][1] + S[2][2];
    N[1] = S[1][2] - S[2][1];
    N[2] = S[0][0] - S[1][1] - S[2][2];
    N[3] = S[2][0] - S[0][2];
    N[4] = S[0][1] + S[1][0];
    N[5] = S[1][1] - S[0][0] - S[2][2];
    N[6] = S[0][1] - S[1][0];
    N[7] = S[0][2] + S[2][0];
    N[8] = S[1][2] + S[2][1];
    N[9] = S[2][2] - S[0][0] - S[1][1];
}

void rotationOf(const double* q, double (*R)[3])
{
    R[0][0] = q[0] * q[0] + q[1] * q[1] - q[2] * q[2] - q[3] * q[3];
    R[0][1] = 2.0 * (q[1] * q[2] - q[0] * q[3]);
    R[0][2] = 2.0 * (q[0] * q[2] + q[1] * q[3]);
    R[1][0] = 2.0 * (q[0] * q[3] + q[1] * q[2]);
    R[1][1] = q[0] * q[0] - q[1] * q[1] + q[2] * q[2] - q[3] * q[3];
    R[1][2] = 2.0 * (q[2] * q[3] - q[0] * q[1]);
    R[2][0] = 2.0 * (q[1] * q[3] - q[0] * q[2]);
    R[2][1] = 2.0 * (q[0] * q[1] + q[2] * q[3]);
    R[2][2] = q[0] * q[0] - q[1] * q[1] - q[2] * q[2] + q[3] * q[3];
}

// Column `best` of the 4 x 4 eigenvectors as a unit quaternion with a non-negative real part.
void unitColumn(const double* vectors, int best, double* q)
{
    for (int i = 0; i < 4; ++i) q[i] = vectors[4 * i + best];
    const double norm = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    const double scale = (q[0] < 0.0 ? -1.0 : 1.0) / norm;
    for (int i = 0; i < 4; ++i) q[i] *= scale;
}

// The equation of one pair: row (p x n, n), returns the right-hand side (q - p) . n.
double pointToPlaneRow(const double* p, const double* q, const double* n, double* row)
{
    row[0] = p[1] * n[2] - p[2] * n[1];
    row[1] = p[2] * n[0] - p[0] * n[2];
    row[2] = p[0] * n[1] - p[1] * n[0];
    row[3] = n[0];
    row[4] = n[1];
    row[5] = n[2];
    return (q[0] - p[0]) * n[0] + (q[1] - p[1]) * n[1] + (q[2] - p[2]) * n[2];
}

bool solveStep(double* normal, double* b, double* rotation, double* translation)
{
    double work[parameters];
    if (!LDLtFactor(normal, parameters, work)) return false;
    LDLtSolve(normal, b, parameters);
    std::copy_n(b, 3, rotation);
    std::copy_n(b + 3, 3, translation);
    return true;
}

double rowTimesCovariance(const double* a, const double* covariance, const double* b)
{
    double sum = 0.0;
    for (int i = 0; i < parameters; ++i) {
        for (int j = 0; j < parameters; ++j) {
            const int row = std::max(i, j);
            const int col = std::min(i, j);
            sum += a[i] * covariance[PackedSize(row) + col] * b[j];
        }
    }
    return sum;
}

} // namespace

void JacobiIteration(double* a, double* values, double* vectors, int n, int maxSweeps, double* work)
{
    double* b = work;
    double* z = work + n;
    std::fill_n(vectors, static_cast<std::ptrdiff_t>(n) * n, 0.0);
    for (int i = 0; i < n; ++i) {
        vectors[i * n + i] = 1.0;
        values[i] = b[i] = at(a, i, i);
        z[i] = 0.0;
    }
    for (int sweep = 1; sweep <= maxSweeps; ++sweep) {
        const double threshold = offDiagonalNorm(a, n) / (4.0 * n);
        if (threshold < 1e-15) return;
        sweepOnce(a, values, vectors, n, z, threshold, sweep > 4);
        for (int i = 0; i < n; ++i) {
            b[i] += z[i];
            values[i] = b[i];
            z[i] = 0.0;
        }
    }
}

void SortEigenV(double* values, double* vectors, int n, bool ascending)
{
    if (ascending)
        quicksort(values, vectors, n, 0, n - 1, [](double a, double b) { return a < b; });
    else
        quicksort(values, vectors, n, 0, n - 1, [](double a, double b) { return a > b; });
}

bool Procrustes(const double* from, const double* to, const double* weights, double* const q, double (*const R)[3],
                double* const t, unsigned int n)
{
    if (n < 3 || from == nullptr || to == nullptr) return false;

    double total = 0.0;
    for (unsigned int k = 0; k < n; ++k) total += weights != nullptr ? weights[k] : 1.0;
    double centroidFrom[3];
    double centroidTo[3];
    weightedCentroid(from, weights, n, total, centroidFrom);
    weightedCentroid(to, weights, n, total, centroidTo);

    // Unweighted on purpose: the weights act on the centroids alone, and weighted polygon fits rely on that.
    double S[3][3] = {};
    for (std::size_t k = 0; k < n; ++k) {
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t j = 0; j < 3; ++j) {
                S[i][j] += (from[3 * k + i] - centroidFrom[i]) * (to[3 * k + j] - centroidTo[j]);
            }
        }
    }

    double N[10];
    double values[4];
    double vectors[16];
    double work[8];
    quaternionMatrix(S, N);
    JacobiIteration(N, values, vectors, 4, 20, work);
    const auto best = static_cast<int>(std::max_element(values, values + 4) - values);

    unitColumn(vectors, best, q);
    rotationOf(q, R);
    for (int i = 0; i < 3; ++i) {
        t[i] = centroidTo[i] - (R[i][0] * centroidFrom[0] + R[i][1] * centroidFrom[1] + R[i][2] * centroidFrom[2]);
    }
    return std::count(values, values + 4, values[best]) == 1;
}

bool Orthonormalize(double (*const M)[3])
{
    constexpr std::array<double, 9> axes = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::array<double, 9> columns{};
    for (std::size_t col = 0; col < 3; ++col) {
        const double norm = std::sqrt(M[0][col] * M[0][col] + M[1][col] * M[1][col] + M[2][col] * M[2][col]);
        for (std::size_t row = 0; row < 3; ++row) columns[3 * col + row] = M[row][col] / norm;
    }
    double q[4];
    double t[3];
    return Procrustes(axes.data(), columns.data(), nullptr, q, M, t, 3);
}

bool PointToPlaneUpdate(const double* from, const double* to, const double* normals, const double* weights,
                        double* rotation, double* translation, int n)
{
    double normal[packedParameters] = {};
    double b[parameters] = {};
    for (std::ptrdiff_t k = 0; k < n; ++k) {
        double row[parameters];
        const double rhs = pointToPlaneRow(from + 3 * k, to + 3 * k, normals + 3 * k, row);
        const double w = weights != nullptr ? weights[k] : 1.0;
        double* a = normal;
        for (int i = 0; i < parameters; ++i) {
            for (int j = 0; j <= i; ++j) *a++ += w * row[i] * row[j];
            b[i] += w * rhs * row[i];
        }
    }
    return solveStep(normal, b, rotation, translation);
}

bool PointToPlaneUpdateLS(const double* from, const double* to, const double* normals, const double* weights,
                          double* rotation, double* translation, int n, bool singleWeight)
{
    double normal[packedParameters] = {};
    double b[parameters] = {};
    for (std::ptrdiff_t k = 0; k < n; ++k) {
        double row[parameters];
        const double rhs = pointToPlaneRow(from + 3 * k, to + 3 * k, normals + 3 * k, row);
        const double w = weights == nullptr ? 1.0 : weights[singleWeight ? 0 : k];
        AddNormalEquation(normal, b, row, rhs, w, parameters);
    }
    return solveStep(normal, b, rotation, translation);
}

bool PointToPlaneUpdateLS(const double* from, const double* to, const double* normals, const double* /*unused*/,
                          double* rotation, double* translation, int n, double* covariance, bool)
{
    const auto count = static_cast<std::ptrdiff_t>(std::max(n, 0));
    const auto design = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count) * (parameters + 1));
    double* rhs = design.get() + count * parameters;
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        rhs[k] = pointToPlaneRow(from + 3 * k, to + 3 * k, normals + 3 * k, design.get() + k * parameters);
    }

    double solution[parameters];
    double work[packedParameters + parameters];
    if (!LinearRegression(design.get(), rhs, n, parameters, solution, covariance, work)) {
        std::fill_n(covariance, packedParameters, std::numeric_limits<double>::quiet_NaN());
        return false;
    }
    std::copy_n(solution, 3, rotation);
    std::copy_n(solution + 3, 3, translation);
    return true;
}

void TrafoJacobian(double* const J, const double* const point, const double* const angles)
{
    const double sa = std::sin(angles[0]);
    const double ca = std::cos(angles[0]);
    const double sb = std::sin(angles[1]);
    const double cb = std::cos(angles[1]);
    const double sc = std::sin(angles[2]);
    const double cc = std::cos(angles[2]);
    const double R[3][3] = {{cc * cb, cc * sb * sa - sc * ca, cc * sb * ca + sc * sa},
                            {sc * cb, sc * sb * sa + cc * ca, sc * sb * ca - cc * sa},
                            {-sb, cb * sa, cb * ca}};
    const double x = point[0];
    const double y = point[1];
    const double z = point[2];

    // dR/da p = R (0, -z, y); dR/db p = Rz dRy Rx p; dR/dc p = (-(R p).y, (R p).x, 0).
    const double afterX = sa * y + ca * z;
    const double alongB = -sb * x + cb * afterX;
    for (std::ptrdiff_t i = 0; i < 3; ++i) {
        double* row = J + 9 * i;
        row[0] = R[i][2] * y - R[i][1] * z;
        std::fill_n(row + 3, 3, 0.0);
        row[3 + i] = 1.0;
        std::copy_n(R[i], 3, row + 6);
    }
    J[1] = cc * alongB;
    J[10] = sc * alongB;
    J[19] = -cb * x - sb * afterX;
    J[2] = -(R[1][0] * x + R[1][1] * y + R[1][2] * z);
    J[11] = R[0][0] * x + R[0][1] * y + R[0][2] * z;
    J[20] = 0.0;
}

void PropagateTrafoErrors(bool full, double* out, const double* const sigma, const double* const covariance,
                          const double* const point, const double* const angles)
{
    double C[packedParameters];
    std::copy_n(covariance, packedParameters, C);
    double J[27];
    TrafoJacobian(J, point, angles);

    for (std::ptrdiff_t i = 0; i < 3; ++i) {
        for (std::ptrdiff_t j = full ? 0 : i; j <= i; ++j) {
            double variance = rowTimesCovariance(J + 9 * i, C, J + 9 * j);
            for (int k = 0; k < 3; ++k) variance += J[9 * i + 6 + k] * J[9 * j + 6 + k] * (sigma[k] * sigma[k]);
            *out++ = variance;
        }
    }
}

void DumpFull(const double* a, unsigned int rows, unsigned int cols, StorageOrder order)
{
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) std::printf(" %g", a[order == RowMajor ? i * cols + j : j * rows + i]);
        std::printf(";\n");
    }
}

void DumpLowerTri(const double* a, unsigned int n)
{
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) std::printf(" %g", a[PackedSize(std::max(i, j)) + std::min(i, j)]);
        std::printf(";\n");
    }
}

} // namespace Zorvan::symsolvers
