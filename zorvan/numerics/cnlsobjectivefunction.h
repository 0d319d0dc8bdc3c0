// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/eigenabi.h"
#include "zorvan/platform/export.h"

#include <Eigen/Core>

namespace Zorvan {

/// A least-squares problem for `CNLSSolver`: n parameters, m residuals, linear equalities and inequalities.
///
///     class CLine : public Zorvan::CNLSObjectiveFunction
///     {
///     public:
///         CLine(const Eigen::VectorXd& x, const Eigen::VectorXd& y) : CNLSObjectiveFunction(2, int(x.size())), ...
///         Eigen::VectorXd Error(const Eigen::VectorXd& p) override { return (p(0) + p(1) * x.array()) - y.array(); }
///     };
///
/// `Error` is all that a subclass owes. Equalities are eliminated: what the solver moves are the d free variables f,
/// and the full vector is p = K [1; f] with the kernel K of the equalities. Without any, f is p.
///
/// Surprises that callers rely on: the numerical Jacobian takes one absolute step, whatever the size of a parameter,
/// and moves a free variable alone, not the parameters that an equality ties to it; correlations are divided by
/// variances. Indices outside 0 .. n - 1 throw std::out_of_range, rows of another length than n std::invalid_argument.
/// One object serves one thread at a time.
class ZORVAN_API CNLSObjectiveFunction
{
public:
    CNLSObjectiveFunction(int numParams, int numMeasurements);
    CNLSObjectiveFunction(const CNLSObjectiveFunction&) = default;
    CNLSObjectiveFunction& operator=(const CNLSObjectiveFunction&) = default;
    virtual ~CNLSObjectiveFunction() = default;

    /// @param params  all n parameters
    /// @return        m signed residuals, not divided by their standard deviations
    virtual Eigen::VectorXd Error(const Eigen::VectorXd& params) = 0;
    /// @return m standard deviations of the measurements; here 1 each
    virtual Eigen::VectorXd StdDev();
    /// @param free  d free variables; @return m x d. Here a central difference of fourth order, see
    /// `errorFDDerivatives`
    virtual Eigen::MatrixXd Jacobian(const Eigen::VectorXd& free);
    /// Starts again without equalities in the reduction; rows that are stored stay, in their old length.
    virtual void SetNumParams(unsigned int numParams);
    [[nodiscard]] virtual int GetNumParams() const { return m_numParams; }
    [[nodiscard]] virtual int GetNumMeasurements() const { return m_numMeasurements; }
    virtual void SetNumMeasurements(int numMeasurements) { m_numMeasurements = numMeasurements; }

    /// Demands coefficients . p = rhs.
    /// @return true when it is met from now on, also when others imply it already; false, and nothing changes, when it
    ///         contradicts them
    bool AddEquality(const Eigen::VectorXd& coefficients, double rhs);
    /// Fixes one parameter.
    bool AddEquality(int index, double value);
    /// Replaces the rows alone: kernel and free variables stay as they are until the next `AddEquality`.
    void SetEqualities(const Eigen::MatrixXd& lhs, const Eigen::VectorXd& rhs);

    /// Demands coefficients . p <= rhs; nothing is checked.
    void AddInequality(const Eigen::VectorXd& coefficients, double rhs);
    void SetInequalities(const Eigen::MatrixXd& lhs, const Eigen::VectorXd& rhs);
    void AddLowerBound(int index, double value) { addBound(index, value, true); }
    void AddUpperBound(int index, double value) { addBound(index, value, false); }
    void AddBounds(int index, double lower, double upper);

    [[nodiscard]] bool HasEqualities() const { return m_equalitiesRHS.size() > 0; }
    [[nodiscard]] bool HasInequalities() const { return m_inequalitiesRHS.size() > 0; }
    /// Whether the equalities leave the parameter any freedom.
    [[nodiscard]] bool IsVariable(int index) const;
    [[nodiscard]] bool IsConstant(int index) const { return !IsVariable(index); }
    /// Whether the inequalities keep the parameter from both infinities. Zero counts as a lower bound of every
    /// parameter, since the linear programme behind it knows no negative ones: an upper bound alone is enough.
    [[nodiscard]] bool IsBounded(int index) const;
    [[nodiscard]] bool IsUnbounded(int index) const { return !IsBounded(index); }

    [[nodiscard]] const Eigen::MatrixXd& GetEqualitiesLHS() const { return m_equalitiesLHS; }
    [[nodiscard]] const Eigen::VectorXd& GetEqualitiesRHS() const { return m_equalitiesRHS; }
    [[nodiscard]] const Eigen::MatrixXd& GetInequalitiesLHS() const { return m_inequalitiesLHS; }
    [[nodiscard]] const Eigen::VectorXd& GetInequalitiesRHS() const { return m_inequalitiesRHS; }
    /// n x (1 + d): a particular solution of the equalities, then a column for each free variable.
    [[nodiscard]] const Eigen::MatrixXd& GetEqualityConstraintsKernel() const { return m_equalityConstraintsKernel; }
    /// d indices, ascending.
    [[nodiscard]] const Eigen::VectorXi& GetFreeVariablesIndices() const { return m_freeVariablesIndices; }

    [[nodiscard]] Eigen::VectorXd BuildParamsFromFree(const Eigen::VectorXd& free) const;
    /// The inequalities in terms of the free variables: lhs f <= rhs.
    void GetFreeVariablesInequalities(Eigen::MatrixXd& lhs, Eigen::VectorXd& rhs) const;

    /// Covariance of all n parameters, from the Jacobian and the standard deviations of the measurements alone: where
    /// those are unknown, multiply by the residual variance |r|^2 / (m - d).
    /// @param tol  a parameter whose pivot is smaller than tol times the largest is undetermined
    /// @return     n x n; infinite for what is undetermined, and all of it when m = 0; zero for constant parameters
    Eigen::MatrixXd GetCovariance(const Eigen::VectorXd& params, double tol);
    /// The covariance with entry (i, j) divided by C(i, i) C(j, j), without a root: callers rely on that form.
    Eigen::MatrixXd GetCorrelation(const Eigen::VectorXd& params, double tol);
    /// det(J^T J), what a D-optimal design maximises; 1 without free variables.
    double GetDCriterionValue(const Eigen::VectorXd& free);

protected:
    /// Row with +1 at `index`, or -1 and the negated value for a lower bound.
    void addBound(int index, double value, bool lower);

    /// Derivative of `Error` by one parameter with a stencil of the given order, 1 to 6; each entry of it that is not
    /// zero is one call of `Error`. Source: Fornberg, Mathematics of Computation 51 (1988).
    /// @param params  changed meanwhile, and restored
    Eigen::VectorXd errorFDDerivatives(Eigen::VectorXd& params, int index, double step, int order);

    /// (J^T diag(1 / sigma^2) J)^-1 by a pivoted QR factorisation. Source: MINPACK, covar.
    /// @param jacobian  m x q
    /// @param singular  receives the columns that the others explain, q minus the rank
    /// @return          q x q, infinite in rows and columns of these
    Eigen::MatrixXd getCovariance(Eigen::MatrixXd jacobian, Eigen::VectorXi& singular, double tol);

private:
    void writeDerivatives(Eigen::VectorXd& params, int index, double step, int order, double* derivatives);
    void requireIndex(int index) const;
    void requireLength(Eigen::Index length) const;
    [[nodiscard]] Eigen::VectorXd unit(int index, double value) const;

    int m_numParams;
    int m_numMeasurements;
    Eigen::MatrixXd m_equalitiesLHS;
    Eigen::VectorXd m_equalitiesRHS;
    Eigen::MatrixXd m_inequalitiesLHS;
    Eigen::VectorXd m_inequalitiesRHS; ///< A p <= b
    Eigen::MatrixXd m_equalityConstraintsKernel;
    Eigen::VectorXi m_freeVariablesIndices;
};

} // namespace Zorvan
