// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlsobjectivefunction.h"

#include "zorvan/numerics/clpsolver.h"
#include "zorvan/numerics/generallinearsystem.h"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

constexpr double noFreedom = 10.0 * std::numeric_limits<double>::epsilon();

void appendRow(Eigen::MatrixXd& lhs, Eigen::VectorXd& rhs, const Eigen::VectorXd& row, double value)
{
    lhs.conservativeResize(rhs.size() + 1, row.size());
    rhs.conservativeResize(rhs.size() + 1);
    lhs.bottomRows(1) = row.transpose();
    rhs(rhs.size() - 1) = value;
}

void requireAsManyRows(const Eigen::MatrixXd& lhs, const Eigen::VectorXd& rhs)
{
    if (lhs.rows() != rhs.size()) throw std::invalid_argument("constraints: as many rows as right-hand sides");
}

} // namespace

CNLSObjectiveFunction::CNLSObjectiveFunction(int numParams, int numMeasurements)
    : m_numParams(numParams), m_numMeasurements(numMeasurements)
{
    if (numParams >= 1) CNLSObjectiveFunction::SetNumParams(static_cast<unsigned int>(numParams));
}

void CNLSObjectiveFunction::SetNumParams(unsigned int numParams)
{
    m_numParams = static_cast<int>(numParams);
    if (m_numParams < 1) return;
    m_equalityConstraintsKernel = Eigen::MatrixXd::Zero(m_numParams, m_numParams + 1);
    m_equalityConstraintsKernel.rightCols(m_numParams).setIdentity();
    m_freeVariablesIndices = Eigen::VectorXi::LinSpaced(m_numParams, 0, m_numParams - 1);
}

void CNLSObjectiveFunction::requireIndex(int index) const
{
    if (index < 0 || index >= m_numParams) throw std::out_of_range("no parameter has this index");
}

void CNLSObjectiveFunction::requireLength(Eigen::Index length) const
{
    if (length != m_numParams) throw std::invalid_argument("a row or vector must be as long as the parameters");
}

Eigen::VectorXd CNLSObjectiveFunction::unit(int index, double value) const
{
    requireIndex(index);
    return value * Eigen::VectorXd::Unit(m_numParams, index);
}

bool CNLSObjectiveFunction::AddEquality(const Eigen::VectorXd& coefficients, double rhs)
{
    requireLength(coefficients.size());
    if (HasEqualities()) requireLength(m_equalitiesLHS.cols());
    Eigen::MatrixXd rows = m_equalitiesLHS;
    Eigen::VectorXd values = m_equalitiesRHS;
    appendRow(rows, values, coefficients, rhs);
    auto solutions = SolveGeneralLinearSystem(rows, values);
    if (!solutions) return false;
    if (solutions->rank <= m_equalitiesRHS.size()) return solutions->rank == m_equalitiesRHS.size();

    m_equalitiesLHS = std::move(rows);
    m_equalitiesRHS = std::move(values);
    m_equalityConstraintsKernel = std::move(solutions->kernel);
    m_freeVariablesIndices = std::move(solutions->freeVariables);
    return true;
}

bool CNLSObjectiveFunction::AddEquality(int index, double value) { return AddEquality(unit(index, 1.0), value); }

void CNLSObjectiveFunction::SetEqualities(const Eigen::MatrixXd& lhs, const Eigen::VectorXd& rhs)
{
    requireAsManyRows(lhs, rhs);
    m_equalitiesLHS = lhs;
    m_equalitiesRHS = rhs;
}

void CNLSObjectiveFunction::AddInequality(const Eigen::VectorXd& coefficients, double rhs)
{
    requireLength(coefficients.size());
    if (HasInequalities()) requireLength(m_inequalitiesLHS.cols());
    appendRow(m_inequalitiesLHS, m_inequalitiesRHS, coefficients, rhs);
}

void CNLSObjectiveFunction::SetInequalities(const Eigen::MatrixXd& lhs, const Eigen::VectorXd& rhs)
{
    requireAsManyRows(lhs, rhs);
    m_inequalitiesLHS = lhs;
    m_inequalitiesRHS = rhs;
}

void CNLSObjectiveFunction::addBound(int index, double value, bool lower)
{
    AddInequality(unit(index, lower ? -1.0 : 1.0), lower ? -value : value);
}

void CNLSObjectiveFunction::AddBounds(int index, double lower, double upper)
{
    addBound(index, lower, true);
    addBound(index, upper, false);
}

bool CNLSObjectiveFunction::IsVariable(int index) const
{
    requireIndex(index);
    const Eigen::Index numFree = m_equalityConstraintsKernel.cols() - 1;
    return numFree > 0 && (m_equalityConstraintsKernel.row(index).tail(numFree).array().abs() >= noFreedom).any();
}

bool CNLSObjectiveFunction::IsBounded(int index) const
{
    if (IsConstant(index)) return true;
    if (!HasInequalities()) return false;
    const auto statusToward = [&](double direction) {
        CLPSolver solver(m_inequalitiesLHS, m_inequalitiesRHS, unit(index, direction));
        solver.Run();
        return solver.GetStatus();
    };
    const LPStatusType upward = statusToward(1.0);
    if (upward < 0) return true;
    return upward != LPUnbounded && statusToward(-1.0) != LPUnbounded;
}

Eigen::VectorXd CNLSObjectiveFunction::BuildParamsFromFree(const Eigen::VectorXd& free) const
{
    if (free.size() != m_freeVariablesIndices.size())
        throw std::invalid_argument("as many values as there are free variables");
    if (m_equalityConstraintsKernel.size() == 0) return {};
    return m_equalityConstraintsKernel.col(0) + m_equalityConstraintsKernel.rightCols(free.size()) * free;
}

void CNLSObjectiveFunction::GetFreeVariablesInequalities(Eigen::MatrixXd& lhs, Eigen::VectorXd& rhs) const
{
    if (!HasInequalities()) {
        lhs = m_inequalitiesLHS;
        rhs = m_inequalitiesRHS;
        return;
    }
    requireLength(m_inequalitiesLHS.cols());
    const Eigen::MatrixXd product = m_inequalitiesLHS * m_equalityConstraintsKernel;
    rhs = m_inequalitiesRHS - product.col(0);
    lhs = product.rightCols(product.cols() - 1);
}

} // namespace Zorvan
