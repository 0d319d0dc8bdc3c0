// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "pairoptions.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/workflow/align.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct JudgeOptions
{
    std::string fix;
    std::string flt;
    std::string poses;
    std::string output;
    GeneralOptions general;
    ScanFileOptions files;
    PairOptions pair;
    SettingsOptions settings;
};

/// All poses that the file has for the floating scan, in the frame of the fixed one, about their shifts.
std::vector<prereg::CTrafo> readPoses(const JudgeOptions& options, const ScanPair& pair)
{
    const Zorvan::PosesFile file = Zorvan::ReadPoses(options.poses, options.files.dMmPerUnit);
    const std::filesystem::path name = std::filesystem::path(options.flt).filename();
    const auto [flt, fltCluster] = file.Find(options.flt);
    const auto [fix, fixCluster] = file.Find(options.fix);
    const bool hasFix = fix != nullptr && fix->pose;
    std::vector<prereg::CTrafo> poses;
    const auto add = [&](const Zorvan::ScanPose& from, const Zorvan::ScanPose& pose) {
        poses.push_back(Zorvan::PoseAbout(from, pose, pair.fix.shift, pair.flt.shift));
    };
    if (flt != nullptr && flt->pose && (!hasFix || fixCluster == fltCluster))
        add(hasFix ? *fix : Zorvan::IdentityPose(), *flt);
    for (const Zorvan::ScanPose& candidate : file.candidates) {
        if (candidate.pose && std::filesystem::path(candidate.file).filename() == name)
            add(Zorvan::IdentityPose(), candidate);
    }
    if (poses.empty())
        throw Zorvan::CInputError(options.poses,
                                  "has no pose of " + name.string() + " in the frame of " +
                                      std::filesystem::path(options.fix).filename().string(),
                                  "add one under this file name, in a cluster or in the list \"candidates\"");
    return poses;
}

void printPoses(const prereg::AlignResult& result)
{
    for (std::size_t i = 0; i < result.candidates.size(); ++i) {
        const prereg::PoseVerdict& verdict = result.candidates[i].verdict;
        std::cout << "pose " << i + 1 << ": " << prereg::FindingName(verdict.eFinding) << ", "
                  << verdict.counts.uiMatched << " of " << verdict.counts.uiSamples << " samples match; "
                  << verdict.ToString() << '\n';
    }
    std::cout << result.verdict.ToString() << '\n';
}

int judge(const JudgeOptions& options)
{
    options.general.Apply();
    if (!options.output.empty()) {
        Zorvan::RequireApart(options.output, {options.fix, options.flt, options.poses, options.settings.file});
        Zorvan::RequireWritable(options.output);
    }
    prereg::AlignOptions how;
    how.dGrid = options.files.ToGrid();
    how.settings = options.settings.Read(options.general.isQuiet);
    how.dMmPerUnit = options.files.dMmPerUnit;
    const ScanPair pair = options.pair.Read(options.fix, options.flt, options.files, options.general.isQuiet);
    const auto& [fix, flt] = pair;
    options.pair.Apply(options.files, fix, flt, how);
    const std::vector<prereg::CTrafo> poses = readPoses(options, pair);
    const prereg::AlignResult result = prereg::WeighPoses(fix, flt, poses, how);
    for (const std::string& words : {fix.Warning(), flt.Warning(), result.settingsWords})
        Tell(words, options.general.isQuiet);
    if (!options.output.empty())
        Zorvan::WritePoses(options.output, prereg::ToPoses(result, fix, flt, options.files.dMmPerUnit, true));
    printPoses(result);
    return result ? Done : NotEveryScan;
}

} // namespace

void AddJudge(CCommand app)
{
    const auto options = std::make_shared<JudgeOptions>();
    CCommand command =
        app.AddCommand("judge", "Weigh poses of the scan FLT in the frame of the scan FIX that were found elsewhere");
    command.AddOption("FIX", options->fix, "The scan that stays, or a model of the object: " + Zorvan::ReadFormats())
        .Required();
    command.AddOption("FLT", options->flt, "The scan that moves").Required();
    command.AddOption("POSES", options->poses, "Poses file: a pose of FLT, its \"candidates\", or both").Required();
    command.AddOption("-o,--output", options->output, "Poses file to write: refined poses, best first, with verdicts");
    options->files.AddTo(command);
    options->pair.AddTo(command);
    options->settings.AddTo(command);
    options->general.AddTo(command, "No effect");
    command.SetFooter("Each pose is refined before it is weighed, and the poses are compared with one another.\n"
                      "Exit code 0: one pose explains both scans; 1: ambiguous, not aligned or too little to go on;\n"
                      "2: wrong call, unreadable input or unwritable output.\n\n"
                      "Example:\n"
                      "  zorvan judge a.ply b.ply candidates.json");
    command.SetAction([options] { return judge(*options); });
}

} // namespace tools
