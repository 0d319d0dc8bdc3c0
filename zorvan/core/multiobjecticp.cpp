// SPDX-License-Identifier: MIT
// The run of a multi-object ICP: one group, its parts, and where the parts come to lie.

#include "zorvan/core/multiobjecticp.h"

#include "zorvan/core/multiobjecticp_state.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/runtime/sharedflag.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Zorvan::CDisjointSets;
using Outcome = std::pair<std::vector<ICPResult>, CDisjointSets>;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double stagnation = 1e-6; // a smaller change of the measure (mm) counts as none
constexpr unsigned maxStagnations = 3;
constexpr unsigned maxItersWithoutProgress = 3;
constexpr double measuredQuantile = 0.75;
constexpr double surelyGoodShare = 0.85; // of the RMSE limit; below it no z-score throws a set out

// The arguments of a call.
struct Settings
{
    const ConfigurationICP& config;
    const std::mt19937& rng;
    const JobGroup& group;
    double dZScoreLimit;
    bool bComputeStatistics;
    const Zorvan::Hooks& hooks;
    EDraws eDraws;

    [[nodiscard]] bool IsAborted() const { return hooks.IsAborted(); }
};

std::vector<ICPResult> resultsAtGivenPoses(const ICPPointSetsWithPoses& sets)
{
    std::vector<ICPResult> results;
    results.reserve(sets.size());
    for (const auto& [set, pose] : sets) results.emplace_back(pose);
    return results;
}

// One group of at least two sets, as long as it holds together.
class GroupRun
{
public:
    GroupRun(const Settings& settings, const ICPPointSetsWithPoses& sets);

    [[nodiscard]] Outcome Compute();

private:
    bool start();
    void iterate();
    [[nodiscard]] double measureConvergence();
    void keep(unsigned iteration, double measure);
    [[nodiscard]] bool hasStopped(unsigned iteration, double measure);
    [[nodiscard]] bool resample(unsigned iteration);
    void separateOutliers();
    [[nodiscard]] bool isGood(std::size_t k, double zScore) const;
    void setStopValues(std::size_t k);

    const Settings& m_settings;
    const ConfigurationICP& m_config;
    const float m_minRadiusSq;
    MultiObjectICPData m_data;
    MultiObjectICPUpdate m_update;
    MultiObjectICPData::Sampling m_sampling;
    Outcome m_outcome;

    double m_bestMeasure = infinity;
    unsigned m_bestIteration = 0;
    double m_previousMeasure = infinity;
    unsigned m_stagnations = 0;
};

GroupRun::GroupRun(const Settings& settings, const ICPPointSetsWithPoses& sets)
    : m_settings(settings),
      m_config(settings.config),
      m_minRadiusSq(static_cast<float>(m_config.dMinQueryRadius * m_config.dMinQueryRadius)),
      m_data(m_config, settings.rng, sets, settings.group, settings.eDraws),
      m_update(sets.size(), settings.group),
      m_outcome(resultsAtGivenPoses(sets), CDisjointSets(static_cast<unsigned>(sets.size())))
{
}

Outcome GroupRun::Compute()
{
    const Stopwatch watch;
    if (!start()) return std::move(m_outcome);
    iterate();
    if (m_outcome.second.GetNumClasses() == 1) separateOutliers();
    logger.Trace(L"ICP: took %.3f s", watch.Seconds());
    logger.Info(L"ICP: =>#%u; RMSE=%.3fmm, StdDev=%.6fmm", m_bestIteration, m_sampling.dMeanRMSE, m_bestMeasure);
    return std::move(m_outcome);
}

// False when the group does not even hold together at the given poses.
bool GroupRun::start()
{
    const double radius = m_config.dInitialQueryRadiusScaling * m_config.dMinQueryRadius;
    m_sampling = m_data.SamplePairs(static_cast<float>(radius * radius));
    for (std::size_t k = 0; k < m_data.Size(); ++k) {
        setStopValues(k);
        ICPResult& result = m_outcome.first[k];
        result.eICPResult = ICP_Undefined;
        result.fStart_OverlapRatio = result.fStop_OverlapRatio;
        result.iStart_NumberOfInliers = result.iStop_NumberOfInliers;
        result.fStart_RMSE = result.fStop_RMSE;
        result.iStop_Iterations = 0;
        result.vStop_StdDev = Vector3::Filled(std::numeric_limits<float>::infinity());
    }
    logger.Trace(L"initial, average RMSE: %.3f mm", m_sampling.dMeanRMSE);
    m_outcome.second = m_sampling.classes;
    if (m_outcome.second.GetNumClasses() < 2) return true;

    logger.Info(L"detected multiple clusters (%u); aborting initialization", m_outcome.second.GetNumClasses());
    for (ICPResult& result : m_outcome.first) result.eICPResult = ICP_InitialOverlapTooSmall;
    return false;
}

// What the latest sampling says of a set, with its pose now.
void GroupRun::setStopValues(std::size_t k)
{
    const auto statistics = m_data.StatisticsOf(k);
    ICPResult& result = m_outcome.first[k];
    result.fStop_OverlapRatio = static_cast<float>(statistics.dMeanCount / m_config.uiNumSamples);
    result.iStop_NumberOfInliers = static_cast<int>(std::lround(statistics.dMeanCount));
    result.fStop_RMSE = static_cast<float>(statistics.dRMSE);
    result.trafo = m_data.Pose(k);
    result.ellipsoid = m_data.Set(k).GetEllipsoid().Transform(result.trafo);
}

void GroupRun::iterate()
{
    for (unsigned t = 0; !m_settings.IsAborted(); ++t) {
        m_update.UpdatePairs(m_data);
        if (!m_update.UpdateTrafos(m_data)) {
            logger.Error(L"ICP: aborting - UpdateTrafos failed (%u)", t);
            return;
        }
        const double measure = measureConvergence();
        if (measure < m_bestMeasure) keep(t, measure);
        if (hasStopped(t, measure)) return;
        if (!resample(t)) return;
    }
}

double GroupRun::measureConvergence()
{
    if (m_settings.bComputeStatistics) return m_update.UpdateStatistics(m_data).dLargest;
    std::vector<double> errors(m_data.Size());
    for (std::size_t k = 0; k < errors.size(); ++k) errors[k] = m_data.StatisticsOf(k).dRMSE;
    return Zorvan::Quantile(std::move(errors), measuredQuantile);
}

void GroupRun::keep(unsigned iteration, double measure)
{
    m_bestMeasure = measure;
    m_bestIteration = iteration;
    m_outcome.second = m_sampling.classes;
    for (std::size_t k = 0; k < m_data.Size(); ++k) {
        setStopValues(k);
        ICPResult& result = m_outcome.first[k];
        result.iStop_Iterations = static_cast<int>(iteration);
        result.vStop_StdDev =
            m_settings.bComputeStatistics ? m_update.Slip(k) : Vector3::Filled(static_cast<float>(measure));
    }
}

bool GroupRun::hasStopped(unsigned iteration, double measure)
{
    const bool isStagnating = std::abs(measure - m_previousMeasure) < stagnation;
    m_stagnations = isStagnating ? m_stagnations + 1 : 0;
    m_previousMeasure = measure;
    if (m_stagnations > maxStagnations) {
        logger.Trace(L"ICP: aborting (iter.: %u) convergence detected (stagnating sigma)", iteration);
        return true;
    }
    if (iteration - m_bestIteration > maxItersWithoutProgress) {
        logger.Trace(L"ICP: aborting (iter.: %u) divergence detected (lack of progress)", iteration);
        return true;
    }
    return iteration == m_config.uiMaxNumIterations || m_settings.IsAborted();
}

bool GroupRun::resample(unsigned iteration)
{
    // The root is passed where a square is expected, on purpose: below 1 mm it keeps the radius well above the errors.
    m_sampling = m_data.SamplePairs(std::sqrt(std::max(m_minRadiusSq, m_sampling.fMaxErrorSq)));
    if (m_sampling.classes.GetNumClasses() < 2) return true;

    m_outcome.second = m_sampling.classes;
    logger.Info(L"ICP# iter %2u/%u: detected multiple clusters (%s); aborting", iteration, m_config.uiMaxNumIterations,
                std::string(m_outcome.second));
    return false;
}

bool GroupRun::isGood(std::size_t k, double zScore) const
{
    const double rmse = m_outcome.first[k].fStop_RMSE;
    if (!(rmse <= m_config.dMaxRMSE)) return false;
    return zScore < m_settings.dZScoreLimit || rmse <= surelyGoodShare * m_config.dMaxRMSE;
}

// Sets that the others cannot be brought to agree with leave the group.
void GroupRun::separateOutliers()
{
    auto& [results, classes] = m_outcome;
    std::vector<double> errors(results.size());
    std::transform(results.begin(), results.end(), errors.begin(), [](const ICPResult& r) { return r.fStop_RMSE; });
    const std::vector<double> zScores = Zorvan::RobustZScores(errors);

    classes = CDisjointSets(static_cast<unsigned>(results.size()));
    std::size_t anchor = 0;
    while (anchor < results.size() && !isGood(anchor, zScores[anchor])) ++anchor;
    if (anchor == results.size()) return;

    for (std::size_t k = 0; k < results.size(); ++k) {
        results[k].fStop_MOICP_ZScore = static_cast<float>(zScores[k]);
        logger.Trace(L"%u: RMSE = %g mm, z_r = %g", static_cast<unsigned>(k), errors[k], zScores[k]);
        if (isGood(k, zScores[k])) {
            classes.Unify(static_cast<unsigned>(k), static_cast<unsigned>(anchor));
            continue;
        }
        logger.Warn(L"bad residual for point set %u: RMSE = %g mm (limit: %g mm), z = %g (limit %g)",
                    static_cast<unsigned>(k), errors[k], m_config.dMaxRMSE, zScores[k], m_settings.dZScoreLimit);
    }
    if (classes.GetNumClasses() < 2 || m_settings.IsAborted()) return;
    logger.Info(L"ICP: detected multiple outlier-clusters (%s); aborting", std::string(classes));
}

Outcome computeICPRegistration_singleCluster(const Settings& settings, const ICPPointSetsWithPoses& sets)
{
    Outcome untouched(resultsAtGivenPoses(sets), CDisjointSets(static_cast<unsigned>(sets.size())));
    if (sets.size() < 2) {
        logger.Warn(L"(MO)ICP: too few point sets (%zi)", sets.size());
        for (ICPResult& result : untouched.first) result.eICPResult = ICP_InitialOverlapTooSmall;
        return untouched;
    }
    logger.Info(L"Running (MO)ICP on %zi point sets", sets.size());
    if (settings.IsAborted()) return untouched;
    return GroupRun(settings, sets).Compute();
}

Outcome computeICPRegistration_multiCluster(const Settings& settings, const ICPPointSetsWithPoses& sets);

// Optimises some of the sets by themselves and enters what comes out.
void optimizeClass(const Settings& settings, const ICPPointSetsWithPoses& sets, const std::vector<unsigned>& members,
                   Outcome& outcome)
{
    logger.Trace(L"Optimizing Cluster of size %u ...", static_cast<unsigned>(members.size()));
    ICPPointSetsWithPoses part;
    for (const unsigned member : members) part.push_back(sets[member]);
    const auto [results, classes] = computeICPRegistration_multiCluster(settings, part);

    for (std::size_t k = 0; k < members.size(); ++k) outcome.first[members[k]] = results[k];
    if (classes.GetNumClasses() < 2) return;
    outcome.second.DismantleClass(members.front());
    for (unsigned k = 0; k < members.size(); ++k) {
        outcome.second.Unify(members[classes.GetClassRep(k)], members[k]);
    }
}

// Each call for a part has fewer sets than its caller, so this ends.
Outcome computeICPRegistration_multiCluster(const Settings& settings, const ICPPointSetsWithPoses& sets)
{
    Outcome outcome = computeICPRegistration_singleCluster(settings, sets);
    if (outcome.second.GetNumClasses() < 2 || settings.IsAborted()) return outcome;

    const CDisjointSets split = outcome.second;
    for (const auto& oneClass : split) {
        const std::vector<unsigned> members(oneClass.begin(), oneClass.end());
        if (members.size() > 1) {
            optimizeClass(settings, sets, members, outcome);
            continue;
        }
        logger.Trace(L"NOT optimizing single image cluster");
        ICPResult& result = outcome.first[members.front()];
        result = ICPResult(sets[members.front()].second);
        result.eICPResult = ICP_FinalOverlapTooSmall;
    }
    return outcome;
}

// Moves a class as a whole back to where its caller had it, as near as the inner corrections allow.
void fixGauge(const ICPPointSetsWithPoses& sets, const std::vector<unsigned>& members, std::vector<ICPResult>& results)
{
    if (members.size() == 1) {
        results[members.front()].trafo = sets[members.front()].second;
        return;
    }
    std::vector<Vector3> from;
    std::vector<Vector3> to;
    for (const unsigned k : members) {
        const auto& [set, pose] = sets[k];
        const Ellipsoid now = set->GetEllipsoid().Transform(results[k].trafo);
        const Ellipsoid given = set->GetEllipsoid().Transform(pose);
        const auto isFinite = [](const Vector3& v) { return v.IsFinite(); };
        // A set with a stray point has no ellipsoid; the others speak for it.
        if (!std::all_of(now.tips.begin(), now.tips.end(), isFinite)) continue;
        from.insert(from.end(), now.tips.begin(), now.tips.end());
        to.insert(to.end(), given.tips.begin(), given.tips.end());
    }
    const CTrafo back = CTrafo::LeastSquaresFit(from.data(), to.data(), from.size(), nullptr);
    if (!back) return;
    for (const unsigned k : members) {
        results[k].trafo = back * results[k].trafo;
        results[k].ellipsoid = sets[k].first->GetEllipsoid().Transform(results[k].trafo);
    }
}

} // namespace

ICPPointSetIf::~ICPPointSetIf() = default;

ICPPointSet::ICPPointSet(std::shared_ptr<const CPointSet> set, const float* weights)
    : m_set(std::move(set)), m_weights(weights)
{
    if (!m_set) throw std::invalid_argument("no point set");
}

std::pair<std::vector<ICPResult>, CDisjointSets>
ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const ICPPointSetsWithPoses& sets,
                       const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, double zScoreLimit,
                       bool computeStatistics, bool, const bool& abort)
{
    const Zorvan::Hooks hooks([&abort] { return Zorvan::ReadSharedFlag(abort); });
    return ComputeICPRegistration(config, rng, sets, group, zScoreLimit, computeStatistics, hooks);
}

std::pair<std::vector<ICPResult>, CDisjointSets>
ComputeICPRegistration(const ConfigurationICP& config, std::mt19937& rng, const ICPPointSetsWithPoses& sets,
                       const std::shared_ptr<Zorvan::CJobScheduler::Group>& group, double zScoreLimit,
                       bool computeStatistics, const Zorvan::Hooks& hooks, EDraws eDraws)
{
    const auto isMissing = [](const auto& setWithPose) { return setWithPose.first == nullptr; };
    if (std::any_of(sets.begin(), sets.end(), isMissing)) throw std::invalid_argument("no point set");

    logger.Info(L"ICP: computation of statistics is %ls", computeStatistics ? L"ENABLED" : L"DISABLED");
    const Settings settings{config, rng, group, zScoreLimit, computeStatistics, hooks, eDraws};
    Outcome outcome = computeICPRegistration_multiCluster(settings, sets);
    for (const auto& oneClass : outcome.second) {
        fixGauge(sets, std::vector<unsigned>(oneClass.begin(), oneClass.end()), outcome.first);
    }
    if (settings.IsAborted())
        logger.Warn(L"ICP: computation aborted; results are unreliable");
    else
        logger.Info(L"ICP: clusting = %ls", std::wstring(outcome.second));
    return outcome;
}

} // namespace prereg
