// SPDX-License-Identifier: MIT
#include "commands.h"
#include "gpu.h"
#include "interruption.h"
#include "options.h"
#include "pairoptions.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/align.h"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <numbers>
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

std::string nameOf(const std::string& file) { return std::filesystem::path(file).filename().string(); }

void checkCall(const AlignOptions& options)
{
    if (nameOf(options.fix) == nameOf(options.flt))
        throw Zorvan::CInputError("both scans are named " + nameOf(options.fix) +
                                  ", and poses are matched by file name; rename one of them");
    if (options.output.empty()) return;
    Zorvan::RequireApart(options.output, {options.fix, options.flt, options.initial, options.settings.file});
    Zorvan::RequireWritable(options.output);
}

/// The start pose of the floating scan in the frame of the fixed one, in mm.
prereg::CTrafo readStartPose(const AlignOptions& options)
{
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(options.initial, options.files.dMmPerUnit);
    const auto [flt, fltCluster] = poses.Find(options.flt);
    const auto [fix, fixCluster] = poses.Find(options.fix);
    if (flt == nullptr || !flt->pose)
        throw Zorvan::CInputError(options.initial, "has no pose of " + nameOf(options.flt),
                                  "add one under this file name");
    if (fix == nullptr) return flt->pose;
    if (!fix->pose)
        throw Zorvan::CInputError(options.initial, "has no pose of " + nameOf(options.fix),
                                  "add one, or leave the scan out");
    if (fixCluster != fltCluster)
        throw Zorvan::CInputError(options.initial, "has the two scans in different clusters",
                                  "put them into one frame");
    return fix->pose.GetInverse(true) * flt->pose;
}

std::string length(double mm, const AlignOptions& options)
{
    return Zorvan::ToText(mm / options.files.dMmPerUnit) + " " + Zorvan::UnitName(options.files.dMmPerUnit);
}

/// Both scans, ready.
struct Pair
{
    Zorvan::SurfelScan fix;
    Zorvan::SurfelScan flt;
};

Pair read(const AlignOptions& options, const Zorvan::Hooks& hooks)
{
    hooks.Start("reading", 2);
    Pair pair{Zorvan::ReadScan(options.fix, options.pair.ForFix(options.files)), {}};
    hooks.Advance();
    pair.flt = Zorvan::ReadScan(options.flt, options.pair.ForFlt(options.files));
    hooks.Finish();
    return pair;
}

prereg::AlignResult run(const AlignOptions& options, const Pair& pair, const prereg::CTrafo& start,
                        const bson::object& settings, CProgress& progress)
{
    prereg::AlignOptions how;
    how.start = start;
    how.dGrid = options.files.ToGrid();
    how.settings = settings;
    how.uiNumTasks = options.general.uiNumThreads;
    if (!start) how.gpu = options.gpu.MakeContext(options.general.isQuiet);
    how.dMmPerUnit = options.files.dMmPerUnit;
    options.pair.Apply(options.files, how);
    const CInterruption interruption;
    return prereg::Align(pair.fix, pair.flt, how, progress.Hooks(interruption));
}

void printPose(const prereg::CTrafo& pose, double mmPerUnit)
{
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            const double unit = column == 3 && row < 3 ? mmPerUnit : 1.0;
            std::cout << (column > 0 ? " " : "") << Zorvan::ToText(static_cast<double>(pose(row, column)) / unit, 9);
        }
        std::cout << '\n';
    }
}

const char* verdictWords(prereg::EPairVerdict eVerdict)
{
    switch (eVerdict) {
    case prereg::EPairVerdict::Aligned:
        return " is aligned to ";
    case prereg::EPairVerdict::Ambiguous:
        return " is ambiguous on ";
    case prereg::EPairVerdict::NotAligned:
        return " is NOT aligned to ";
    case prereg::EPairVerdict::TooLittle:
        return " shares too little to go on with ";
    }
    return " ";
}

void printVerdict(const AlignOptions& options, const prereg::AlignResult& result)
{
    const Zorvan::RegistrationSummary summary = prereg::Summarize(result.Best());
    std::cout << Zorvan::ToShown(nameOf(options.flt)) << verdictWords(result.verdict.eVerdict)
              << Zorvan::ToShown(nameOf(options.fix));
    if (std::isfinite(summary.dRmse)) std::cout << ", RMSE " << length(summary.dRmse, options);
    if (std::isfinite(summary.dOverlap)) std::cout << ", overlap " << Zorvan::ToText(summary.dOverlap, 3);
    if (std::isfinite(summary.dSlip)) std::cout << ", slip " << length(summary.dSlip, options);
    if (!result) std::cout << ": " << result.verdict.Reason();
    std::cout << '\n';
}

/// "turns known to 0.01, 0.02, 0.01 degrees, shifts to 0.003, 0.002, 0.002 mm (1 sigma); the surfaces hold ..."
std::string uncertaintyWords(const AlignOptions& options, const prereg::PoseEstimate& estimate)
{
    if (!estimate) return {};
    constexpr double dDegrees = 180.0 / std::numbers::pi;
    const auto deviations = estimate.GetStdDevs();
    const auto list = [&](std::size_t first, double factor) {
        std::string text;
        for (std::size_t k = first; k < first + 3; ++k)
            text += (text.empty() ? "" : ", ") + Zorvan::ToText(deviations[k] * factor, 2);
        return text;
    };
    return "turns about x, y, z are known to " + list(0, dDegrees) + " degrees and shifts to " +
           list(3, 1.0 / options.files.dMmPerUnit) + " " + Zorvan::UnitName(options.files.dMmPerUnit) + " (1 sigma); " +
           estimate.ToString();
}

int align(AlignOptions options)
{
    const bool hasStart = !options.initial.empty();
    // To a search, what the library warns of is everyday business.
    if (!hasStart && options.general.logLevel.empty()) options.general.logLevel = "error";
    options.general.Apply();
    checkCall(options);
    const prereg::CTrafo start = hasStart ? readStartPose(options) : prereg::CTrafo::Invalid();
    const bson::object settings = options.settings.Read(options.general.isQuiet);
    CProgress progress(options.general.isQuiet);
    const Pair pair = read(options, progress.Hooks());
    const prereg::AlignResult found = run(options, pair, start, settings, progress);
    const prereg::ICPResult result = found.Best();
    const std::string stopped = found.isStopped ? "stopped; this is what was found so far: " : "";
    for (const std::string& words :
         {pair.fix.Warning(), pair.flt.Warning(), found.settingsWords, stopped + found.searchWords, found.times,
          found ? found.verdict.Reason() : std::string(), uncertaintyWords(options, found.estimate)})
        Tell(words, options.general.isQuiet);
    if (!options.output.empty())
        Zorvan::WritePoses(options.output,
                           prereg::ToPoses(found, pair.fix, pair.flt, options.files.dMmPerUnit, options.isAll));
    printVerdict(options, found);
    if (result && options.output.empty()) printPose(result.GetTrafo(), options.files.dMmPerUnit);
    return result ? Done : NotEveryScan;
}

} // namespace

void AddAlign(CCommand app)
{
    const auto options = std::make_shared<AlignOptions>();
    CCommand command = app.AddCommand("align", "Find the pose of the scan FLT in the frame of the scan FIX");
    command.AddOption("FIX", options->fix, "The scan that stays, or a model of the object: PLY, STL, OBJ, XYZ or XYZN")
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
    options->general.AddTo(command, "Threads that compute features; the result does not depend on it");
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
