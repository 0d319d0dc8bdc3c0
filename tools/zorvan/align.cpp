#include "atomicfile.h"
#include "autosettings.h"
#include "commands.h"
#include "inputerror.h"
#include "options.h"
#include "posesfile.h"
#include "progress.h"
#include "scanreader.h"
#include "settingsfile.h"
#include "textnumber.h"

#include "zorvan/core/cpointset.h"

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
    GeneralOptions general;
    ScanFileOptions files;
    SettingsOptions settings;
};

std::string nameOf(const std::string& file) { return std::filesystem::path(file).filename().string(); }

void checkCall(const AlignOptions& options)
{
    if (options.initial.empty())
        throw CInputError("align needs a start pose: give --initial POSES.json, a file with the rough pose of " +
                          nameOf(options.flt) + " (this version does not search for one)");
    if (nameOf(options.fix) == nameOf(options.flt))
        throw CInputError("both scans are named " + nameOf(options.fix) +
                          ", and poses are matched by file name; rename one of them");
    if (!options.output.empty()) RequireWritable(options.output);
}

/// The start pose of the floating scan in the frame of the fixed one, in mm.
prereg::CTrafo readStartPose(const AlignOptions& options)
{
    const PosesFile poses = ReadPoses(options.initial, options.files.dMmPerUnit);
    const auto [flt, fltCluster] = poses.Find(options.flt);
    const auto [fix, fixCluster] = poses.Find(options.fix);
    if (flt == nullptr || !flt->pose)
        throw CInputError(options.initial, "has no pose of " + nameOf(options.flt), "add one under this file name");
    if (fix == nullptr) return flt->pose;
    if (!fix->pose)
        throw CInputError(options.initial, "has no pose of " + nameOf(options.fix), "add one, or leave the scan out");
    if (fixCluster != fltCluster)
        throw CInputError(options.initial, "has the two scans in different clusters", "put them into one frame");
    return fix->pose.GetInverse(true) * flt->pose;
}

prereg::CPointSet toPointSet(const SurfelScan& scan)
{
    return {scan.points.data(), scan.normals.data(), scan.points.size()};
}

std::string length(double mm, const AlignOptions& options)
{
    return ToText(mm / options.files.dMmPerUnit) + " " + UnitName(options.files.dMmPerUnit);
}

/// The automatic settings with what the user has set.
AutoSettings chooseSettings(const AlignOptions& options, const prereg::CPointSet& fix, const bson::object& set)
{
    AutoSettings settings = ChooseSettings(fix, options.files.ToGrid());
    prereg::ConfigurationFPFH config;
    config.icpConfig = settings.icp;
    settings.icp = WithSettings(config, set).icpConfig;
    return settings;
}

prereg::ICPResult run(const AlignOptions& options, const prereg::CTrafo& start)
{
    const bson::object set = options.settings.Read(options.general.isQuiet);
    CProgress progress("aligning", 4, options.general.isQuiet);
    const ScanOptions scanOptions = options.files.ToScanOptions();
    const SurfelScan fixScan = LoadScan(options.fix, scanOptions);
    progress.Step();
    const SurfelScan fltScan = LoadScan(options.flt, scanOptions);
    progress.Step();
    const prereg::CPointSet fix = toPointSet(fixScan);
    const prereg::CPointSet flt = toPointSet(fltScan);
    const AutoSettings settings = chooseSettings(options, fix, set);
    progress.Step();
    std::mt19937 rng(uiSeed);
    const prereg::ICPResult result = fix.ComputeICPRegistration(settings.icp, rng, flt, start, nullptr, false);
    progress.Finish();

    Tell(fixScan.Warning(), options.general.isQuiet);
    Tell(fltScan.Warning(), options.general.isQuiet);
    Tell("grid " + length(settings.dGrid, options) + ": " + settings.reason + "; RMSE accepted up to " +
             length(settings.icp.dMaxRMSE, options),
         options.general.isQuiet);
    return result;
}

// What a run that ended early did not reach is marked by -1; here it becomes NaN, and null in the file.
RegistrationSummary summarize(const prereg::ICPResult& result)
{
    const auto known = [](float value) { return value < 0.0F ? std::numeric_limits<double>::quiet_NaN() : value; };
    const double slip = result.vStop_StdDev.x < 0.0F ? std::numeric_limits<double>::quiet_NaN() : result.GetStdDev();
    return {result.eICPResult, result.ToString(true), result.GetError(), known(result.GetOverlapRatio()), slip};
}

PosesFile toPoses(const AlignOptions& options, const prereg::ICPResult& result)
{
    const auto entry = [](const std::string& file) {
        return ScanPose{nameOf(file), std::filesystem::path(file).stem().string(), {}, {}};
    };
    ScanPose fix = entry(options.fix);
    ScanPose flt = entry(options.flt);
    flt.pose = result ? result.GetTrafo() : prereg::CTrafo::Invalid();
    flt.result = summarize(result);
    return {options.files.dMmPerUnit, {{fix.id, true, {fix, flt}}}};
}

void printPose(const prereg::CTrafo& pose, double mmPerUnit)
{
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            const double unit = column == 3 && row < 3 ? mmPerUnit : 1.0;
            std::cout << (column > 0 ? " " : "") << ToText(static_cast<double>(pose(row, column)) / unit, 9);
        }
        std::cout << '\n';
    }
}

// The library's text of a success only says the RMSE again, and in millimetres.
void printVerdict(const AlignOptions& options, const prereg::ICPResult& result)
{
    const RegistrationSummary summary = summarize(result);
    std::cout << nameOf(options.flt) << (result ? " is aligned to " : " is NOT aligned to ") << nameOf(options.fix);
    if (!result) std::cout << ", " << summary.text;
    if (std::isfinite(summary.dRmse)) std::cout << ", RMSE " << length(summary.dRmse, options);
    if (std::isfinite(summary.dOverlap)) std::cout << ", overlap " << ToText(summary.dOverlap, 3);
    if (std::isfinite(summary.dSlip)) std::cout << ", slip " << length(summary.dSlip, options);
    std::cout << '\n';
}

int align(const AlignOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const prereg::ICPResult result = run(options, readStartPose(options));
    if (!options.output.empty()) WritePoses(options.output, toPoses(options, result));
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
                        "identity; needed in this version");
    command->add_option("-o,--output", options->output, "Poses file to write; without it the pose is printed");
    options->files.AddTo(*command);
    options->settings.AddTo(*command);
    options->general.AddTo(*command, "Accepted for all commands; aligning a pair uses one");
    command->footer("Exit code 0: aligned; 1: no pose was found; 2: wrong call or unreadable input.\n\n"
                    "Examples:\n"
                    "  zorvan align a.ply b.ply --initial rough.json -o poses.json\n"
                    "  zorvan align bun000.ply bun045.ply --scale 1000 --initial rough.json\n"
                    "  zorvan align a.ply b.ply --initial rough.json --settings mine.txt");
    command->callback([options, &exitCode] { exitCode = align(*options); });
}

} // namespace tools
