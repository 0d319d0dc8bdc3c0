// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include <map>
#include <sstream>

namespace prereg {

namespace {

const char* nameOf(int cause)
{
    switch (cause) {
    case ICP_SuccessRejected:
        return "stop/rejected";
    case ICP_InitialOverlapTooSmall:
        return "strt/overlap";
    case ICP_TooFewInitialInliers:
        return "strt/inliers";
    case ICP_TooManyMismatches:
        return "iter/mismatches";
    case ICP_IterationOverlapTooSmall:
        return "iter/overlap";
    case ICP_IterationTooFewInliers:
        return "iter/inliers";
    case ICP_TooFarFromOracle:
        return "stop/change";
    case ICP_FinalMismatches:
        return "stop/conflicts";
    case ICP_FinalOverlapTooSmall:
        return "stop/overlap";
    case ICP_RMSETooLarge:
        return "stop/RMSE";
    case ICP_TooMuchSlip:
        return "stop/slippery";
    default:
        return "*unknown*";
    }
}

} // namespace

CFPFHPreRegistration::Statistics CFPFHPreRegistration::GetStatistics() const
{
    Statistics statistics;
    statistics.polygons = m_config.uiNumPolygons;
    statistics.proposedTrafos = static_cast<unsigned int>(m_icpCache.size());
    std::map<int, unsigned int> causes;
    for (const auto& [trafo, result] : m_icpCache) {
        if (result) {
            ++statistics.icpSuccess;
        } else {
            ++statistics.icpFailed;
            ++causes[result.eICPResult];
        }
    }
    statistics.failureCauses.assign(causes.begin(), causes.end());
    return statistics;
}

std::string CFPFHPreRegistration::Statistics::ToString() const
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << polygons << " polys, " << proposedTrafos << " proposed trafos (" << icpSuccess << "x ICP/success, "
         << icpFailed << "x ICP/failed, " << icpSuccessRejected << "x ICP/success/rejected)";
    if (failureCauses.empty()) return text.str();
    text << " failure causes:";
    for (const auto& [cause, count] : failureCauses) {
        if (count > 0) text << ' ' << nameOf(cause) << ':' << count << 'x';
    }
    return text.str();
}

std::wstring CFPFHPreRegistration::Statistics::ToWString() const
{
    const std::string text = ToString();
    return {text.begin(), text.end()};
}

} // namespace prereg
