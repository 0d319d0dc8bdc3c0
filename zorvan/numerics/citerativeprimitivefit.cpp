// SPDX-License-Identifier: MIT
#include "zorvan/numerics/citerativeprimitivefit.h"

#include "zorvan/numerics/primitivegeometry.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Zorvan {

using primitives::Point;
using primitives::ToVector;

namespace {

const Logging::CLogger logger(L"Zorvanlib.NLSSolver");

constexpr int maxIterations = 1000;
constexpr double initialDamping = 0.001;
constexpr int maxSweeps = 20;

std::vector<Point> toDouble(const std::array<float, 3>* values, std::size_t count)
{
    std::vector<Point> result(count);
    for (std::size_t i = 0; i < count; ++i) std::copy_n(values[i].begin(), 3, result[i].begin());
    return result;
}

/// Mean and scatter of points that come one by one. Source: Welford, Technometrics 4 (1962).
class CRunningCovariance
{
public:
    void Add(const Eigen::Vector3d& x)
    {
        ++m_count;
        const Eigen::Vector3d before = x - m_mean;
        m_mean += before / m_count;
        const Eigen::Vector3d after = x - m_mean;
        double* value = m_scatter.data();
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j <= i; ++j) *value++ += before(i) * after(j);
        }
    }

    [[nodiscard]] const Eigen::Vector3d& Mean() const { return m_mean; }

    [[nodiscard]] Eigen::Vector3d LargestSpread() const
    {
        auto covariance = m_scatter;
        for (double& value : covariance) value /= m_count - 1.0;
        std::array<double, 3> values{};
        std::array<double, 9> vectors{};
        std::array<double, 6> work{};
        symsolvers::JacobiIteration(covariance.data(), values.data(), vectors.data(), 3, maxSweeps, work.data());
        symsolvers::SortEigenV(values.data(), vectors.data(), 3, false);
        return {vectors[0], vectors[3], vectors[6]};
    }

private:
    double m_count = 0.0;
    Eigen::Vector3d m_mean = Eigen::Vector3d::Zero();
    std::array<double, 6> m_scatter{};
};

} // namespace

double primitives::RootOfMedian(std::vector<double> squares)
{
    return squares.empty() ? nan : std::sqrt(Median(std::move(squares)));
}

CIterativePrimitiveFit::CIterativePrimitiveFit(const std::array<float, 3>* points, const std::array<float, 3>* normals,
                                               std::size_t count, std::size_t numParams)
    : m_points(toDouble(points, count)),
      m_normals(toDouble(normals, count)),
      m_fitPoints(count),
      m_params(Eigen::VectorXd::Constant(static_cast<Eigen::Index>(numParams), primitives::nan))
{
    for (std::size_t i = 0; i < count; ++i) m_fitPoints[i] = {static_cast<std::uint32_t>(i), primitives::nan};
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
CIterativePrimitiveFit::CIterativePrimitiveFit(CIterativePrimitiveFit&& other)
    : m_points(std::move(other.m_points)),
      m_normals(std::move(other.m_normals)),
      m_fitPoints(std::move(other.m_fitPoints)),
      m_objective(std::move(other.m_objective)),
      m_params(other.m_params) // NOLINT(performance-move-constructor-init): the one moved from keeps its result
{
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
CIterativePrimitiveFit& CIterativePrimitiveFit::operator=(CIterativePrimitiveFit&& other)
{
    if (this == &other) return *this;
    m_params = other.m_params;
    m_points = std::move(other.m_points);
    m_normals = std::move(other.m_normals);
    m_fitPoints = std::move(other.m_fitPoints);
    m_objective = std::move(other.m_objective);
    return *this;
}

CNLSSolver::EResult CIterativePrimitiveFit::Run() { return runOptimization(); }

void CIterativePrimitiveFit::SetParams(const Eigen::VectorXd& params)
{
    if (params.size() != m_params.size()) throw std::invalid_argument("invalid number of parameters");
    m_params = params;
    CreateObjectiveFunction();
}

CNLSObjectiveFunction& CIterativePrimitiveFit::GetObjectiveFunction()
{
    if (!m_objective) throw std::logic_error("the fit was moved away");
    return *m_objective;
}

const CNLSObjectiveFunction& CIterativePrimitiveFit::GetObjectiveFunction() const
{
    if (!m_objective) throw std::logic_error("the fit was moved away");
    return *m_objective;
}

CNLSSolver::EResult CIterativePrimitiveFit::runOptimization()
{
    const char* const function = "Zorvan::CIterativePrimitiveFit::runOptimization";
    if (!m_objective) SetParams(EstimateInitialParams());
    CNLSSolver solver(*m_objective, false, -1);
    Eigen::VectorXd x = m_params;
    double rmse = 0.0;
    const auto result = solver.Run(x, rmse, maxIterations, initialDamping, 0, CNLSSolver::Gibbs);
    if (result != CNLSSolver::SmallGradient && result != CNLSSolver::SmallStepSize) {
        logger.Warn({L"(NLS) solver failed", __FILE__, __LINE__, function});
        return result;
    }
    logger.Info({L"(NLS) success", __FILE__, __LINE__, function});
    SetParams(x);
    const Eigen::VectorXd errors = m_objective->Error(x);
    for (std::size_t i = 0; i < m_fitPoints.size(); ++i) m_fitPoints[i].residual = errors(static_cast<Eigen::Index>(i));
    return result;
}

std::pair<Eigen::Vector3d, Eigen::Vector3d> CIterativePrimitiveFit::estimateRotationAxis() const
{
    CRunningCovariance spread;
    primitives::VisitCrossingPairs(m_normals, [&](std::size_t i, std::size_t j) {
        const Eigen::Vector3d p = ToVector(m_points[i]);
        const Eigen::Vector3d q = ToVector(m_points[j]);
        const Eigen::Vector3d u = ToVector(m_normals[i]);
        const Eigen::Vector3d v = ToVector(m_normals[j]);
        const auto [s, t] = primitives::ClosestParams(p, u, q, v);
        spread.Add(p + s * u);
        spread.Add(q + t * v);
    });
    return {primitives::RoundToFloat(spread.Mean()), primitives::RoundToFloat(spread.LargestSpread())};
}

std::pair<double, double> CIterativePrimitiveFit::rangeAlong(const Eigen::Vector3d& point,
                                                             const Eigen::Vector3d& direction) const
{
    if (m_points.empty()) return {primitives::nan, primitives::nan};
    double lowest = std::numeric_limits<double>::infinity();
    double highest = -lowest;
    for (const Point& p : m_points) {
        const double t = primitives::ProjectionParam(ToVector(p), point, direction);
        lowest = std::min(lowest, t);
        highest = std::max(highest, t);
    }
    return {lowest, highest};
}

} // namespace Zorvan
