// SPDX-License-Identifier: MIT
#include "zorvan/core/icpresult.h"

#include <fmt/printf.h>

#include <cmath>

namespace prereg {

namespace {

const char* textOf(int result)
{
    switch (result) {
    case ICP_Undefined:
        return "undefined ICP result";
    case ICP_Success:
        return "success";
    case ICP_SuccessRejected:
        return "success/rejected";
    case ICP_InitialOverlapTooSmall:
        return "initial overlap of point sets is too small";
    case ICP_TooFewInitialInliers:
        return "too few inliers, initially";
    case ICP_TooManyMismatches:
        return "too many mismatches during iteration";
    case ICP_IterationOverlapTooSmall:
        return "overlap too small during iteration";
    case ICP_TooFarFromOracle:
        return "final pose too far away from original pose";
    case ICP_FinalMismatches:
        return "too many mismatches at final pose";
    case ICP_FinalOverlapTooSmall:
        return "overlap too small";
    case ICP_RMSETooLarge:
        return "RMSE too large";
    case ICP_TooMuchSlip:
        return "too much slip at final pose";
    default:
        return "unknown result type"; // 6 too: the ICP sets it, and it has no text of its own
    }
}

enum class EOrder
{
    Better,
    Worse,
    Equal, ///< decided: neither is better
    Tie    ///< within the tolerance, the next key decides
};

EOrder smallerIsBetter(float a, float b, float tolerance)
{
    if (std::abs(a - b) < tolerance) return EOrder::Tie;
    if (a < b) return EOrder::Better;
    return b < a ? EOrder::Worse : EOrder::Equal;
}

EOrder largerIsBetter(float a, float b, float tolerance) { return smallerIsBetter(b, a, tolerance); }

EOrder compare(const ICPResult& a, const ICPResult& b)
{
    EOrder order = smallerIsBetter(a.GetStdDev(), b.GetStdDev(), 0.001F);
    if (order == EOrder::Tie) order = largerIsBetter(a.fStop_SmallBigRatio, b.fStop_SmallBigRatio, 0.005F);
    if (order == EOrder::Tie) order = smallerIsBetter(a.fStop_RMSE, b.fStop_RMSE, 0.0015F);
    if (order == EOrder::Tie) order = largerIsBetter(a.fStop_OverlapRatio, b.fStop_OverlapRatio, 0.015F);
    if (order == EOrder::Tie) {
        order = largerIsBetter(static_cast<float>(a.iStop_NumberOfInliers), static_cast<float>(b.iStop_NumberOfInliers),
                               10.0F);
    }
    // Among overlaps within the tolerance the smaller one comes first; stored rankings rely on it.
    if (order == EOrder::Tie) order = smallerIsBetter(a.fStop_OverlapRatio, b.fStop_OverlapRatio, 0.0F);
    return order;
}

} // namespace

bool operator<(const ICPResult& a, const ICPResult& b) { return compare(a, b) == EOrder::Better; }

bool operator>(const ICPResult& a, const ICPResult& b) { return compare(a, b) == EOrder::Worse; }

std::string ICPResult::ToString(bool brief) const
{
    std::string text = textOf(eICPResult);
    if (eICPResult == ICP_Undefined) return text;
    if (!brief) {
        return text + fmt::sprintf(" / start (Overlap Ratio: %.1fp, RMSE: %.3fmm, #inliers=%i) stop (Overlap Ratio: "
                                   "%.1fp, RMSE: %.3fmm, Slip: %.3fmm, #inliers=%i, #iters: %i) ",
                                   fStart_OverlapRatio * 100, fStart_RMSE, iStart_NumberOfInliers,
                                   fStop_OverlapRatio * 100, fStop_RMSE, GetStdDev(), iStop_NumberOfInliers,
                                   iStop_Iterations);
    }
    if (eICPResult == ICP_Success || eICPResult == ICP_SuccessRejected) {
        text += fmt::sprintf(" (RMSE: %.3fmm)", fStop_RMSE);
    }
    return text;
}

std::wstring ICPResult::ToWString(bool brief) const
{
    const std::string text = ToString(brief);
    return {text.begin(), text.end()};
}

} // namespace prereg
