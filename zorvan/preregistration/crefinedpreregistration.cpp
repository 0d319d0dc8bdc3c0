#include "zorvan/preregistration/crefinedpreregistration.h"

#include <algorithm>
#include <random>
#include <utility>

namespace prereg {

namespace {

constexpr unsigned seed = 47110815; // the same sets always give the same pose

} // namespace

CRefinedPreRegistration::CRefinedPreRegistration(std::shared_ptr<const CFPFHPointSet> fix,
                                                 std::shared_ptr<const CFPFHPointSet> flt,
                                                 const ConfigurationFPFH& searchConfig,
                                                 const ConfigurationICP& refinementConfig, const CTrafo* oracle)
    : m_fix(std::move(fix)),
      m_flt(std::move(flt)),
      m_refinementConfig(refinementConfig),
      m_search(m_fix, m_flt, searchConfig)
{
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
        m_candidates.push_back({found, refine(found.GetTrafo())});
        if (!m_candidates.back().refined) continue;
        accepted.push_back(m_candidates.back().refined);
        if (!m_refineAll) break;
    }
    const auto hasPassed = [](const Candidate& candidate) { return static_cast<bool>(candidate.refined); };
    std::stable_partition(m_candidates.begin(), m_candidates.end(), hasPassed);
    m_results.assign(accepted.begin(), accepted.end());
}

// Samples are drawn in the smaller set: a scan lies within the model, and not the model within the scan.
ICPResult CRefinedPreRegistration::refine(const CTrafo& trafo) const
{
    std::mt19937 rng(seed);
    if (m_fix->Size() >= m_flt->Size())
        return m_fix->ComputeICPRegistration(m_refinementConfig, rng, *m_flt, trafo, nullptr, false);
    ICPResult result =
        m_flt->ComputeICPRegistration(m_refinementConfig, rng, *m_fix, trafo.GetInverse(true), nullptr, false);
    result.trafo = result.trafo.GetInverse(true);
    return result;
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
    const ICPResult refined = refine(rough.GetTrafo());
    if (refined) m_results.push_front(refined);
    return refined;
}

} // namespace prereg
