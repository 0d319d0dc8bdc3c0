// SPDX-License-Identifier: MIT
#include "zorvan/numerics/generallinearsystem.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();

/// M x = c on the way to triangular form; `variables` says which one each column belongs to.
struct Elimination
{
    Eigen::MatrixXd M;
    Eigen::VectorXd c;
    std::vector<int> variables;
    double tolerance = 0.0;

    /// Brings the largest entry from (s, s) on to (s, s), the first of equal ones by columns.
    /// @return false when all of them count as zero
    bool bringPivotTo(Eigen::Index s)
    {
        Eigen::Index row = s;
        Eigen::Index col = s;
        double largest = 0.0;
        for (Eigen::Index j = s; j < M.cols(); ++j) {
            for (Eigen::Index i = s; i < M.rows(); ++i) {
                if (!(std::abs(M(i, j)) > largest)) continue;
                largest = std::abs(M(i, j));
                row = i;
                col = j;
            }
        }
        if (!(largest > tolerance)) return false;
        M.row(s).swap(M.row(row));
        std::swap(c(s), c(row));
        M.col(s).swap(M.col(col));
        std::swap(variables[static_cast<std::size_t>(s)], variables[static_cast<std::size_t>(col)]);
        return true;
    }

    /// Takes the multiple of row s from row i that makes column s zero there.
    void eliminate(Eigen::Index i, Eigen::Index s)
    {
        const double factor = M(i, s) / M(s, s);
        M.row(i).tail(M.cols() - s) -= factor * M.row(s).tail(M.cols() - s);
        c(i) -= factor * c(s);
    }

    Eigen::Index triangularise()
    {
        Eigen::Index s = 0;
        for (; s < std::min(M.rows(), M.cols()) && bringPivotTo(s); ++s) {
            for (Eigen::Index i = s + 1; i < M.rows(); ++i) eliminate(i, s);
        }
        return s;
    }

    void substituteBack(Eigen::Index rank)
    {
        for (Eigen::Index s = rank - 1; s >= 0; --s) {
            for (Eigen::Index i = 0; i < s; ++i) eliminate(i, s);
            const double scale = 1.0 / M(s, s);
            M.row(s) *= scale;
            M(s, s) = 1.0;
            c(s) *= scale;
        }
    }
};

double withoutNoise(double value) { return std::abs(value) >= epsilon ? value : 0.0; }

LinearSolutions readSolutions(const Elimination& system, Eigen::Index rank)
{
    const Eigen::Index numFree = system.M.cols() - rank;
    LinearSolutions result{static_cast<int>(rank), Eigen::MatrixXd::Zero(system.M.cols(), 1 + numFree),
                           Eigen::VectorXi(numFree)};
    std::copy(system.variables.begin() + rank, system.variables.end(), result.freeVariables.begin());
    std::sort(result.freeVariables.begin(), result.freeVariables.end());

    for (Eigen::Index s = 0; s < rank; ++s)
        result.kernel(system.variables[static_cast<std::size_t>(s)], 0) = withoutNoise(system.c(s));
    for (Eigen::Index column = rank; column < system.M.cols(); ++column) {
        const int variable = system.variables[static_cast<std::size_t>(column)];
        const auto place = std::lower_bound(result.freeVariables.begin(), result.freeVariables.end(), variable);
        const Eigen::Index t = 1 + (place - result.freeVariables.begin());
        for (Eigen::Index s = 0; s < rank; ++s)
            result.kernel(system.variables[static_cast<std::size_t>(s)], t) = withoutNoise(-system.M(s, column));
        result.kernel(variable, t) = 1.0;
    }
    return result;
}

} // namespace

std::optional<LinearSolutions> SolveGeneralLinearSystem(Eigen::MatrixXd M, Eigen::VectorXd c)
{
    const double largest = M.size() > 0 ? M.cwiseAbs().maxCoeff() : 0.0;
    Elimination system{std::move(M), std::move(c), {}, 0.0};
    system.tolerance = std::max(static_cast<double>(system.M.rows()), 50.0) * epsilon * largest;
    system.variables.resize(static_cast<std::size_t>(system.M.cols()));
    std::iota(system.variables.begin(), system.variables.end(), 0);

    const Eigen::Index rank = system.triangularise();
    for (Eigen::Index i = rank; i < system.c.size(); ++i) {
        if (!(std::abs(system.c(i)) <= system.tolerance)) return std::nullopt;
    }
    system.substituteBack(rank);
    return readSolutions(system, rank);
}

} // namespace Zorvan
