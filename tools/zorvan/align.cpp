// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "pairoptions.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/exactpose.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/pairposes.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/align.h"
#include "zorvan/workflow/alignwords.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct AlignOptions
{
    std::string fix;
    std::string flt;
    std::string initial;
    std::string output;
    bool isAll = false;
    GeneralOptions general;
    ScanFileOptions files;
    PairOptions pair;
    SettingsOptions settings;
    GpuOptions gpu;
};

void checkCall(const AlignOptions& options)
{
    Zorvan::RequireDistinctNames({options.fix, options.flt});
    if (options.output.empty()) return;
    Zorvan::RequireApart(options.output, {options.fix, options.flt, options.initial, options.settings.file});
    Zorvan::RequireWritable(options.output);
}

prereg::AlignResult run(const AlignOptions& options, const ScanPair& pair, const prereg::CTrafo& start,
                        const bson::object& settings, CProgress& progress)
{
    prereg::AlignOptions how;
    how.start = start;
    how.dGrid = options.files.ToGrid();
    how.settings = settings;
    how.uiNumTasks = options.general.uiNumThreads;
    if (!start) how.gpu = options.gpu.MakeContext(options.general.isQuiet);
    how.dMmPerUnit = options.files.dMmPerUnit;
    options.pair.Apply(options.files, pair.fix, pair.flt, how);
    const Zorvan::CInterruption interruption;
    return prereg::Align(pair.fix, pair.flt, how, progress.Hooks(interruption));
}

int align(AlignOptions options)
{
    const bool hasStart = !options.initial.empty();
    // To a search, what the library warns of is everyday business.
    if (!hasStart && options.general.logLevel.empty()) options.general.logLevel = "error";
    options.general.Apply();
    checkCall(options);
    const Zorvan::PairPoses starts =
        hasStart ? Zorvan::ReadPairPoses(options.initial, options.fix, options.flt, options.files.dMmPerUnit)
                 : Zorvan::PairPoses();
    const bson::object settings = options.settings.Read(options.general.isQuiet);
    CProgress progress(options.general.isQuiet);
    const ScanPair pair = options.pair.Read(options.fix, options.flt, options.files, options.general, progress.Hooks());
    const prereg::CTrafo start = hasStart ? Zorvan::PoseAbout(starts.fix, starts.flt, pair.fix.shift, pair.flt.shift)
                                          : prereg::CTrafo::Invalid();
    const prereg::AlignResult found = run(options, pair, start, settings, progress);
    const prereg::ICPResult result = found.Best();
    const std::string stopped = found.isStopped ? "stopped; this is what was found so far: " : "";
    for (const std::string& words :
         {pair.fix.Warning(), pair.flt.Warning(), found.settingsWords, stopped + found.searchWords, found.times,
          found ? found.verdict.Reason() : std::string(),
          prereg::UncertaintyText(found.estimate, options.files.dMmPerUnit)})
        Tell(words, options.general.isQuiet);
    const Zorvan::PosesFile poses = prereg::ToPoses(found, pair.fix, pair.flt, options.files.dMmPerUnit, options.isAll);
    if (!options.output.empty()) Zorvan::WritePoses(options.output, poses);
    std::cout << prereg::VerdictText(found, NameOf(options.fix), NameOf(options.flt), options.files.dMmPerUnit) << '\n';
    if (result && options.output.empty()) std::cout << Zorvan::PoseText(poses.clusters.front().scans.back(), poses);
    return result ? Done : NotEveryScan;
}

} // namespace

void AddAlign(CCommand app)
{
    const auto options = std::make_shared<AlignOptions>();
    CCommand command = app.AddCommand("align", "Find the pose of the scan FLT in the frame of the scan FIX");
    command.AddOption("FIX", options->fix, "The scan that stays, or a model of the object: " + Zorvan::ReadFormats())
        .Required();
    command.AddOption("FLT", options->flt, "The scan that moves").Required();
    command.AddOption("--initial", options->initial,
                      "Poses file with a rough pose of FLT, and of FIX unless it is the\n"
                      "identity; without it the pose is searched for");
    command.AddOption("-o,--output", options->output, "Poses file to write; without it the pose is printed");
    command.AddFlag("--all", options->isAll,
                    "Write every candidate with its verdict, best first; without it those\n"
                    "that explain ambiguous scans equally well");
    options->files.AddTo(command);
    options->pair.AddTo(command);
    options->settings.AddTo(command);
    options->gpu.AddTo(command);
    options->general.AddToShared(command);
    command.SetFooter(
        "Ctrl-C ends the search and keeps what has been found.\n"
        "Exit code 0: aligned; 1: ambiguous, not aligned or too little to go on; 2: wrong call, unreadable "
        "input or unwritable output.\n\n"
        "Examples:\n"
        "  zorvan align a.ply b.ply -o poses.json\n"
        "  zorvan align bun000.ply bun090.ply --scale 1000 --all -o candidates.json\n"
        "  zorvan align part.stl scan.ply\n"
        "  zorvan align a.ply b.ply --initial rough.json --settings mine.txt");
    command.SetAction([options] { return align(*options); });
}

} // namespace tools
