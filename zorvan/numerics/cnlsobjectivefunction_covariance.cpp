// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlsobjectivefunction.h"

#include <Eigen/LU>
#include <Eigen/QR>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace Zorvan {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double step = 0.000123;
constexpr int order = 4;

// First-derivative stencils by their order; the first entry belongs to the offset -(order / 2).
constexpr std::array<std::array<double, 7>, 6> stencils = {{
    {-1.0, 1.0},
    {-1.0 / 2, 0.0, 1.0 / 2},
    {-1.0 / 3, -1.0 / 2, 1.0, -1.0 / 6},
    {1.0 / 12, -2.0 / 3, 0.0, 2.0 / 3, -1.0 / 12},
    {1.0 / 20, -1.0 / 2, -1.0 / 3, 1.0, -1.0 / 4, 1.0 / 30},
    {-1.0 / 60, 3.0 / 20, -3.0 / 4, 0.0, 3.0 / 4, -3.0 / 20, 1.0 / 60},
}};

// Replaces the leading block of the upper triangle by its inverse, as far as its pivots are not negligible.
// @return the size of that block
Eigen::Index invertUpperTriangle(Eigen::MatrixXd& R, double tol)
{
    const double negligible = R.size() > 0 ? std::abs(R(0, 0)) * tol : 0.0;
    Eigen::Index k = 0;
    for (; k < R.cols() && !(std::abs(R(k, k)) <= negligible); ++k) {
        R(k, k) = 1.0 / R(k, k);
        for (Eigen::Index j = 0; j < k; ++j) {
            const double factor = R(k, k) * R(j, k);
            R(j, k) = 0.0;
            for (Eigen::Index i = 0; i <= j; ++i) R(i, k) -= factor * R(i, j);
        }
    }
    return k;
}

// R^-1 R^-T in the upper triangle of the leading block that holds R^-1.
void multiplyByTranspose(Eigen::MatrixXd& R, Eigen::Index rank)
{
    for (Eigen::Index k = 0; k < rank; ++k) {
        for (Eigen::Index j = 0; j < k; ++j) {
            const double factor = R(j, k);
            for (Eigen::Index i = 0; i <= j; ++i) R(i, j) += factor * R(i, k);
        }
        const double factor = R(k, k);
        for (Eigen::Index i = 0; i <= k; ++i) R(i, k) = factor * R(i, k);
    }
}

// Takes the upper triangle back to the order of the columns before the factorisation, and makes it symmetric.
void undoPermutation(Eigen::MatrixXd& R, const Eigen::VectorXi& permutation, Eigen::Index rank)
{
    Eigen::VectorXd diagonal(R.cols());
    for (Eigen::Index j = 0; j < R.cols(); ++j) {
        const int jj = permutation(j);
        for (Eigen::Index i = 0; i <= j; ++i) {
            if (j >= rank) R(i, j) = infinity;
            const int ii = permutation(i);
            if (ii != jj) R(std::max(ii, jj), std::min(ii, jj)) = R(i, j);
        }
        diagonal(jj) = R(j, j);
    }
    R.triangularView<Eigen::StrictlyUpper>() = R.transpose();
    R.diagonal() = diagonal;
}

} // namespace

Eigen::VectorXd CNLSObjectiveFunction::StdDev() { return Eigen::VectorXd::Ones(std::max(GetNumMeasurements(), 0)); }

Eigen::MatrixXd CNLSObjectiveFunction::Jacobian(const Eigen::VectorXd& free)
{
    const int m = GetNumMeasurements();
    if (m == 0) return {};
    Eigen::VectorXd params = BuildParamsFromFree(free);
    Eigen::MatrixXd jacobian(m, free.size());
    for (Eigen::Index j = 0; j < free.size(); ++j)
        writeDerivatives(params, m_freeVariablesIndices(j), step, order, jacobian.col(j).data());
    return jacobian;
}

Eigen::VectorXd CNLSObjectiveFunction::errorFDDerivatives(Eigen::VectorXd& params, int index, double h,
                                                          int stencilOrder)
{
    Eigen::VectorXd derivatives(GetNumMeasurements());
    writeDerivatives(params, index, h, stencilOrder, derivatives.data());
    return derivatives;
}

// Every term is added as soon as it is known, while it still lies in the cache.
void CNLSObjectiveFunction::writeDerivatives(Eigen::VectorXd& params, int index, double h, int stencilOrder,
                                             double* derivatives)
{
    requireIndex(index);
    const auto& stencil = stencils.at(static_cast<std::size_t>(stencilOrder) - 1);
    const double value = params(index);
    const int first = -(stencilOrder / 2);
    const int last = (stencilOrder + 1) / 2;
    Eigen::Map<Eigen::ArrayXd> sum(derivatives, GetNumMeasurements());
    for (int offset = first; offset <= last; ++offset) {
        params(index) = offset * h + value;
        const double coefficient = stencil[static_cast<std::size_t>(offset - first)];
        if (coefficient == 0.0) continue;
        const Eigen::VectorXd error = Error(params);
        if (error.size() != sum.size()) throw std::logic_error("Error returned another number of measurements");
        if (offset == first)
            sum = coefficient * error.array();
        else if (offset < last)
            sum += coefficient * error.array();
        else
            sum = (sum + coefficient * error.array()) / h;
    }
    params(index) = value;
}

Eigen::MatrixXd CNLSObjectiveFunction::getCovariance(Eigen::MatrixXd jacobian, Eigen::VectorXi& singular, double tol)
{
    const Eigen::VectorXd deviations = StdDev();
    if (deviations.size() != jacobian.rows()) throw std::logic_error("StdDev returned another number of measurements");
    jacobian.array().colwise() /= deviations.array();
    const Eigen::Index q = jacobian.cols();
    // Fewer measurements than variables: rows of zeros, which determine nothing.
    if (jacobian.rows() < q) jacobian.conservativeResizeLike(Eigen::MatrixXd::Zero(q, q));

    const Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr(jacobian);
    const Eigen::VectorXi permutation = qr.colsPermutation().indices();
    Eigen::MatrixXd R = qr.matrixQR().topRows(q);
    const Eigen::Index rank = invertUpperTriangle(R, tol);
    multiplyByTranspose(R, rank);
    undoPermutation(R, permutation, rank);
    singular = permutation.tail(q - rank);
    return R;
}

Eigen::MatrixXd CNLSObjectiveFunction::GetCovariance(const Eigen::VectorXd& params, double tol)
{
    requireLength(params.size());
    const int n = m_numParams;
    if (GetNumMeasurements() == 0) return Eigen::MatrixXd::Constant(n, n, infinity);
    const Eigen::VectorXi& free = m_freeVariablesIndices;
    Eigen::VectorXi singular;
    const Eigen::MatrixXd ofFree = getCovariance(Jacobian(params(free)), singular, tol);

    Eigen::MatrixXd covariance = Eigen::MatrixXd::Zero(n, n);
    covariance(free, free) = ofFree;
    const Eigen::MatrixXd kernel = m_equalityConstraintsKernel.rightCols(free.size());
    for (int i = 0; i < n; ++i) {
        if (IsConstant(i) || std::binary_search(free.begin(), free.end(), i)) continue;
        for (int j = 0; j < n; ++j) {
            covariance(i, j) = kernel.row(i) * ofFree * kernel.row(j).transpose();
            covariance(j, i) = covariance(i, j);
        }
    }
    return covariance;
}

Eigen::MatrixXd CNLSObjectiveFunction::GetCorrelation(const Eigen::VectorXd& params, double tol)
{
    Eigen::MatrixXd result = GetCovariance(params, tol);
    const Eigen::VectorXd variances = result.diagonal();
    result.array() /= (variances * variances.transpose()).array();
    return result;
}

double CNLSObjectiveFunction::GetDCriterionValue(const Eigen::VectorXd& free)
{
    const Eigen::MatrixXd jacobian = Jacobian(free);
    return (jacobian.transpose() * jacobian).determinant();
}

} // namespace Zorvan
