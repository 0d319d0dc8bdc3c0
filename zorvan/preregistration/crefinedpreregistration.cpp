// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/crefinedpreregistration.h"

#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <utility>

namespace prereg {

namespace {

const Logging::CLogger logger(L"QAV.PreRegistration.FPFH");

constexpr unsigned seed = 47110815; // the same sets always give the same pose

} // namespace

ICPResult RefinePose(const CPointSet& fix, const CPointSet& flt, const ConfigurationICP& config, const CTrafo& start)
{
    std::mt19937 rng(seed);
    if (fix.Size() >= flt.Size()) return fix.ComputeICPRegistration(config, rng, flt, start, nullptr, false);
    ICPResult result = flt.ComputeICPRegistration(config, rng, fix, start.GetInverse(true), nullptr, false);
    result.trafo = result.trafo.GetInverse(true);
    return result;
}

CRefinedPreRegistration::CRefinedPreRegistration(std::shared_ptr<const CFPFHPointSet> fix,
                                                 std::shared_ptr<const CFPFHPointSet> flt,
                                                 const ConfigurationFPFH& searchConfig,
                                                 const ConfigurationICP& refinementConfig, const CTrafo* oracle)
    : m_fix(std::move(fix)),
      m_flt(std::move(flt)),
      m_refinementConfig(refinementConfig),
      m_search(m_fix, m_flt, searchConfig)
{
    const std::string why = WhatIsWrong(m_refinementConfig); // the search judges its own
    if (!why.empty()) logger.Warn(L"wrong setting of the refinement: %s", std::string_view(why));
    if (oracle != nullptr) m_search.SetOracleTrafo(*oracle);
}

void CRefinedPreRegistration::SetEffort(std::size_t maxCandidates, bool refineAll)
{
    m_maxCandidates = maxCandidates;
    m_refineAll = refineAll;
}

bool CRefinedPreRegistration::Compute(std::function<bool()> abort) { return Compute(Zorvan::Hooks(std::move(abort))); }

bool CRefinedPreRegistration::Compute(const Zorvan::Hooks& hooks)
{
    const auto start = std::chrono::steady_clock::now();
    bool isAborted = false;
    m_search.Compute(Zorvan::Hooks([&] { return isAborted = isAborted || hooks.IsAborted(); }, hooks.GetProgress()));
    if (isAborted) m_search.FinalizeAfterAbort();
    m_searchTime += std::chrono::steady_clock::now() - start;
    refineFound();
    return HasMoreResults();
}

void CRefinedPreRegistration::refineFound()
{
    std::vector<ICPResult> accepted;
    for (const ICPResult& found : m_search.GetAllResults()) {
        if (m_candidates.size() == m_maxCandidates) break;
        m_candidates.push_back({found, RefinePose(*m_fix, *m_flt, m_refinementConfig, found.GetTrafo())});
        if (!m_candidates.back().refined) continue;
        accepted.push_back(m_candidates.back().refined);
        if (!m_refineAll) break;
    }
    const auto hasPassed = [](const Candidate& candidate) { return static_cast<bool>(candidate.refined); };
    std::stable_partition(m_candidates.begin(), m_candidates.end(), hasPassed);
    m_results.assign(accepted.begin(), accepted.end());
}

ICPResult CRefinedPreRegistration::PeekBestResult() const
{
    return m_results.empty() ? ICPResult() : m_results.front();
}

ICPResult CRefinedPreRegistration::GetNextResult()
{
    const ICPResult best = PeekBestResult();
    if (!m_results.empty()) m_results.pop_front();
    return best;
}

ICPResult CRefinedPreRegistration::InjectTrafo(CTrafo trafo)
{
    const ICPResult rough = m_search.InjectTrafo(trafo);
    if (!rough) return rough;
    const ICPResult refined = RefinePose(*m_fix, *m_flt, m_refinementConfig, rough.GetTrafo());
    if (refined) m_results.push_front(refined);
    return refined;
}

} // namespace prereg
