// SPDX-License-Identifier: MIT
// Sampling: which sets of a group touch, and where.

#include "zorvan/core/groupwork.h"
#include "zorvan/core/multiobjecticp_state.h"
#include "zorvan/core/shareddraws.h"
#include "zorvan/numerics/quantile.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

const Logging::CLogger logger(L"QAV.PreRegistration");

constexpr std::size_t minPoints = 6;
constexpr std::size_t minInliers = 6;     // as many as unknowns
constexpr std::size_t enoughMatches = 32; // with shared draws: of fewer there is hardly a scale of the residuals
constexpr unsigned moreDraws = 4;

// True only if no point of the floating box, moved by the pose in single precision, can have a point of the fixed box
// within the radius. Such a pair needs no samples: in a strip of 80 scans, where each touches six others, a pass takes
// 29 ms instead of 64.
bool areApart(const kdtree::Range<3>& fix, const kdtree::Range<3>& flt, const CTrafo& trafo, float radiusSq)
{
    constexpr double rounding = 1e-6; // 16 roundings; a moved point and the corner of a box have fewer
    double distanceSq = 0.0;
    for (unsigned row = 0; row < 3; ++row) {
        double middle = trafo(row, 3);
        double half = 0.0;
        double magnitude = std::abs(middle) + std::max(std::abs(fix.low[row]), std::abs(fix.high[row]));
        for (unsigned col = 0; col < 3; ++col) {
            const double low = flt.low[col];
            const double high = flt.high[col];
            const double m = trafo(row, col);
            middle += m * (low + high) / 2;
            half += std::abs(m) * (high - low) / 2;
            magnitude += std::abs(m) * std::max(std::abs(low), std::abs(high));
        }
        const double gap = std::max(fix.low[row] - middle, middle - fix.high[row]) - half - rounding * magnitude;
        if (gap > 0) distanceSq += gap * gap;
    }
    return distanceSq > radiusSq * (1.0 + 10 * rounding);
}

// The running value takes errors but is compared with distances. The two measures mix, and radii that hosts have tuned
// rest on exactly this.
float largestErrorSq(const std::vector<PairWithError>& pairs)
{
    float largest = 0.0F;
    for (const PairWithError& pair : pairs) {
        if (pair.distSq > largest) largest = pair.errorSq;
    }
    return largest;
}

} // namespace

MultiObjectICPData::MultiObjectICPData(const ConfigurationICP& config, const std::mt19937& rng,
                                       const ICPPointSetsWithPoses& sets, JobGroup group, EDraws eDraws)
    : m_config(config),
      m_rng(rng),
      m_group(std::move(group)),
      m_pairs(NumberOfPairs(sets.size())),
      m_isShared(eDraws == EDraws::Shared && sets.size() > uiMaxSetsOfFullDraws)
{
    for (SampledPair& pair : m_pairs) pair.uiDraws = m_config.uiNumSamples;
    for (const auto& [set, pose] : sets) {
        m_sets.push_back(set);
        m_poses.push_back(pose);
    }
}

MultiObjectICPData::Sampling MultiObjectICPData::SamplePairs(float radiusSq)
{
    const Stopwatch watch;
    if (m_isShared && m_isFirstPass) shareDraws(radiusSq);
    ForEachIndex(m_group, m_pairs.size(), [this, radiusSq](std::size_t k) { samplePair(k, radiusSq); });
    m_isFirstPass = false;
    Sampling sampling = summary();
    const auto isUsed = [](const SampledPair& pair) { return !pair.list.empty(); };
    logger.Trace(L"SamplePairs took %.3f s (%i overlaps, RMSE %.3f mm, max.PtP %.3f mm)", watch.Seconds(),
                 static_cast<int>(std::count_if(m_pairs.begin(), m_pairs.end(), isUsed)), sampling.dMeanRMSE,
                 std::sqrt(sampling.fMaxErrorSq));
    return sampling;
}

void MultiObjectICPData::samplePair(std::size_t k, float radiusSq)
{
    SampledPair& result = m_pairs[k];
    result.list.clear();
    result.dRMSE = std::numeric_limits<double>::quiet_NaN();

    if (!areNear(k, radiusSq)) return;
    std::vector<PairWithError> found = findMatches(k, radiusSq, result.uiDraws);
    // What all draws did not find at first, they will not find later.
    for (unsigned draws = result.uiDraws;
         draws < m_config.uiNumSamples && found.size() < enoughMatches && (m_isFirstPass || !found.empty());) {
        draws = std::min(moreDraws * draws, m_config.uiNumSamples);
        found = findMatches(k, radiusSq, draws);
        if (!found.empty()) result.uiDraws = draws;
    }
    const auto [inliers, rmse] = ComputeNumberOfInliers(found, m_config.dInlierScaling);
    if (inliers < minInliers) return;
    result.list.assign(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(inliers));
    result.dRMSE = rmse;
}

std::vector<PairWithError> MultiObjectICPData::findMatches(std::size_t k, float radiusSq, unsigned draws) const
{
    const auto [i, j] = PairOf(k);
    const ICPPointSetIf& fix = *m_sets[i];
    const ICPPointSetIf& flt = *m_sets[j];
    ConfigurationICP config = m_config;
    config.uiNumSamples = draws;
    std::uniform_int_distribution<int> draw(0, static_cast<int>(flt.Size()) - 1);
    const auto random = [draw, engine = engineOf(k)]() mutable { return draw(engine); };
    std::vector<PairWithError> found;
    prereg::SamplePairs(config, radiusSq, fix.GetPoints(), fix.GetNormals(), fix.GetKdTree(), flt.GetPoints(),
                        flt.GetNormals(), flt.GetKdTree(), m_poses[i].GetInverse(false) * m_poses[j], random, &found,
                        nullptr, true);
    return found;
}

bool MultiObjectICPData::areNear(std::size_t k, float radiusSq) const
{
    const auto [i, j] = PairOf(k);
    if (m_sets[j]->Size() < minPoints) return false;
    const CTrafo trafo = m_poses[i].GetInverse(false) * m_poses[j];
    return !areApart(m_sets[i]->GetKdTree().GetAABB(), m_sets[j]->GetKdTree().GetAABB(), trafo, radiusSq);
}

std::mt19937 MultiObjectICPData::engineOf(std::size_t k) const
{
    std::mt19937 engine = m_rng;
    if (!m_isShared) return engine;
    std::seed_seq seeds{static_cast<std::size_t>(engine()), k};
    return std::mt19937(seeds);
}

// So that a pass draws each point of a set about once, and the pairs of a set with few partners draw all.
void MultiObjectICPData::shareDraws(float radiusSq)
{
    std::vector<SampledSet> sets(Size());
    for (std::size_t i = 0; i < sets.size(); ++i) sets[i].uiPoints = m_sets[i]->Size();
    for (std::size_t k = 0; k < m_pairs.size(); ++k) {
        if (!areNear(k, radiusSq)) continue;
        const auto [i, j] = PairOf(k);
        ++sets[i].uiPartners;
        ++sets[j].uiPartners;
    }
    for (std::size_t k = 0; k < m_pairs.size(); ++k) {
        const auto [i, j] = PairOf(k);
        m_pairs[k].uiDraws = SharedDraws(sets[i], sets[j], m_config.uiNumSamples);
    }
}

// In the order of the pairs, whoever sampled them: the result must not depend on the number of threads.
MultiObjectICPData::Sampling MultiObjectICPData::summary() const
{
    Sampling sampling{0.0F, 0.0, Zorvan::CDisjointSets(static_cast<unsigned>(Size()))};
    std::size_t count = 0;
    for (std::size_t k = 0; k < m_pairs.size(); ++k) {
        if (!std::isfinite(m_pairs[k].dRMSE)) continue;
        ++count;
        sampling.dMeanRMSE += m_pairs[k].dRMSE;
        sampling.fMaxErrorSq = std::max(sampling.fMaxErrorSq, largestErrorSq(m_pairs[k].list));
        const auto [i, j] = PairOf(k);
        sampling.classes.Unify(static_cast<unsigned>(i), static_cast<unsigned>(j));
    }
    sampling.dMeanRMSE /= static_cast<double>(count);
    return sampling;
}

MultiObjectICPData::SetStatistics MultiObjectICPData::StatisticsOf(std::size_t i) const
{
    double sum = 0.0;
    std::vector<double> errors;
    for (std::size_t j = 0; j < Size(); ++j) {
        if (j == i) continue;
        const SampledPair& pair = m_pairs[PairIndex(i, j)];
        if (pair.list.empty() || !std::isfinite(pair.dRMSE)) continue;
        // As many as if all had been drawn.
        sum += static_cast<double>(pair.list.size()) * m_config.uiNumSamples / pair.uiDraws;
        errors.push_back(pair.dRMSE);
    }
    if (errors.empty()) return {};
    const double meanCount = sum / static_cast<double>(errors.size());
    return {meanCount, Zorvan::Median(std::move(errors))};
}

} // namespace prereg
