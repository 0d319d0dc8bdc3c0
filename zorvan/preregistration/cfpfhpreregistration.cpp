// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include "zorvan/core/orientedbox.h"
#include "zorvan/platform/clogger.h"
#include "zorvan/platform/simd.h"
#include "zorvan/preregistration/cfpfhpolygon.h"
#include "zorvan/preregistration/settingsserialization.h"

#include <algorithm>
#include <bit>
#include <string>
#include <string_view>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr unsigned seed = 47110815;

std::shared_ptr<const CFPFHPointSet> share(const CFPFHPointSet& set, bool copy)
{
    if (copy) return std::make_shared<const CFPFHPointSet>(set);
    return {&set, [](const CFPFHPointSet*) {}};
}

bool isTooLean(const std::shared_ptr<const CFPFHPointSet>& set, const ConfigurationFPFH& config)
{
    return set == nullptr || set->IsTooLean(config);
}

} // namespace

IPreRegistration::~IPreRegistration() = default;

bool IPreRegistration::Compute(const Zorvan::Hooks& hooks)
{
    return Compute([&hooks] { return hooks.IsAborted(); });
}

std::size_t CFPFHPreRegistration::TrafoHash::operator()(const CTrafo& trafo) const
{
    std::uint32_t crc = 0;
    for (const auto& row : trafo.GetMatrix()) {
        // Adding 0 makes one of the two zeros, which are equal.
        for (const float value : row) crc = Zorvan::simd::Crc32(crc, std::bit_cast<std::uint32_t>(value + 0.0F));
    }
    return crc;
}

CFPFHPreRegistration::CFPFHPreRegistration() : CFPFHPreRegistration(nullptr, nullptr, {}) {}

CFPFHPreRegistration::CFPFHPreRegistration(const CFPFHPointSet& fix, const CFPFHPointSet& flt,
                                           const ConfigurationFPFH& config, bool copy)
    : CFPFHPreRegistration(share(fix, copy), share(flt, copy), config)
{
}

CFPFHPreRegistration::CFPFHPreRegistration(std::shared_ptr<const CFPFHPointSet> fix,
                                           std::shared_ptr<const CFPFHPointSet> flt, const ConfigurationFPFH& config)
    : m_fix(std::move(fix)), m_flt(std::move(flt)), m_config(config), m_random(seed)
{
    m_isSwapped = m_fix != nullptr && m_flt != nullptr && m_fix->Size() < m_flt->Size();
    m_config = WithSharedSettings(m_sharedFlags, config);
    const std::string why = WhatIsWrong(m_config);
    if (!why.empty()) logger.Warn(L"wrong setting: %s", std::string_view(why));
}

bool CFPFHPreRegistration::readFlag(const char* name) const
{
    bool value = false;
    Zorvan::ReadBooleanFlag(m_sharedFlags, name, &value);
    return value;
}

CTrafo CFPFHPreRegistration::crossed(const CTrafo& trafo) const { return m_isSwapped ? trafo.GetInverse(true) : trafo; }

ICPResult CFPFHPreRegistration::crossed(ICPResult result) const
{
    result.trafo = crossed(result.trafo);
    return result;
}

bool CFPFHPreRegistration::isUsable() const { return !isTooLean(m_fix, m_config) && !isTooLean(m_flt, m_config); }

bool CFPFHPreRegistration::Compute(std::function<bool()> abort) { return Compute(Zorvan::Hooks(std::move(abort))); }

bool CFPFHPreRegistration::Compute(const Zorvan::Hooks& hooks)
{
    const auto isAborted = [&hooks] { return hooks.IsAborted(); };
    if (isTooLean(m_fix, m_config)) {
        logger.Warn(L"too few features in point set 'fix'");
        return false;
    }
    if (isTooLean(m_flt, m_config)) {
        logger.Warn(L"too few features in point set 'flt'");
        return false;
    }
    if (isAborted()) return false;
    // Without a ball around them, polygons spread over the kinds of surface instead.
    if (m_config.dMaxPolygonDiameter < 0) m_analysis = CFPFHClusterAnalysis(getFlt(), m_config);
    if (isAborted()) return false;
    const bool needsClustering = searchPolygons(hooks);
    if (isAborted()) return false;
    if (needsClustering) clusterTransformations();
    if (isAborted()) return false;
    filterTrafosFeatureBased();
    return HasMoreResults();
}

bool CFPFHPreRegistration::searchPolygons(const Zorvan::Hooks& hooks)
{
    bool needsClustering = true;
    hooks.Start("searching", m_config.uiNumPolygons);
    for (unsigned int k = 0; k < m_config.uiNumPolygons; ++k, hooks.Advance()) {
        if (hooks.IsAborted()) break;
        const CFPFHPolygon polygon(m_random, getFlt(), m_analysis, m_config, -1.0);
        if (!polygon) {
            logger.Warn(L"seeding of polygon in 'flt' failed (probably too sparse)");
            continue;
        }
        if (hooks.IsAborted()) break;
        const CTrafo trafo = polygon.ComputePreRegistration(getFix(), getFlt(), m_config, m_candidates).first;
        if (!trafo) continue;
        m_proposed.push_back(trafo);
        if (m_config.uiTrafoClusteringQuorum == 0 || m_proposed.size() < m_config.uiTrafoClusteringQuorum) continue;
        if (hooks.IsAborted()) break;
        // Without a new success the clusters are those of the last time.
        if (!refineProposals() && !needsClustering) continue;
        clusterTransformations();
        needsClustering = false;
        if (hasQuorum(k + 1)) break;
    }
    hooks.Finish();
    return needsClustering;
}

bool CFPFHPreRegistration::hasQuorum(unsigned int polygonsLookedAt) const
{
    if (m_results.empty() || m_results.front().clusterSize < m_config.uiTrafoClusteringQuorum) return false;
    logger.Trace(L"aborting search: top cluster size (%u) reached quorum (%u) after looking at %u polygons",
                 m_results.front().clusterSize, m_config.uiTrafoClusteringQuorum, polygonsLookedAt);
    return true;
}

void CFPFHPreRegistration::push(const Result& result)
{
    m_results.push_back(result);
    std::push_heap(m_results.begin(), m_results.end(), std::greater<>());
}

ICPResult CFPFHPreRegistration::PeekBestResult() const
{
    return m_results.empty() ? ICPResult() : crossed(m_results.front().icp);
}

ICPResult CFPFHPreRegistration::GetNextResult()
{
    if (m_results.empty()) return {};
    std::pop_heap(m_results.begin(), m_results.end(), std::greater<>());
    const ICPResult best = crossed(m_results.back().icp);
    m_results.pop_back();
    return best;
}

std::vector<ICPResult> CFPFHPreRegistration::GetAllResults() const
{
    Results heap = m_results;
    std::vector<ICPResult> all;
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), std::greater<>());
        all.push_back(crossed(heap.back().icp));
        heap.pop_back();
    }
    return all;
}

void CFPFHPreRegistration::InjectICPResult(ICPResult result) { push({crossed(result), 1}); }

bool CFPFHPreRegistration::FinalizeAfterAbort()
{
    clusterTransformations();
    return HasMoreResults();
}

ICPResult CFPFHPreRegistration::refine(const CTrafo& trafo)
{
    const CTrafo* oracle = m_oracle ? &m_oracle : nullptr;
    return getFix().ComputeRoughICPRegistration(m_config.icpConfig, getFlt(), trafo, oracle, readFlag("debug_icp"));
}

ICPResult CFPFHPreRegistration::InjectTrafo(CTrafo trafo)
{
    if (!isUsable()) return {};
    trafo = crossed(trafo);
    const auto fixBox = OrientedBox::FromCorners(getFix().GetAABB());
    if (!Overlap(fixBox, OrientedBox::FromCorners(getFlt().GetAABB()).Moved(trafo))) return {};

    const ICPResult result = refine(trafo);
    if (!result) {
        logger.Warn(L"InjectTrafo: refinement failed (%ls)", result.ToWString(false));
    } else if (getFix().VerifyAlignmentFeatureBased(m_config, getFlt(), result.GetTrafo())) {
        logger.Trace(L"InjectTrafo: overlap ratio of refined trafo: %.1fp (before: %.1fp), RMSE: %.3fmm (before: "
                     L"%.3fmm)",
                     100 * result.fStop_OverlapRatio, 100 * result.fStart_OverlapRatio, result.fStop_RMSE,
                     result.fStart_RMSE);
        push({result, 1});
    }
    m_proposed.push_back(trafo);
    forgetSuccesses();
    m_icpCache.insert_or_assign(trafo, result);
    return crossed(result);
}

bool CFPFHPreRegistration::SetOracleTrafo(const CTrafo& trafo)
{
    if (!trafo) {
        logger.Warn(L"refusing to set an invalid oracle trafo");
        return false;
    }
    if (m_config.icpConfig.dMaxMovement < 0) {
        logger.Warn(L"refusing to set oracle trafo: ineffective due to configuration");
        return false;
    }
    m_oracle = crossed(trafo);
    return true;
}

} // namespace prereg
