#include "commands.h"
#include "gpu.h"
#include "options.h"
#include "progress.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/pairsearch.h"
#include "zorvan/workflow/settingsfile.h"

#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>

namespace tools {

namespace {

constexpr unsigned uiSeed = 47110815; // the same scans always give the same pose

struct AlignOptions
{
    std::string fix;
    std::string flt;
    std::string initial;
    std::string output;
    bool isAll = false;
    GeneralOptions general;
    ScanFileOptions files;
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
        throw Zorvan::CInputError(options.initial, "has no pose of " + nameOf(options.flt), "add one under this file name");
    if (fix == nullptr) return flt->pose;
    if (!fix->pose)
        throw Zorvan::CInputError(options.initial, "has no pose of " + nameOf(options.fix), "add one, or leave the scan out");
    if (fixCluster != fltCluster)
        throw Zorvan::CInputError(options.initial, "has the two scans in different clusters", "put them into one frame");
    return fix->pose.GetInverse(true) * flt->pose;
}

prereg::CPointSet toPointSet(const Zorvan::SurfelScan& scan)
{
    return {scan.points.data(), scan.normals.data(), scan.points.size()};
}

std::string length(double mm, const AlignOptions& options)
{
    return Zorvan::ToText(mm / options.files.dMmPerUnit) + " " + Zorvan::UnitName(options.files.dMmPerUnit);
}

/// A pair of scans, ready, with the settings that suit them.
struct Pair
{
    Zorvan::SurfelScan fix;
    Zorvan::SurfelScan flt;
    prereg::ConfigurationFPFH config;
    std::string words; ///< about the settings
};

Pair load(const AlignOptions& options)
{
    const bson::object set = options.settings.Read(options.general.isQuiet);
    CProgress progress("reading", 2, options.general.isQuiet);
    const Zorvan::ScanOptions scanOptions = options.files.ToScanOptions();
    Pair pair{Zorvan::LoadScan(options.fix, scanOptions), {}, {}, {}};
    progress.Step();
    pair.flt = Zorvan::LoadScan(options.flt, scanOptions);
    progress.Finish();
    const prereg::AutoSettings chosen = prereg::ChooseSettings(toPointSet(pair.fix), options.files.ToGrid());
    pair.config = prereg::WithSettings(prereg::AllSettingsForGrid(chosen.dGrid), set);

    const bool hasStart = !options.initial.empty();
    const prereg::ConfigurationICP judge = hasStart ? pair.config.icpConfig : prereg::SettingsForRefinement(pair.config);
    pair.words = "grid " + length(chosen.dGrid, options) + ": " + chosen.reason + "; RMSE accepted up to " +
                 length(judge.dMaxRMSE, options);
    return pair;
}

/// From the start pose that the user gives.
prereg::PairSearchResult refineFrom(const prereg::CTrafo& start, const Pair& pair)
{
    const prereg::CPointSet fix = toPointSet(pair.fix);
    std::mt19937 rng(uiSeed);
    prereg::PairSearchResult result;
    result.candidates.push_back(
        {{}, fix.ComputeICPRegistration(pair.config.icpConfig, rng, toPointSet(pair.flt), start, nullptr, false)});
    return result;
}

prereg::PairSearchResult search(const AlignOptions& options, const Pair& pair)
{
    return prereg::SearchPair(pair.fix, pair.flt, pair.config,
                      {options.files.dMmPerUnit, options.general.uiNumThreads,
                       options.gpu.MakeContext(options.general.isQuiet), options.isAll, options.general.isQuiet});
}

// What a run that ended early did not reach is marked by -1; here it becomes NaN, and null in the file.
Zorvan::RegistrationSummary summarize(const prereg::ICPResult& result)
{
    const auto known = [](float value) { return value < 0.0F ? std::numeric_limits<double>::quiet_NaN() : value; };
    const double slip = result.vStop_StdDev.x < 0.0F ? std::numeric_limits<double>::quiet_NaN() : result.GetStdDev();
    return {result.eICPResult, result.ToString(true), result.GetError(), known(result.GetOverlapRatio()), slip};
}

Zorvan::PosesFile toPoses(const AlignOptions& options, const prereg::PairSearchResult& found)
{
    const auto entry = [](const std::string& file) {
        return Zorvan::ScanPose{nameOf(file), std::filesystem::path(file).stem().string(), {}, {}};
    };
    const auto withResult = [&](const prereg::ICPResult& result) {
        Zorvan::ScanPose flt = entry(options.flt);
        flt.pose = result.GetTrafo();
        flt.result = summarize(result);
        return flt;
    };
    const Zorvan::ScanPose fix = entry(options.fix);
    Zorvan::ScanPose flt = withResult(found.Best());
    if (!found.Best()) flt.pose = prereg::CTrafo::Invalid();
    Zorvan::PosesFile poses{options.files.dMmPerUnit, {{fix.id, true, {fix, flt}}}};
    if (!options.isAll) return poses;
    for (const prereg::PairCandidate& candidate : found.candidates) poses.candidates.push_back(withResult(candidate.refined));
    return poses;
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

// The library's text of a success only says the RMSE again, and in millimetres.
void printVerdict(const AlignOptions& options, const prereg::ICPResult& result)
{
    const Zorvan::RegistrationSummary summary = summarize(result);
    std::cout << Zorvan::ToShown(nameOf(options.flt)) << (result ? " is aligned to " : " is NOT aligned to ")
              << Zorvan::ToShown(nameOf(options.fix));
    if (!result) std::cout << ", " << summary.text;
    if (std::isfinite(summary.dRmse)) std::cout << ", RMSE " << length(summary.dRmse, options);
    if (std::isfinite(summary.dOverlap)) std::cout << ", overlap " << Zorvan::ToText(summary.dOverlap, 3);
    if (std::isfinite(summary.dSlip)) std::cout << ", slip " << length(summary.dSlip, options);
    std::cout << '\n';
}

int align(AlignOptions options)
{
    const bool hasStart = !options.initial.empty();
    // To a search, what the library warns of is everyday business.
    if (!hasStart && options.general.logLevel.empty()) options.general.logLevel = "error";
    options.general.Apply();
    checkCall(options);
    const prereg::CTrafo start = hasStart ? readStartPose(options) : prereg::CTrafo::Invalid();
    const Pair pair = load(options);
    const prereg::PairSearchResult found = hasStart ? refineFrom(start, pair) : search(options, pair);
    const prereg::ICPResult result = found.Best();
    for (const std::string& words : {pair.fix.Warning(), pair.flt.Warning(), pair.words, found.words, found.times})
        Tell(words, options.general.isQuiet);
    if (!options.output.empty()) Zorvan::WritePoses(options.output, toPoses(options, found));
    printVerdict(options, result);
    if (result && options.output.empty()) printPose(result.GetTrafo(), options.files.dMmPerUnit);
    return result ? Done : NotEveryScan;
}

} // namespace

void AddAlign(CLI::App& app, int& exitCode)
{
    const auto options = std::make_shared<AlignOptions>();
    CLI::App* const command = app.add_subcommand("align", "Find the pose of the scan FLT in the frame of the scan FIX");
    command->add_option("FIX", options->fix, "The scan that stays: PLY, STL, OBJ, XYZ or XYZN")->required();
    command->add_option("FLT", options->flt, "The scan that moves")->required();
    command->add_option("--initial", options->initial,
                        "Poses file with a rough pose of FLT, and of FIX unless it is the\n"
                        "identity; without it the pose is searched for");
    command->add_option("-o,--output", options->output, "Poses file to write; without it the pose is printed");
    command->add_flag("--all", options->isAll, "Write every candidate of the search with its verdict, best first");
    options->files.AddTo(*command);
    options->settings.AddTo(*command);
    options->gpu.AddTo(*command);
    options->general.AddTo(*command, "Threads that compute features; the result does not depend on it");
    command->footer(
        "Ctrl-C ends the search and keeps what has been found.\n"
        "Exit code 0: aligned; 1: no pose was found; 2: wrong call, unreadable input or unwritable output.\n\n"
        "Examples:\n"
        "  zorvan align a.ply b.ply -o poses.json\n"
        "  zorvan align bun000.ply bun090.ply --scale 1000 --all -o candidates.json\n"
        "  zorvan align a.ply b.ply --initial rough.json --settings mine.txt");
    command->callback([options, &exitCode] { exitCode = align(*options); });
}

} // namespace tools
