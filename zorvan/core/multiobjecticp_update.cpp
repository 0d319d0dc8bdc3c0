// SPDX-License-Identifier: MIT
// The joint system: equations of all pairs, their solution, and how certain it is.

#include "zorvan/core/groupwork.h"
#include "zorvan/core/multiobjecticp_state.h"
#include "zorvan/numerics/symsolvers.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <functional>
#include <numbers>
#include <numeric>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Zorvan::symsolvers::PackedSize;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr int maxRefinements = 5;
constexpr double maxResidualNorm = 1e-9;

// b - A x, A packed.
std::vector<double> residualOf(const std::vector<double>& matrix, const std::vector<double>& rhs,
                               const std::vector<double>& x)
{
    std::vector<double> residual = rhs;
    const double* row = matrix.data();
    for (std::size_t i = 0; i < x.size(); row += ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            residual[i] -= row[j] * x[j];
            residual[j] -= row[j] * x[i];
        }
        residual[i] -= row[i] * x[i];
    }
    return residual;
}

double normOf(const std::vector<double>& v)
{
    return std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
}

Vector3 toFloat(const double* v)
{
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

std::array<double, 3> toDouble(const Vector3& v) { return {v.x, v.y, v.z}; }

// A pose that is turned by exactly a right angle, as on a turntable, may round to a sine above 1; its pitch is then no
// number.
std::array<double, 3> eulerAnglesOf(const CTrafo& pose)
{
    std::array<double, 3> angles = toDouble(pose.GetEulerAngles());
    if (std::isnan(angles[1])) angles[1] = std::copysign(std::numbers::pi / 2, -pose(2, 0));
    return angles;
}

} // namespace

void MultiObjectICPUpdate::Equations::Add(const Vector3& point, const Vector3& normalOfPlane, const Vector3& gap,
                                          double weight)
{
    const auto p = toDouble(point);
    const auto n = toDouble(normalOfPlane);
    const double row[parameters] = {
        p[1] * n[2] - p[2] * n[1], p[2] * n[0] - p[0] * n[2], p[0] * n[1] - p[1] * n[0], n[0], n[1], n[2]};
    const auto g = toDouble(gap);
    const double value = g[0] * n[0] + g[1] * n[1] + g[2] * n[2];
    Zorvan::symsolvers::AddNormalEquation(normal.data(), rhs.data(), row, value, weight, parameters);
    dSumSq += weight * value * value;
}

// |rhs - row . d|^2 over all rows, from their sums. In double its error stays below that of the single-precision
// points, but it may fall short of zero.
double MultiObjectICPUpdate::Equations::ResidualSumOfSquares(const std::array<double, parameters>& d) const
{
    double sum = dSumSq;
    for (std::size_t r = 0; r < parameters; ++r) {
        sum -= 2 * rhs[r] * d[r];
        for (std::size_t c = 0; c < parameters; ++c) {
            sum += d[r] * normal[PackedSize(std::max(r, c)) + std::min(r, c)] * d[c];
        }
    }
    return std::max(sum, 0.0);
}

MultiObjectICPUpdate::MultiObjectICPUpdate(std::size_t numSets, JobGroup group)
    : m_numSets(numSets),
      m_numUnknowns(parameters * (numSets - 1)),
      m_group(std::move(group)),
      m_pairs(NumberOfPairs(numSets)),
      m_matrix(PackedSize(m_numUnknowns)),
      m_rhs(m_numUnknowns),
      m_solution(m_numUnknowns),
      m_slips(numSets)
{
}

void MultiObjectICPUpdate::UpdatePairs(const MultiObjectICPData& data)
{
    const Stopwatch watch;
    ForEachIndex(m_group, m_pairs.size(), [this, &data](std::size_t k) { m_pairs[k] = pairSystem(data, k); });

    // By one thread, in the order of the pairs: sums must not depend on who came first.
    std::fill(m_matrix.begin(), m_matrix.end(), 0.0);
    std::fill(m_rhs.begin(), m_rhs.end(), 0.0);
    for (std::size_t k = 0; k < m_pairs.size(); ++k) {
        if (data.Correspondences(k).empty()) continue;
        const auto [i, j] = PairOf(k);
        const Equations& equations = m_pairs[k].weighted;
        addToDiagonal(i, equations, 1.0);
        addToDiagonal(j, equations, -1.0);
        addBetween(i, j, equations);
    }
    logger.Trace(L"UpdatePairs took %.3f s", watch.Seconds());
}

// Each correspondence counts twice: point of i to plane of j, and point of j to plane of i.
MultiObjectICPUpdate::PairSystem MultiObjectICPUpdate::pairSystem(const MultiObjectICPData& data, std::size_t k)
{
    const auto [i, j] = PairOf(k);
    const ICPPointSetIf& fix = data.Set(i);
    const ICPPointSetIf& flt = data.Set(j);
    const CTrafo& fixPose = data.Pose(i);
    const CTrafo& fltPose = data.Pose(j);
    PairSystem system;
    system.bIsWeighted = fix.HasWeights() && flt.HasWeights();
    for (const PairWithError& pair : data.Correspondences(k)) {
        const auto a = static_cast<std::size_t>(pair.fixIndex);
        const auto b = static_cast<std::size_t>(pair.fltIndex);
        const auto [p, n] = fixPose.Transform(*fix.GetPoint(a), *fix.GetNormal(a));
        const auto [q, o] = fltPose.Transform(*flt.GetPoint(b), *flt.GetNormal(b));
        const double weight = system.bIsWeighted ? std::min(fix.GetWeight(a), flt.GetWeight(b)) : 1.0;
        system.weighted.Add(p, o, q - p, weight);
        system.weighted.Add(q, n, q - p, weight);
        if (!system.bIsWeighted) continue;
        system.plain.Add(p, o, q - p, 1.0);
        system.plain.Add(q, n, q - p, 1.0);
    }
    return system;
}

void MultiObjectICPUpdate::addToDiagonal(std::size_t set, const Equations& equations, double sign)
{
    if (set == 0) return;
    const std::size_t first = parameters * (set - 1);
    const double* source = equations.normal.data();
    for (std::size_t r = 0; r < parameters; ++r) {
        double* target = m_matrix.data() + PackedSize(first + r) + first;
        for (std::size_t c = 0; c <= r; ++c) *target++ += *source++;
        m_rhs[first + r] += sign * equations.rhs[r];
    }
}

void MultiObjectICPUpdate::addBetween(std::size_t i, std::size_t j, const Equations& equations)
{
    if (j == 0) return;
    for (std::size_t r = 0; r < parameters; ++r) {
        double* target = m_matrix.data() + PackedSize(parameters * (i - 1) + r) + parameters * (j - 1);
        for (std::size_t c = 0; c < parameters; ++c) {
            *target++ -= equations.normal[PackedSize(std::max(r, c)) + std::min(r, c)];
        }
    }
}

bool MultiObjectICPUpdate::UpdateTrafos(MultiObjectICPData& data)
{
    const Stopwatch watch;
    const std::vector<double> matrix = m_matrix;
    std::vector<double> work(m_numUnknowns);
    const auto m = static_cast<int>(m_numUnknowns);
    if (!Zorvan::symsolvers::LDLtFactor(m_matrix.data(), m, work.data())) {
        logger.Warn(L"  LDLtFactor failed!");
        return false;
    }
    m_solution = m_rhs;
    Zorvan::symsolvers::LDLtSolve(m_matrix.data(), m_solution.data(), m);
    logger.Trace(L"  factor / solve: %.3f s", watch.Seconds());
    refine(matrix, m_rhs);

    for (std::size_t i = 1; i < m_numSets; ++i) {
        const auto x = unknownsOf(i);
        data.Move(i, CTrafo(toFloat(x.data()), toFloat(x.data() + 3)));
    }
    logger.Trace(L"UpdateTrafos(factor,solve) took %.3f s", watch.Seconds());
    return true;
}

void MultiObjectICPUpdate::refine(const std::vector<double>& matrix, const std::vector<double>& rhs)
{
    for (int round = 1; round <= maxRefinements; ++round) {
        std::vector<double> correction = residualOf(matrix, rhs, m_solution);
        const double norm = normOf(correction);
        if (!(norm > maxResidualNorm)) return;
        Zorvan::symsolvers::LDLtSolve(m_matrix.data(), correction.data(), static_cast<int>(m_numUnknowns));
        std::transform(m_solution.begin(), m_solution.end(), correction.begin(), m_solution.begin(), std::plus<>());
        logger.Trace(L"  refinement #%i: norm(b-A.x)= %g", round, norm);
    }
}

std::array<double, 6> MultiObjectICPUpdate::unknownsOf(std::size_t set) const
{
    std::array<double, parameters> x{};
    if (set != 0) std::copy_n(m_solution.data() + parameters * (set - 1), parameters, x.begin());
    return x;
}

MultiObjectICPUpdate::SlipRange MultiObjectICPUpdate::UpdateStatistics(const MultiObjectICPData& data)
{
    const Stopwatch watch;
    const double variance = residualVariance(data);
    ForEachIndex(m_group, m_numSets - 1,
                 [this, &data, variance](std::size_t k) { m_slips[k + 1] = slipOf(data, k + 1, variance); });

    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    SlipRange range{m_numSets, nan, nan};
    for (std::size_t i = 1; i < m_numSets; ++i) {
        const double slip = m_slips[i].Length();
        // A set without a slip, because it has no centre, says nothing about the others.
        if (std::isnan(slip)) continue;
        range.dSmallest = std::fmin(range.dSmallest, slip);
        range.dLargest = std::fmax(range.dLargest, slip);
    }
    logger.Trace(L"UpdateStatistics(inverse) took %.3f s", watch.Seconds());
    return range;
}

double MultiObjectICPUpdate::residualVariance(const MultiObjectICPData& data) const
{
    double sum = 0.0;
    std::size_t count = 0;
    for (std::size_t k = 0; k < m_pairs.size(); ++k) {
        if (data.Correspondences(k).empty()) continue;
        const auto [i, j] = PairOf(k);
        std::array<double, parameters> d = unknownsOf(i);
        const auto xj = unknownsOf(j);
        std::transform(d.begin(), d.end(), xj.begin(), d.begin(), std::minus<>());
        // Without weights, also where the solution had some.
        sum += m_pairs[k].Unweighted().ResidualSumOfSquares(d);
        count += 2 * data.Correspondences(k).size();
    }
    return sum / (static_cast<double>(count) - static_cast<double>(m_numUnknowns));
}

// The set's diagonal block of the inverse, packed. Columns `first` and on of the inverse of L are zero above their
// diagonal, and the diagonal block needs no others: for all sets together a sixth of the work of a whole inverse, six
// columns at a time.
std::array<double, 21> MultiObjectICPUpdate::inverseBlock(std::size_t set) const
{
    const std::size_t first = parameters * (set - 1);
    std::vector<std::array<double, parameters>> columns(m_numUnknowns - first);
    std::array<double, 21> block{};
    for (std::size_t r = 0; r < columns.size(); ++r) {
        const double* row = m_matrix.data() + PackedSize(first + r) + first;
        std::array<double, parameters> y{};
        if (r < parameters) y[r] = 1.0;
        for (std::size_t k = 0; k < r; ++k) {
            for (std::size_t c = 0; c < parameters; ++c) y[c] -= row[k] * columns[k][c];
        }
        columns[r] = y;
        for (std::size_t a = 0; a < parameters; ++a) {
            for (std::size_t b = 0; b <= a; ++b) block[PackedSize(a) + b] += y[a] * y[b] / row[r];
        }
    }
    return block;
}

Vector3 MultiObjectICPUpdate::slipOf(const MultiObjectICPData& data, std::size_t set, double variance) const
{
    std::array<double, 21> covariance = inverseBlock(set);
    for (double& value : covariance) value *= variance;

    // The moved centre goes with the angles of the whole pose, though the covariance belongs to those of the last step.
    // So the slip of a set that is turned, or far from the origin, comes out too large (real scans: 0.05 mm become 0.2
    // at 500 mm). Slips are reported so, and the best iteration is chosen by them.
    const CTrafo& pose = data.Pose(set);
    const auto centre = toDouble(pose * data.Set(set).GetEllipsoid().center);
    const auto angles = eulerAnglesOf(pose);
    const double accuracy = data.Config().dPointAccuracy;
    const double sigma[3] = {accuracy, accuracy, accuracy};
    double slip[3];
    Zorvan::symsolvers::PropagateTrafoErrors(false, slip, sigma, covariance.data(), centre.data(), angles.data());
    for (double& value : slip) value = std::sqrt(value);
    return toFloat(slip);
}

} // namespace prereg
