#include "zorvan/workflow/align.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/settingsfile.h"

#include <limits>
#include <random>
#include <utility>

namespace prereg {

namespace {

constexpr unsigned uiSeed = 47110815; // the same scans always give the same pose

CPointSet toPointSet(const Zorvan::SurfelScan& scan)
{
    return {scan.points.data(), scan.normals.data(), scan.points.size()};
}

std::string describe(const AutoSettings& chosen, const ConfigurationICP& judge, double mmPerUnit)
{
    const auto length = [&](double mm) { return Zorvan::ToText(mm / mmPerUnit) + " " + Zorvan::UnitName(mmPerUnit); };
    return "grid " + length(chosen.dGrid) + ": " + chosen.reason + "; RMSE accepted up to " + length(judge.dMaxRMSE);
}

void refineStart(const CPointSet& fix, const Zorvan::SurfelScan& flt, const CTrafo& start, AlignResult& result)
{
    std::mt19937 rng(uiSeed);
    result.candidates.push_back(
        {{}, fix.ComputeICPRegistration(result.config.icpConfig, rng, toPointSet(flt), start, nullptr, false)});
}

} // namespace

AlignResult Align(const Zorvan::SurfelScan& fix, const Zorvan::SurfelScan& flt, const AlignOptions& options,
                  const Zorvan::Hooks& hooks)
{
    const bool hasStart = static_cast<bool>(options.start);
    const CPointSet fixSet = toPointSet(fix);
    const AutoSettings chosen = ChooseSettings(fixSet, options.dGrid);
    AlignResult result;
    result.config = WithSettings(AllSettingsForGrid(chosen.dGrid), options.settings);
    const ConfigurationICP judge = hasStart ? result.config.icpConfig : SettingsForRefinement(result.config);
    result.settingsWords = describe(chosen, judge, options.dMmPerUnit);
    if (hasStart) {
        refineStart(fixSet, flt, options.start, result);
        return result;
    }
    PairSearchResult found = SearchPair(
        fix, flt, result.config, {options.dMmPerUnit, options.uiNumTasks, options.gpu, options.isAll}, hooks);
    result.candidates = std::move(found.candidates);
    result.searchWords = std::move(found.words);
    result.times = std::move(found.times);
    result.isStopped = found.isStopped;
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
    const auto withResult = [&](const ICPResult& icp) {
        Zorvan::ScanPose pose = entry(flt);
        pose.pose = icp.GetTrafo();
        pose.result = Summarize(icp);
        return pose;
    };
    const Zorvan::ScanPose fixPose = entry(fix);
    Zorvan::ScanPose fltPose = withResult(result.Best());
    if (!result) fltPose.pose = CTrafo::Invalid();
    Zorvan::PosesFile poses{dMmPerUnit, {{fixPose.id, true, {fixPose, fltPose}}}};
    if (!isAll) return poses;
    for (const PairCandidate& candidate : result.candidates) poses.candidates.push_back(withResult(candidate.refined));
    return poses;
}

} // namespace prereg
