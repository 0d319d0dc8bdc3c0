// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/cnlsobjectivefunction.h"
#include "zorvan/platform/export.h"

#include <Eigen/Core>

#include <functional>
#include <optional>
#include <random>

namespace Zorvan {

/// Minimises the squared error of a `CNLSObjectiveFunction` over its free variables, within its linear inequalities.
///
///     Zorvan::CNLSSolver solver(objective, false, -1);
///     Eigen::VectorXd x = start; // all parameters
///     double rmse = 0.0;
///     const auto result = solver.Run(x, rmse, 100, 0.001, 0, Zorvan::CNLSSolver::Gibbs);
///     if (result == CNLSSolver::SmallGradient || result == CNLSSolver::SmallStepSize) use(x);
///
/// Damped Gauss-Newton steps; the damping follows the gain of each step. A step ends at the first inequality that it
/// meets, and glides along one that it starts on. With robustness, Tukey's biweight takes weight from outliers. Source:
/// Madsen, Nielsen and Tingleff, Methods for Non-Linear Least Squares Problems (2004); Huber, Robust Statistics (1981).
///
/// Departures from these that callers rely on:
/// - The gain of a step compares plain sums of squares with a prediction from weighted ones, and the factor of the
///   damping is the cube of all of 1 - (2 gain - 1). With standard deviations well below 1 the damping then grows at
///   every step, and the run may end short of the minimum: scale the errors so that the deviations are about 1.
/// - Step and parameters are compared by length: from a vector of zeros, a first step of 2 or longer gives
///   AlmostSingularMatrix.
/// - Feasibility is judged by a linear programme over non-negative variables: a start outside inequalities that only
///   negative values meet gives ConstraintsViolated.
/// - A step glides along an inequality only from a point that lies on it to 2e-15. On an oblique one rounding may end
///   the run there, short of the best point.
/// - A residual of exactly zero has no robust weight (0 / 0), and the run then ends where it is.
///
/// Single-threaded; the objective serves one solver at a time.
class ZORVAN_API CNLSSolver
{
public:
    enum ESampler : int
    {
        Gibbs = 0,
        HitAndRun = 1
    };

    enum EResult : int
    {
        SmallGradient = 0, ///< the first two are successes
        SmallStepSize = 1,
        MaxIterExceeded = 2,
        AlmostSingularMatrix = 3,
        LSSolutionFailed = 4, ///< `Error` returned nothing
        ConstraintsViolated = 5
    };

    /// @param objective        must outlive the solver
    /// @param numSamplerSteps  moves of the sampler for each further start; below 1: twice the number of parameters
    CNLSSolver(CNLSObjectiveFunction& objective, bool robustness, int numSamplerSteps);

    void SetLogging(bool logging) { m_logging = logging; }
    void SetRobustness(bool robustness) { m_robustness = robustness; }
    /// Kept for callers; steps are projected either way, and log lines are written.
    void SetUseProjectionOfUpdates(bool use) { m_useProjectionOfUpdates = use; }

    /// @param x            all n parameters: the start, then the best that was found. After LSSolutionFailed or
    ///                     ConstraintsViolated without further starts: the free variables of the start
    /// @param rmse         receives |r| / sqrt(m); untouched in these two cases
    /// @param tau          initial damping, as a share of the largest diagonal entry of J^T W J; 0.001 near a solution
    /// @param multistarts  runs from random feasible points after the first, which keep the best; needs inequalities
    ///                     that enclose the parameters. The same starts every time
    /// @throws std::invalid_argument for an x or constraints of another length than n, std::logic_error for an
    ///         objective that returns another number of residuals than it says
    EResult Run(Eigen::VectorXd& x, double& rmse, int maxIter, double tau, int multistarts, ESampler sampler);

    /// "small gradient (++)" and so on; empty for a value that is none.
    [[nodiscard]] static const wchar_t* GetMessage(EResult result);

private:
    struct Inequalities
    {
        Eigen::MatrixXd A;
        Eigen::VectorXd b;
    };
    struct Iterate;
    struct Multistart;
    using Uniform = std::function<double(double, double)>;

    EResult run(Eigen::VectorXd& x, double& rmse, int maxIter, double tau);
    EResult iterate(Iterate& at, const Inequalities& limits, int maxIter, int& iter) const;
    [[nodiscard]] Eigen::VectorXd nextStep(const Iterate& at, const Inequalities& limits) const;
    void tryStep(Iterate& at, const Eigen::VectorXd& h, int iter) const;
    void formEquations(Iterate& at) const;
    [[nodiscard]] Eigen::VectorXd error(const Eigen::VectorXd& free) const;
    [[nodiscard]] Eigen::VectorXd computeWeight(const Eigen::VectorXd& residuals, bool) const;
    [[nodiscard]] double psiTukey(double u) const;

    [[nodiscard]] bool isFeasible(Inequalities limits) const;
    [[nodiscard]] bool checkConstraints(const Eigen::MatrixXd& A, const Eigen::VectorXd& b,
                                        const Eigen::VectorXd& x) const;
    void shrinkConstraints(const Eigen::MatrixXd& A, Eigen::VectorXd& b, double amount) const;
    [[nodiscard]] Eigen::VectorXd cutBack(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& x,
                                          const Eigen::VectorXd& h, bool second) const;
    void distanceToConstraints(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& x,
                               const Eigen::VectorXd& d, double& backward, double& forward) const;

    EResult runFull(Eigen::VectorXd& x, double& rmse, int maxIter, double tau);
    [[nodiscard]] bool drawStart(Eigen::VectorXd& x, const Eigen::VectorXd& origin, ESampler sampler,
                                 std::mt19937_64& engine, const Uniform& uniform) const;
    void countFailure(EResult result, Multistart& series, int multistarts) const;
    void sampleGibbs(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, std::mt19937_64& engine,
                     const Uniform& uniform, Eigen::VectorXd& x) const;
    void sampleHitAndRun(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, std::mt19937_64& engine,
                         const Uniform& uniform, Eigen::VectorXd& x) const;

    CNLSObjectiveFunction& m_objective;
    bool m_logging = true;
    bool m_useProjectionOfUpdates = true;
    bool m_robustness;
    int m_numSamplerSteps;
};

} // namespace Zorvan
