// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "pairoptions.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/pairposes.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"
#include "zorvan/workflow/alignwords.h"

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
    const ScanPair pair = options.pair.Read(options.fix, options.flt, options.files, options.general);
    const auto& [fix, flt] = pair;
    options.pair.Apply(options.files, fix, flt, how);
    const std::vector<prereg::CTrafo> poses = Zorvan::ReadCandidatePoses(
        options.poses, {fix.file, fix.shift}, {flt.file, flt.shift}, options.files.dMmPerUnit);
    const prereg::AlignResult result = prereg::WeighPoses(fix, flt, poses, how);
    for (const std::string& words : {fix.Warning(), flt.Warning(), result.settingsWords})
        Tell(words, options.general.isQuiet);
    if (!options.output.empty())
        Zorvan::WritePoses(options.output, prereg::ToPoses(result, fix, flt, options.files.dMmPerUnit, true));
    std::cout << prereg::CandidatesText(result) << result.verdict.ToString() << '\n';
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
    options->general.AddToShared(command);
    command.SetFooter("Each pose is refined before it is weighed, and the poses are compared with one another.\n"
                      "Exit code 0: one pose explains both scans; 1: ambiguous, not aligned or too little to go on;\n"
                      "2: wrong call, unreadable input or unwritable output.\n\n"
                      "Example:\n"
                      "  zorvan judge a.ply b.ply candidates.json");
    command.SetAction([options] { return judge(*options); });
}

} // namespace tools
