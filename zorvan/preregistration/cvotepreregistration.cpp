// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cvotepreregistration.h"

#include "zorvan/preregistration/votescan.h"
#include "zorvan/preregistration/votesearch.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace prereg {

struct CVotePreRegistration::Prepared
{
    VoteScan fix;
    VoteScan flt;
};

namespace {

/// Two views of one object: the larger size, which is nearer to that of the object. A model may be much larger than the
/// scan of a part of it: then the cells must suit the scan, as far as the number of the model's surfels allows.
float commonSize(float a, float b)
{
    constexpr float mostOfSmaller = 2.0F;
    constexpr float leastOfLarger = 0.4F;
    const auto [smaller, larger] = std::minmax(a, b);
    if (smaller == 0.0F) return 0.0F;
    return std::max(std::min(larger, mostOfSmaller * smaller), leastOfLarger * larger);
}

ICPResult toResult(const CVotePreRegistration::Candidate& candidate)
{
    ICPResult result(candidate.pose);
    result.fStop_OverlapRatio = candidate.matched;
    result.fStop_RMSE = candidate.rmse;
    return result;
}

bool isUsable(const VotingScan& scan) { return scan.set != nullptr && scan.view != nullptr; }

} // namespace

CVotePreRegistration::CVotePreRegistration(VotingScan fix, VotingScan flt, const ConfigurationVote& config)
    : m_fix(std::move(fix)), m_flt(std::move(flt)), m_config(config)
{
    if (!isUsable(m_fix) || !isUsable(m_flt)) throw std::invalid_argument("a scan to vote on lacks its set or view");
    m_size = commonSize(EstimateSize(m_fix.set->GetPoints()), EstimateSize(m_flt.set->GetPoints()));
}

const CVotePreRegistration::Prepared& CVotePreRegistration::prepared()
{
    if (!m_prepared)
        m_prepared = std::make_shared<const Prepared>(Prepared{PrepareVote(m_fix, m_size), PrepareVote(m_flt, m_size)});
    return *m_prepared;
}

bool CVotePreRegistration::Compute(std::function<bool()> abort)
{
    if (!(m_size > 0.0F)) return false;
    const VoteLimits limits(m_size, m_fix.view->GetSampling(), m_flt.view->GetSampling());
    auto found = CVoteSearch(prepared().fix, prepared().flt, m_config, limits, std::move(abort)).Run();
    if (!found) return HasMoreResults();
    m_candidates = std::move(*found);
    m_next = 0;
    return HasMoreResults();
}

ICPResult CVotePreRegistration::PeekBestResult() const
{
    return HasMoreResults() ? toResult(m_candidates[m_next]) : ICPResult();
}

ICPResult CVotePreRegistration::GetNextResult()
{
    const ICPResult best = PeekBestResult();
    if (HasMoreResults()) ++m_next;
    return best;
}

ICPResult CVotePreRegistration::InjectTrafo(CTrafo trafo)
{
    if (!trafo || !(m_size > 0.0F)) return {};
    const VoteLimits limits(m_size, m_fix.view->GetSampling(), m_flt.view->GetSampling());
    const Candidate candidate = CVoteSearch(prepared().fix, prepared().flt, m_config, limits, {}).Refined(trafo);
    if (candidate.matched == 0.0F) {
        ICPResult nothing(candidate.pose);
        nothing.eICPResult = ICP_FinalOverlapTooSmall;
        return nothing;
    }
    const auto isBetter = [](const Candidate& a, const Candidate& b) { return a.score > b.score; };
    const auto first = m_candidates.begin() + static_cast<std::ptrdiff_t>(m_next);
    m_candidates.insert(std::upper_bound(first, m_candidates.end(), candidate, isBetter), candidate);
    return toResult(candidate);
}

} // namespace prereg
