// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlssolver.h"

#include "zorvan/platform/clogger.h"

#include <limits>
#include <random>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"Zorvanlib.NLSSolver");

constexpr std::uint64_t seed = 47110815;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double bestPossible = 10.0 * std::numeric_limits<double>::epsilon(); // a parameter
constexpr int maxErrors = 5;
constexpr int maxTries = 5;

Logging::LogText inRun(const wchar_t* text, int line = __builtin_LINE())
{
    return {text, __FILE__, line, "Zorvan::CNLSSolver::Run"};
}

} // namespace

/// How far the series of random starts has come. A run that fails does not count, unless five do in a row.
struct CNLSSolver::Multistart
{
    int runs = 0;
    int attempt = 1; ///< the number that log lines show
    int errors = 0;
};

void CNLSSolver::sampleGibbs(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, std::mt19937_64&,
                             const Uniform& uniform, Eigen::VectorXd& x) const
{
    for (Eigen::Index j = 0; j < x.size(); ++j) {
        double backward = 0.0;
        double forward = 0.0;
        distanceToConstraints(A, b, x, Eigen::VectorXd::Unit(x.size(), j), backward, forward);
        x(j) += uniform(-backward, forward);
    }
}

void CNLSSolver::sampleHitAndRun(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, std::mt19937_64& engine,
                                 const Uniform& uniform, Eigen::VectorXd& x) const
{
    std::normal_distribution<double> normal;
    Eigen::VectorXd direction(x.size());
    for (double& value : direction) value = normal(engine);
    direction.normalize();
    double backward = 0.0;
    double forward = 0.0;
    distanceToConstraints(A, b, x, direction, backward, forward);
    x += uniform(-backward, forward) * direction;
}

bool CNLSSolver::drawStart(Eigen::VectorXd& x, const Eigen::VectorXd& origin, ESampler sampler, std::mt19937_64& engine,
                           const Uniform& uniform) const
{
    const Eigen::MatrixXd& A = m_objective.GetInequalitiesLHS();
    const Eigen::VectorXd& b = m_objective.GetInequalitiesRHS();
    for (int attempt = 0; attempt < maxTries; ++attempt) {
        for (int move = 0; move < m_numSamplerSteps; ++move) {
            if (sampler == Gibbs) sampleGibbs(A, b, engine, uniform, x);
            if (sampler == HitAndRun) sampleHitAndRun(A, b, engine, uniform, x);
        }
        if (checkConstraints(A, b, x)) return true;
        x = origin;
    }
    return false;
}

// The early ends of `run` leave the free variables alone in x.
CNLSSolver::EResult CNLSSolver::runFull(Eigen::VectorXd& x, double& rmse, int maxIter, double tau)
{
    const EResult result = run(x, rmse, maxIter, tau);
    if (result == LSSolutionFailed || result == ConstraintsViolated) x = m_objective.BuildParamsFromFree(x);
    return result;
}

void CNLSSolver::countFailure(EResult result, Multistart& series, int multistarts) const
{
    if (result != AlmostSingularMatrix && result != ConstraintsViolated) {
        series.errors = 0;
        return;
    }
    if (result == AlmostSingularMatrix)
        logger.Warn(inRun(L"(NLS) multistart run #%i/#%i failed: close to singular matrix"), series.attempt,
                    multistarts);
    else
        logger.Warn(inRun(L"(NLS) multistart run #%i/#%i failed: constraint violation\n"), series.attempt, multistarts);
    --series.runs;
    --series.attempt;
    ++series.errors;
}

CNLSSolver::EResult CNLSSolver::Run(Eigen::VectorXd& x, double& rmse, int maxIter, double tau, int multistarts,
                                    ESampler sampler)
{
    const Eigen::VectorXd start = x;
    if (multistarts == 0) return run(x, rmse, maxIter, tau);
    if (!m_objective.HasInequalities()) {
        const EResult result = run(x, rmse, maxIter, tau);
        logger.Warn(inRun(L"(NLS) warning: skipping multistart (no inequality constraints!)"));
        return result;
    }

    EResult result = runFull(x, rmse, maxIter, tau);
    if (result == ConstraintsViolated) x = start;
    Eigen::VectorXd best = x;
    double bestRmse = result == ConstraintsViolated ? infinity : rmse;

    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> share(0.0, 1.0);
    const Uniform uniform = [&](double a, double b) { return a + (b - a) * share(engine); };
    Multistart series;
    for (; series.runs < multistarts; ++series.runs, ++series.attempt) {
        if (bestRmse <= static_cast<double>(x.size()) * bestPossible) {
            logger.Info(inRun(L"(NLS) obtained the best possible residual - omitting further multistart runs"));
            break;
        }
        if (series.errors >= maxErrors) {
            logger.Warn(inRun(L"(NLS) multistart series aborted (too many errors)"));
            break;
        }
        logger.Info(inRun(L"(NLS) SAMPLING FOR MULTISTART RUN %i OF %i (try #%i)"), series.attempt, multistarts,
                    series.errors + 1);
        if (!drawStart(x, start, sampler, engine, uniform)) {
            logger.Warn(inRun(L"(NLS) warmup failed."));
            continue;
        }
        const EResult again = runFull(x, rmse, maxIter, tau);
        countFailure(again, series, multistarts);
        if (bestRmse > rmse) {
            best = x;
            bestRmse = rmse;
            result = again;
        }
        x = start;
    }
    x = best;
    rmse = bestRmse;
    logger.Info(inRun(L"(NLS) final residual RMSE=%g"), rmse);
    return result;
}

} // namespace Zorvan
