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
      m_system(IJointSystem::Make(numSets)),
      m_rhs(m_numUnknowns),
      m_solution(m_numUnknowns),
      m_slips(numSets)
{
}

void MultiObjectICPUpdate::UpdatePairs(const MultiObjectICPData& data)
{
    const Stopwatch watch;
    m_touching.clear();
    IJointSystem::SetPairs sets;
    for (std::size_t k = 0; k < NumberOfPairs(m_numSets); ++k) {
        if (data.Correspondences(k).empty()) continue;
        m_touching.push_back(k);
        sets.push_back(PairOf(k));
    }
    m_pairs.resize(m_touching.size());
    ForEachIndex(m_group, m_pairs.size(),
                 [this, &data](std::size_t p) { m_pairs[p] = pairSystem(data, m_touching[p]); });

    // By one thread, in the order of the pairs: sums must not depend on who came first.
    m_system->Clear(sets);
    std::fill(m_rhs.begin(), m_rhs.end(), 0.0);
    for (std::size_t p = 0; p < m_pairs.size(); ++p) {
        const auto [i, j] = sets[p];
        const Equations& equations = m_pairs[p].weighted;
        m_system->Add(i, j, equations.normal);
        addToRhs(i, equations, 1.0);
        addToRhs(j, equations, -1.0);
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

void MultiObjectICPUpdate::addToRhs(std::size_t set, const Equations& equations, double sign)
{
    if (set == 0) return;
    const std::size_t first = parameters * (set - 1);
    for (std::size_t r = 0; r < parameters; ++r) m_rhs[first + r] += sign * equations.rhs[r];
}

bool MultiObjectICPUpdate::UpdateTrafos(MultiObjectICPData& data)
{
    const Stopwatch watch;
    if (!m_system->Factor()) {
        logger.Warn(L"  LDLtFactor failed!");
        return false;
    }
    m_solution = m_rhs;
    m_system->Solve(m_solution);
    logger.Trace(L"  factor / solve: %.3f s", watch.Seconds());
    refine();

    for (std::size_t i = 1; i < m_numSets; ++i) {
        const auto x = unknownsOf(i);
        data.Move(i, CTrafo(toFloat(x.data()), toFloat(x.data() + 3)));
    }
    logger.Trace(L"UpdateTrafos(factor,solve) took %.3f s", watch.Seconds());
    return true;
}

void MultiObjectICPUpdate::refine()
{
    for (int round = 1; round <= maxRefinements; ++round) {
        std::vector<double> correction = m_system->Residual(m_rhs, m_solution);
        const double norm = normOf(correction);
        if (!(norm > maxResidualNorm)) return;
        m_system->Solve(correction);
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
    m_system->Invert();
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
    for (std::size_t p = 0; p < m_pairs.size(); ++p) {
        const auto [i, j] = PairOf(m_touching[p]);
        std::array<double, parameters> d = unknownsOf(i);
        const auto xj = unknownsOf(j);
        std::transform(d.begin(), d.end(), xj.begin(), d.begin(), std::minus<>());
        // Without weights, also where the solution had some.
        sum += m_pairs[p].Unweighted().ResidualSumOfSquares(d);
        count += 2 * data.Correspondences(m_touching[p]).size();
    }
    return sum / (static_cast<double>(count) - static_cast<double>(m_numUnknowns));
}

Vector3 MultiObjectICPUpdate::slipOf(const MultiObjectICPData& data, std::size_t set, double variance) const
{
    IJointSystem::Packed covariance = m_system->InverseBlock(set);
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
