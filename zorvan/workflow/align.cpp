// SPDX-License-Identifier: MIT
#include "zorvan/workflow/align.h"

#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/verdictlimits.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/readypair.h"
#include "zorvan/workflow/settingsfile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace prereg {

namespace {

constexpr double dMostEstimateStep = 0.5; // of the grid

std::string describe(const CReadyPair& pair, const ConfigurationICP& judge, double mmPerUnit)
{
    const auto length = [&](double mm) { return Zorvan::ToText(mm / mmPerUnit) + " " + Zorvan::UnitName(mmPerUnit); };
    const AutoSettings& chosen = pair.GetSettings();
    return "grid " + length(chosen.dGrid) + ": " + chosen.reason + "; RMSE accepted up to " + length(judge.dMaxRMSE) +
           (pair.GetWords().empty() ? "" : "; " + pair.GetWords());
}

AlignResult prepared(const CReadyPair& pair, const AlignOptions& options, bool hasStart)
{
    AlignResult result;
    result.config = WithSettings(AllSettingsForGrid(pair.GetSettings().dGrid), options.settings);
    const ConfigurationICP judge = hasStart ? result.config.icpConfig : SettingsForRefinement(result.config);
    result.settingsWords = describe(pair, judge, options.dMmPerUnit);
    return result;
}

/// The verdict has the last word on each result; who overrules a success says so in it.
void markOverruled(AlignResult& result)
{
    for (std::size_t i = 0; i < result.candidates.size(); ++i) {
        int& kind = result.candidates[i].refined.eICPResult;
        if (i == 0 && result.verdict)
            kind = ICP_Success;
        else if (kind == ICP_Success)
            kind = ICP_SuccessRejected;
    }
}

/// Puts the best explanation where all points agree best, and says how well they hold it there. What has to be moved by
/// half the grid for that was no pose to begin with.
void estimateBest(AlignResult& result, const CReadyPair& pair)
{
    if (result.verdict.explanations.empty()) return;
    CTrafo& pose = result.candidates.front().refined.trafo;
    PoseEstimate estimate = EstimatePose(pair.GetFixSet(), pair.GetFltSet(), pose, pair.GetFixView()->GetSampling(),
                                         pair.GetFltView()->GetSampling());
    if (!estimate) return;
    const CTrafo step = estimate.pose * pose.GetInverse(true);
    const double turn = static_cast<double>(step.GetRotationDistance(CTrafo::Identity())) * estimate.dRadius;
    const auto shift = static_cast<double>((step * estimate.centre - estimate.centre).Length());
    if (!(std::hypot(turn, shift) < dMostEstimateStep * pair.GetSettings().dGrid)) return;
    pose = estimate.pose;
    result.estimate = std::move(estimate);
}

/// As a search does it before it weighs a pose.
void settle(ICPResult& refined, const CReadyPair& pair)
{
    const CTrafo settled = SettlePose(pair.GetFixSet(), pair.GetFltSet(), refined.GetTrafo(),
                                      pair.GetFixView()->GetSampling(), pair.GetFltView()->GetSampling());
    if (settled) refined.trafo = settled;
}

std::vector<CTrafo> posesOf(const std::vector<PairCandidate>& candidates)
{
    std::vector<CTrafo> poses;
    poses.reserve(candidates.size());
    for (const PairCandidate& candidate : candidates) poses.push_back(candidate.refined.GetTrafo());
    return poses;
}

Zorvan::VerdictSummary summarize(const PairCandidate& candidate)
{
    const PoseCounts& counts = candidate.verdict.counts;
    return {FindingName(candidate.verdict.eFinding),
            candidate.verdict.ToString(),
            ProposerName(candidate.eProposer),
            counts.Contradiction(),
            {{"samples", counts.uiSamples},
             {"matched", counts.uiMatched},
             {"seen_through", counts.uiInFront},
             {"solid", counts.uiSolid},
             {"disputed", counts.uiDisputed},
             {"missing", counts.uiMissing},
             {"in_gap", counts.uiInGap},
             {"turned", counts.uiTurned},
             {"opposed", counts.uiOpposed},
             {"tail", counts.uiTail},
             {"shallow", counts.uiShallow},
             {"telling", counts.uiTelling}}};
}

Zorvan::PoseUncertainty summarize(const PoseEstimate& estimate, const Zorvan::Position& shift)
{
    return {estimate.covariance,
            {estimate.centre.x + shift[0], estimate.centre.y + shift[1], estimate.centre.z + shift[2]},
            estimate.ToString()};
}

} // namespace

AlignResult Align(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const AlignOptions& options,
                  const Zorvan::Hooks& hooks)
{
    if (options.start) return WeighPoses(fix, flt, {options.start}, options);
    const CReadyPair pair(fix, flt, options);
    AlignResult result = prepared(pair, options, false);
    PairSearchResult found = SearchPair(pair.GetFix(), pair.GetFlt(), result.config,
                                        {options.dMmPerUnit, options.uiNumTasks, options.gpu,
                                         static_cast<bool>(options.settings), pair.GetFixView(), pair.GetFltView()},
                                        hooks);
    result.candidates = std::move(found.candidates);
    result.verdict = std::move(found.verdict);
    result.searchWords = std::move(found.words);
    result.times = std::move(found.times);
    result.isStopped = found.isStopped;
    markOverruled(result);
    estimateBest(result, pair);
    return result;
}

AlignResult WeighPoses(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const std::vector<CTrafo>& poses,
                       const AlignOptions& options)
{
    const CReadyPair pair(fix, flt, options);
    AlignResult result = prepared(pair, options, true);
    const CPoseJudge judge(*pair.GetFixView(), *pair.GetFltView());
    const bool isPlanePart = std::max(PlaneShare(pair.GetFixSet().GetNormals()),
                                      PlaneShare(pair.GetFltSet().GetNormals())) > verdict::dMaxPlaneShare;
    std::vector<PoseVerdict> verdicts;
    for (const CTrafo& pose : poses) {
        ICPResult refined = RefinePose(pair.GetFixSet(), pair.GetFltSet(), result.config.icpConfig, pose);
        if (!isPlanePart) settle(refined, pair);
        const bool isAllowed = refined || !options.settings;
        verdicts.push_back(isAllowed ? judge.Judge(refined.GetTrafo()) : PoseVerdict());
        result.candidates.push_back({refined, verdicts.back(), CJudgedSearch::EProposer::Start});
    }
    result.verdict = DecideOnPoses(judge, posesOf(result.candidates), std::move(verdicts));
    SortByVerdict(result.candidates, result.verdict);
    markOverruled(result);
    estimateBest(result, pair);
    return result;
}

// What a run that ended early did not reach is marked by -1; here it becomes NaN, and null in the file.
Zorvan::RegistrationSummary Summarize(const ICPResult& result)
{
    const auto known = [](float value) { return value < 0.0F ? std::numeric_limits<double>::quiet_NaN() : value; };
    const double slip = result.vStop_StdDev.x < 0.0F ? std::numeric_limits<double>::quiet_NaN() : result.GetStdDev();
    return {result.eICPResult, result.ToString(true), result.GetError(), known(result.GetOverlapRatio()), slip};
}

Zorvan::PosesFile ToPoses(const AlignResult& result, const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt,
                          double dMmPerUnit, bool isAll)
{
    const auto entry = [](const Zorvan::SurfelScan& scan) {
        return Zorvan::ScanPose{scan.file.filename().string(), scan.file.stem().string(), {}, {}};
    };
    const auto withResult = [&](const PairCandidate& candidate) {
        Zorvan::ScanPose pose = entry(flt);
        SetPoseAbout(pose, candidate.refined.GetTrafo(), flt.shift, fix.shift);
        pose.result = Summarize(candidate.refined);
        pose.verdict = summarize(candidate);
        return pose;
    };
    const Zorvan::ScanPose fixPose = entry(fix);
    Zorvan::ScanPose fltPose = withResult(result.candidates.empty() ? PairCandidate() : result.candidates.front());
    if (result && result.estimate) fltPose.uncertainty = summarize(result.estimate, fix.shift);
    if (!result) SetPoseAbout(fltPose, CTrafo::Invalid(), {}, {});
    fltPose.verdict->name = VerdictName(result.verdict.eVerdict);
    fltPose.verdict->text = result.verdict.Reason();
    Zorvan::PosesFile poses{dMmPerUnit, {{fixPose.id, true, {fixPose, fltPose}}}};
    poses.shift = fix.shift != Zorvan::Position{} ? fix.shift : flt.shift;
    const std::size_t numExplanations = result ? 0 : result.verdict.explanations.size();
    for (std::size_t i = 0; i < (isAll ? result.candidates.size() : numExplanations); ++i)
        poses.candidates.push_back(withResult(result.candidates[i]));
    if (result.estimate && !poses.candidates.empty())
        poses.candidates[0].uncertainty = summarize(result.estimate, fix.shift);
    return poses;
}

} // namespace prereg
