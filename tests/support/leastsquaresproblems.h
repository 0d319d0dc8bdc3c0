// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/cnlsobjectivefunction.h"

#include <Eigen/Core>

#include <complex>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// A published least-squares problem.
struct LeastSquaresProblem
{
    std::string name;
    int numMeasurements = 0;
    std::vector<Eigen::VectorXd> starts;
    double sumOfSquares = 0.0;  ///< at the minimum
    Eigen::VectorXd minimum;    ///< empty where only the sum is published
    Eigen::VectorXd deviations; ///< standard deviations of the parameters, or empty
    std::function<Eigen::VectorXd(const Eigen::VectorXd&)> error;
    std::function<Eigen::VectorXcd(const Eigen::VectorXcd&)> complexError; ///< the same, for derivatives
};

/// Problems of More, Garbow and Hillstrom (ACM TOMS 7, 1981), each from its start and from ten times that.
std::vector<LeastSquaresProblem> MoreGarbowHillstromProblems();

/// The 27 sets of non-linear regression of NIST's Statistical Reference Datasets, with certified results.
std::vector<LeastSquaresProblem> NistProblems(const std::filesystem::path& folder);

/// Derivatives to the last digit: the imaginary part of a step of 1e-30. Source: Squire and Trapp, SIAM Rev. 40 (1998).
Eigen::MatrixXd ComplexStepJacobian(const LeastSquaresProblem& problem, const Eigen::VectorXd& params);

enum class EDerivatives
{
    Numerical, ///< as the base class takes them
    Exact
};

class CProblemObjective : public Zorvan::CNLSObjectiveFunction
{
public:
    explicit CProblemObjective(LeastSquaresProblem problem, EDerivatives derivatives = EDerivatives::Numerical)
        : CNLSObjectiveFunction(static_cast<int>(problem.starts.front().size()), problem.numMeasurements),
          m_problem(std::move(problem)),
          m_derivatives(derivatives)
    {
    }

    Eigen::VectorXd Error(const Eigen::VectorXd& params) override { return m_problem.error(params); }
    Eigen::MatrixXd Jacobian(const Eigen::VectorXd& free) override
    {
        return m_derivatives == EDerivatives::Exact ? ComplexStepJacobian(m_problem, free)
                                                    : CNLSObjectiveFunction::Jacobian(free);
    }

private:
    LeastSquaresProblem m_problem;
    EDerivatives m_derivatives;
};

} // namespace support
