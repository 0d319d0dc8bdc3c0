// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlssolver.h"

#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"

#include <Eigen/QR>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"Zorvanlib.NLSSolver");

constexpr double eps2 = 2.0 * std::numeric_limits<double>::epsilon();
constexpr double huge = 4503599627370496.0; // 2^52
constexpr double madToSigma = 0.6745;
constexpr double tukeyLimit = 4.6851; // 95 % efficiency on normal residuals
constexpr double leastFactor = 0.3333333333333333;
constexpr int iterationsPerLine = 5;

constexpr wchar_t messages[][32] = {L"small gradient (++)",     L"small step size (++)",
                                    L"maxiter exceeded (-)",    L"almost singular matrix (-)",
                                    L"LS solution failed (--)", L"constraints violated (-)"};

Logging::LogText inRun(const wchar_t* text, int line = __builtin_LINE())
{
    return {text, __FILE__, line, "Zorvan::CNLSSolver::run"};
}

double largestMagnitude(const Eigen::VectorXd& v)
{
    return v.size() > 0 ? v.cwiseAbs().maxCoeff<Eigen::PropagateNaN>() : 0.0;
}

double medianAbsoluteDeviation(const Eigen::VectorXd& v)
{
    std::vector<double> values(v.begin(), v.end());
    const double median = Median(values);
    for (double& value : values) value = std::abs(value - median);
    return Median(std::move(values));
}

double dampingFactor(double dF, double dL)
{
    const double factor = std::pow(1.0 - (2.0 * dF / dL - 1.0), 3.0);
    return factor > leastFactor ? factor : leastFactor;
}

} // namespace

/// Where the iteration stands: free variables, their residuals and Jacobian, and the equations of the next step.
struct CNLSSolver::Iterate
{
    Eigen::VectorXd x;
    Eigen::VectorXd residuals;
    Eigen::MatrixXd jacobian;
    Eigen::MatrixXd weighted; ///< J^T W
    Eigen::MatrixXd normalMatrix;
    Eigen::VectorXd descent; ///< the negative gradient
    double damping = 0.0;
    double growth = 1.0;

    // The last step that was tried. Both keep their memory from step to step: what is freed at every step goes back to
    // the system, and every page of it is fetched again.
    Eigen::VectorXd triedResiduals;
    Eigen::MatrixXd triedJacobian;

    [[nodiscard]] double Rmse() const { return residuals.norm() / std::sqrt(static_cast<double>(residuals.size())); }
};

CNLSSolver::CNLSSolver(CNLSObjectiveFunction& objective, bool robustness, int numSamplerSteps)
    : m_objective(objective),
      m_robustness(robustness),
      m_numSamplerSteps(numSamplerSteps < 1 ? 2 * objective.GetNumParams() : numSamplerSteps)
{
}

const wchar_t* CNLSSolver::GetMessage(EResult result)
{
    return result >= SmallGradient && result <= ConstraintsViolated ? messages[result] : L"";
}

CNLSSolver::EResult CNLSSolver::run(Eigen::VectorXd& x, double& rmse, int maxIter, double tau)
{
    if (x.size() != m_objective.GetNumParams())
        throw std::invalid_argument("the start must have as many values as there are parameters");
    const Eigen::VectorXi& freeIndices = m_objective.GetFreeVariablesIndices();
    Inequalities limits;
    m_objective.GetFreeVariablesInequalities(limits.A, limits.b);
    x = Eigen::VectorXd(x(freeIndices));
    if (!checkConstraints(limits.A, limits.b, x) && !isFeasible(limits)) return ConstraintsViolated;

    Iterate at;
    at.x = x;
    at.residuals = error(x);
    if (at.residuals.size() == 0) return LSSolutionFailed;
    at.jacobian = m_objective.Jacobian(x);
    formEquations(at);
    at.damping = tau * (x.size() > 0 ? std::max(0.0, at.normalMatrix.diagonal().maxCoeff()) : 0.0);
    logger.Info(inRun(L"(NLS) iter. 0: residual RMSE=%g"), at.Rmse());

    int iter = 0;
    const EResult result = iterate(at, limits, maxIter, iter);
    rmse = at.Rmse();
    logger.Info(inRun(L"(NLS) stopped after %i iterations ('%s', residual RMSE=%g)"), iter,
                std::wstring_view(GetMessage(result)), rmse);
    x = m_objective.BuildParamsFromFree(at.x);
    return result;
}

CNLSSolver::EResult CNLSSolver::iterate(Iterate& at, const Inequalities& limits, int maxIter, int& iter) const
{
    for (iter = 1; iter <= maxIter; ++iter) {
        if (largestMagnitude(at.descent) <= eps2 || largestMagnitude(at.residuals) <= eps2) return SmallGradient;
        // Every step would be NaN, and rejected, up to the last iteration.
        if (at.descent.hasNaN()) break;
        const Eigen::VectorXd h = nextStep(at, limits);
        const double size = at.x.norm() + eps2;
        if (h.norm() <= size * eps2) return SmallStepSize;
        if (h.norm() >= size * huge) return AlmostSingularMatrix;
        tryStep(at, h, iter);
    }
    iter = std::max(maxIter, 0);
    return MaxIterExceeded;
}

Eigen::VectorXd CNLSSolver::nextStep(const Iterate& at, const Inequalities& limits) const
{
    Eigen::MatrixXd damped = at.normalMatrix;
    damped.diagonal().array() += at.damping;
    Eigen::VectorXd h = damped.colPivHouseholderQr().solve(at.descent);
    if (limits.b.size() == 0) return h;
    h = cutBack(limits.A, limits.b, at.x, h, false);
    if (!checkConstraints(limits.A, limits.b, at.x + h))
        logger.Warn(inRun(L"(NLS) warning: intermediate solution violates constraints"));
    return h;
}

void CNLSSolver::tryStep(Iterate& at, const Eigen::VectorXd& h, int iter) const
{
    Eigen::VectorXd x = at.x + h;
    Eigen::VectorXd& residuals = at.triedResiduals;
    residuals = error(x);
    at.triedJacobian = m_objective.Jacobian(x);
    if (residuals.size() != at.residuals.size()) throw std::logic_error("Error changed the number of measurements");
    const double dF = (at.residuals.dot(at.residuals) - residuals.dot(residuals)) * 0.5;
    const double dL = h.dot(at.damping * h + at.descent) * 0.5;
    if (!(dL > 0.0 && dF > 0.0)) {
        // Before any step was accepted the growth is 1: the first rejection repeats the same step.
        at.damping *= at.growth;
        at.growth += at.growth;
        return;
    }
    at.x = std::move(x);
    at.residuals.swap(residuals);
    at.jacobian.swap(at.triedJacobian);
    formEquations(at);
    at.damping *= dampingFactor(dF, dL);
    at.growth = 2.0;
    if (iter % iterationsPerLine == 0) logger.Info(inRun(L"(NLS) iter. %i: residual RMSE=%g"), iter, at.Rmse());
}

void CNLSSolver::formEquations(Iterate& at) const
{
    const Eigen::VectorXd weights = computeWeight(at.residuals, false);
    if (at.jacobian.rows() != weights.size() || at.jacobian.cols() != at.x.size())
        throw std::logic_error("Jacobian must have a row for each measurement and a column for each free variable");
    at.weighted = at.jacobian.transpose() * weights.asDiagonal();
    at.normalMatrix = at.weighted * at.jacobian;
    at.descent = -(at.weighted * at.residuals);
}

Eigen::VectorXd CNLSSolver::error(const Eigen::VectorXd& free) const
{
    Eigen::VectorXd residuals = m_objective.Error(m_objective.BuildParamsFromFree(free));
    if (residuals.size() != 0 && residuals.size() != m_objective.GetNumMeasurements())
        throw std::logic_error("Error returned another number of measurements");
    return residuals;
}

Eigen::VectorXd CNLSSolver::computeWeight(const Eigen::VectorXd& residuals, bool) const
{
    Eigen::VectorXd weights = m_objective.StdDev().array().square().inverse();
    if (weights.size() != residuals.size()) throw std::logic_error("StdDev returned another number of measurements");
    if (!m_robustness) return weights;
    const double spread = medianAbsoluteDeviation(residuals) / madToSigma;
    for (Eigen::Index i = 0; i < weights.size(); ++i) {
        const double u = residuals(i) / spread;
        weights(i) *= psiTukey(u) / u;
    }
    return weights;
}

double CNLSSolver::psiTukey(double u) const
{
    if (std::abs(u) > tukeyLimit) return 0.0;
    const double share = u / tukeyLimit;
    const double rest = 1.0 - share * share;
    return u * rest * rest;
}

} // namespace Zorvan
