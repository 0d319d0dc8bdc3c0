// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/ellipsoid.h"
#include "zorvan/platform/export.h"

#include <limits>
#include <string>

namespace prereg {

/// Outcome of a registration. The numbers are part of saved documents.
enum EICPResult : int
{
    ICP_Undefined = -1,
    ICP_Success = 0,
    ICP_SuccessRejected = 1,          ///< set by callers that overrule a success
    ICP_InitialOverlapTooSmall = 2,   ///< a set too small, or too few pairs at the start
    ICP_TooFewInitialInliers = 3,     ///< fewer than 6 inliers at the start
    ICP_TooManyMismatches = 4,        ///< reserved
    ICP_IterationOverlapTooSmall = 5, ///< too few pairs during iteration
    ICP_IterationTooFewInliers = 6,   ///< too few inliers during iteration; has no text of its own
    ICP_TooFarFromOracle = 7,
    ICP_FinalMismatches = 8, ///< small/big ratio too low
    ICP_FinalOverlapTooSmall = 9,
    ICP_RMSETooLarge = 10,
    ICP_TooMuchSlip = 11
};

/// What a registration found: verdict, statistics, pose. Results order themselves, best first:
///
///     std::sort(results.begin(), results.end());
///     if (results.front()) use(results.front().GetTrafo());
///
/// The order compares with tolerances and so is not transitive; equal results are neither smaller nor larger.
class ZORVAN_API ICPResult
{
public:
    int eICPResult = ICP_Undefined; ///< an `EICPResult`; other numbers may come from saved documents
    float fStart_OverlapRatio = -1; ///< pairs found / samples drawn at the initial pose
    int iStart_NumberOfInliers = -1;
    float fStart_RMSE = std::numeric_limits<float>::infinity();
    float fStop_OverlapRatio = -1;
    float fStop_OverlapArea = -1; ///< mm^2, filled by callers that estimate it
    int iStop_NumberOfInliers = -1;
    float fStop_RMSE = std::numeric_limits<float>::infinity();
    int iStop_Iterations = -1; ///< iteration at which the kept pose was reached
    float fStop_SmallBigRatio = -1;
    float fStop_MOICP_ZScore = std::numeric_limits<float>::infinity(); ///< of the multi-object ICP
    kdtree::Vector<3> vStop_StdDev{-1, -1, -1, -1};                    ///< slip: standard deviation of the pose, mm
    CTrafo trafo = CTrafo::Invalid();                                  ///< floating into fixed coordinates
    Ellipsoid ellipsoid;                                               ///< of the floating set, moved by `trafo`

    ICPResult() = default;
    /// A success with this pose.
    explicit ICPResult(const CTrafo& t) : eICPResult(ICP_Success), trafo(t) {}

    /// True for a success that no caller overruled.
    [[nodiscard]] explicit operator bool() const { return eICPResult == ICP_Success; }

    [[nodiscard]] float GetError() const { return fStop_RMSE; }
    [[nodiscard]] float GetInitialError() const { return fStart_RMSE; }
    [[nodiscard]] float GetInitialOverlap() const { return fStart_OverlapRatio; }
    [[nodiscard]] float GetOverlapRatio() const { return fStop_OverlapRatio; }
    [[nodiscard]] float GetOverlapArea() const { return fStop_OverlapArea; }
    [[nodiscard]] float GetStdDev() const { return vStop_StdDev.Length(); }
    [[nodiscard]] float GetZScore() const { return fStop_MOICP_ZScore; }
    [[nodiscard]] const CTrafo& GetTrafo() const { return trafo; }
    [[nodiscard]] const Ellipsoid& GetTransformedFltEllipsoid() const { return ellipsoid; }

    /// a < b: a is the better result. Slip decides, then small/big ratio, RMSE, overlap, inliers, each with a
    /// tolerance.
    ZORVAN_API friend bool operator<(const ICPResult& a, const ICPResult& b);
    ZORVAN_API friend bool operator>(const ICPResult& a, const ICPResult& b);

    /// The verdict in words; with `brief` false also the statistics of start and stop.
    [[nodiscard]] std::string ToString(bool brief) const;
    [[nodiscard]] std::wstring ToWString(bool brief) const;
};

} // namespace prereg
