// SPDX-License-Identifier: MIT
#include "zorvan/workflow/align.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/preregistration/crefinedpreregistration.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/settingsfile.h"

#include <limits>
#include <utility>

namespace prereg {

namespace {

CPointSet toPointSet(const Zorvan::SurfelScan& scan)
{
    return {scan.points.data(), scan.normals.data(), scan.points.size()};
}

std::string describe(const AutoSettings& chosen, const ConfigurationICP& judge, double mmPerUnit)
{
    const auto length = [&](double mm) { return Zorvan::ToText(mm / mmPerUnit) + " " + Zorvan::UnitName(mmPerUnit); };
    return "grid " + length(chosen.dGrid) + ": " + chosen.reason + "; RMSE accepted up to " + length(judge.dMaxRMSE);
}

AlignResult prepared(const CPointSet& fix, const AlignOptions& options, bool hasStart)
{
    const AutoSettings chosen = ChooseSettings(fix, options.dGrid);
    AlignResult result;
    result.config = WithSettings(AllSettingsForGrid(chosen.dGrid), options.settings);
    const ConfigurationICP judge = hasStart ? result.config.icpConfig : SettingsForRefinement(result.config);
    result.settingsWords = describe(chosen, judge, options.dMmPerUnit);
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

std::vector<CTrafo> posesOf(const std::vector<PairCandidate>& candidates)
{
    std::vector<CTrafo> poses;
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
             {"missing", counts.uiMissing},
             {"opposed", counts.uiOpposed},
             {"tail", counts.uiTail},
             {"shallow", counts.uiShallow}}};
}

} // namespace

AlignResult Align(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const AlignOptions& options,
                  const Zorvan::Hooks& hooks)
{
    if (options.start) return WeighPoses(fix, flt, {options.start}, options);
    AlignResult result = prepared(toPointSet(fix), options, false);
    PairSearchResult found =
        SearchPair(fix, flt, result.config,
                   {options.dMmPerUnit, options.uiNumTasks, options.gpu, static_cast<bool>(options.settings)}, hooks);
    result.candidates = std::move(found.candidates);
    result.verdict = std::move(found.verdict);
    result.searchWords = std::move(found.words);
    result.times = std::move(found.times);
    result.isStopped = found.isStopped;
    markOverruled(result);
    return result;
}

AlignResult WeighPoses(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const std::vector<CTrafo>& poses,
                       const AlignOptions& options)
{
    const CPointSet fixSet = toPointSet(fix);
    const CPointSet fltSet = toPointSet(flt);
    AlignResult result = prepared(fixSet, options, true);
    const CScanView fixView(fixSet);
    const CScanView fltView(fltSet);
    const CPoseJudge judge(fixView, fltView);
    std::vector<PoseVerdict> verdicts;
    for (const CTrafo& pose : poses) {
        const ICPResult refined = RefinePose(fixSet, fltSet, result.config.icpConfig, pose);
        const bool isAllowed = refined || !options.settings;
        verdicts.push_back(isAllowed ? judge.Judge(refined.GetTrafo()) : PoseVerdict());
        result.candidates.push_back({refined, verdicts.back(), CJudgedSearch::EProposer::Start});
    }
    result.verdict = DecideOnPoses(judge, posesOf(result.candidates), std::move(verdicts));
    SortByVerdict(result.candidates, result.verdict);
    markOverruled(result);
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
        pose.pose = candidate.refined.GetTrafo();
        pose.result = Summarize(candidate.refined);
        pose.verdict = summarize(candidate);
        return pose;
    };
    const Zorvan::ScanPose fixPose = entry(fix);
    Zorvan::ScanPose fltPose = withResult(result.candidates.empty() ? PairCandidate() : result.candidates.front());
    if (!result) fltPose.pose = CTrafo::Invalid();
    fltPose.verdict->name = VerdictName(result.verdict.eVerdict);
    fltPose.verdict->text = result.verdict.Reason();
    Zorvan::PosesFile poses{dMmPerUnit, {{fixPose.id, true, {fixPose, fltPose}}}};
    const std::size_t numExplanations = result ? 0 : result.verdict.explanations.size();
    for (std::size_t i = 0; i < (isAll ? result.candidates.size() : numExplanations); ++i)
        poses.candidates.push_back(withResult(result.candidates[i]));
    return poses;
}

} // namespace prereg
