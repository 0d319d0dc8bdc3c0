// SPDX-License-Identifier: MIT
#include "commands.h"
#include "gpu.h"
#include "options.h"
#include "progress.h"

#include "zorvan/core/cpointset.h"
#include "zorvan/features/cfpfhdatasource.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/cpufeatures.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/scans/vectors.h"
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/colourscale.h"
#include "zorvan/workflow/featureset.h"
#include "zorvan/workflow/featuresizes.h"
#include "zorvan/workflow/featuresummary.h"
#include "zorvan/workflow/settingsfile.h"

#include <chrono>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double dStronglyCurved = 0.75; // 95 % of the features of teeth and of the bunny are nearer to a plane
constexpr double dDefaultFlat = 0.16;
constexpr Zorvan::Rgb noFeature{128, 128, 128};

struct FeaturesOptions
{
    std::string scan;
    std::string output;
    GeneralOptions general;
    ScanFileOptions files;
    SettingsOptions settings;
    GpuOptions gpu;
};

struct Features
{
    std::size_t uiRead = 0;
    std::size_t uiUsable = 0;
    prereg::ConfigurationFPFH config;
    prereg::CFPFHDataSource source;
    double dSourceSeconds = 0.0;
    double dSetSeconds = 0.0;
    bool isTooLean = true; ///< for a search without a start pose
};

void checkCall(const FeaturesOptions& options)
{
    if (Zorvan::GetSimd() != Zorvan::ESimd::Avx)
        throw Zorvan::CInputError("features need a processor with AVX; use another machine");
    if (options.output.empty()) return;
    if (std::filesystem::path(options.output).extension() != ".ply")
        throw Zorvan::CInputError(options.output, "coloured points are written as PLY",
                                  "give a name that ends in .ply");
    Zorvan::RequireApart(options.output, {options.scan, options.settings.file});
    Zorvan::RequireWritable(options.output);
}

std::string length(double mm, const FeaturesOptions& options)
{
    return Zorvan::ToText(mm / options.files.dMmPerUnit) + " " + Zorvan::UnitName(options.files.dMmPerUnit);
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void computeFrom(const Zorvan::SurfelScan& scan, unsigned numTasks, const prereg::GpuContext& gpu, Features& features)
{
    auto start = Clock::now();
    features.source = prereg::CFPFHDataSource(features.config, numTasks, gpu);
    features.source.Load(scan.points, scan.normals, nullptr);
    features.dSourceSeconds = secondsSince(start);
    if (features.source.GetNumFeatures() == 0) return;
    start = Clock::now();
    const prereg::CFPFHPointSet set(features.source);
    features.dSetSeconds = secondsSince(start);
    features.isTooLean = set.IsTooLean(features.config);
}

Features compute(const FeaturesOptions& options)
{
    const bson::object set = options.settings.Read(options.general.isQuiet);
    const prereg::GpuContext gpu = options.gpu.MakeContext(options.general.isQuiet);
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks();
    hooks.Start("computing features", 3);
    const Zorvan::SurfelScan scan = Zorvan::ReadScan(options.scan, options.files.ToScanOptions());
    hooks.Advance();
    const prereg::CPointSet points(scan.points.data(), scan.normals.data(), scan.points.size());
    const prereg::AutoSettings settings = prereg::ChooseSettings(points, options.files.ToGrid(), "the scan");
    Features features{
        scan.uiRead, scan.points.size(), prereg::WithSettings(prereg::AllSettingsForGrid(settings.dGrid), set), {}};
    prereg::CheckFeatureSizes(scan, features.config, options.files.dMmPerUnit);
    hooks.Advance();
    computeFrom(scan, options.general.uiNumThreads, gpu, features);
    hooks.Finish();

    Tell(scan.Warning(), options.general.isQuiet);
    Tell("grid " + length(settings.dGrid, options) + ": " + settings.reason, options.general.isQuiet);
    return features;
}

std::string gridWords(const std::string& name, double size, const FeaturesOptions& options)
{
    return size > 0.0 ? name + " " + length(size, options) : "no " + name + ", all are kept";
}

void printRow(const std::string& name, std::size_t count, const std::string& words)
{
    std::cout << "  " << std::left << std::setw(16) << name << std::right << std::setw(9) << std::to_string(count)
              << (words.empty() ? "" : "  ") << words << '\n';
}

void printCounts(const FeaturesOptions& options, const Features& features)
{
    const prereg::ConfigurationFPFH& config = features.config;
    const std::size_t tried = features.source.GetFeaturePointsV().size();
    const std::size_t found = features.source.GetNumFeatures();
    const std::size_t lost = features.uiRead - features.uiUsable;
    std::cout << Zorvan::ToShown(options.scan) << '\n';
    printRow("points read", features.uiRead, lost > 0 ? std::to_string(lost) + " unusable or at a place twice" : "");
    printRow("after reduction", features.source.GetNumPoints(), gridWords("grid", config.dGridSize, options));
    printRow("feature points", tried, gridWords("feature grid", config.dFeatureGridSize, options));
    printRow("features", found,
             "radius " + length(config.dFeatureRadius, options) + "; " + std::to_string(tried - found) +
                 " without, for too few neighbours");
}

void printShape(const FeaturesOptions& options, const Features& features)
{
    const auto [first, count] = features.source.GetFeatures();
    const double similar = features.config.dVerifyTrafoMaxFeatureDistance;
    std::cout << "  time             " << Zorvan::ToText(features.dSourceSeconds, 3)
              << " s for points and features (threads: " << options.general.uiNumThreads << "), "
              << Zorvan::ToText(features.dSetSeconds, 3) << " s for the point set with its trees\n\n"
              << prereg::DescribeFeatures({first, count},
                                          Zorvan::ToFloat(similar > 0.0 ? similar * similar : dDefaultFlat));
    if (features.isTooLean) std::cout << "\nToo few points or features for a search without a start pose\n";
}

/// All feature points, those without a feature last.
void writeColoured(const FeaturesOptions& options, const prereg::CFPFHDataSource& source)
{
    std::vector<Zorvan::Rgb> colours;
    for (const auto& feature : source.GetFeaturesV())
        colours.push_back(colours.size() < source.GetNumFeatures()
                              ? prereg::ColourAt(feature.SquaredEuclideanDistanceToPlane() / dStronglyCurved)
                              : noFeature);
    const Zorvan::Scan scan{source.GetFeaturePointsV(), source.GetFeatureNormalsV(), {}};
    Zorvan::WritePly(options.output, scan, 1.0 / options.files.dMmPerUnit, colours);
}

int refuseEmpty(const FeaturesOptions& options, const Features& features)
{
    Tell(Zorvan::ToShown(options.scan) + ": no point has enough neighbours within " +
             length(features.config.dFeatureRadius, options) +
             " for a feature; set a larger dFeatureRadius or a smaller dFeatureGridSize with --settings",
         false);
    return NotEveryScan;
}

int showFeatures(const FeaturesOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const Features features = compute(options);
    const bool isEmpty = features.source.GetNumFeatures() == 0;
    if (!isEmpty && !options.output.empty()) writeColoured(options, features.source);
    printCounts(options, features);
    if (isEmpty) return refuseEmpty(options, features);
    if (!options.general.isQuiet) printShape(options, features);
    return Done;
}

} // namespace

void AddFeatures(CCommand app)
{
    const auto options = std::make_shared<FeaturesOptions>();
    CCommand command =
        app.AddCommand("features", "What the features see: how many there are, and how curved the surface is");
    command.AddOption("SCAN", options->scan, "The scan: " + Zorvan::ReadFormats()).Required();
    command.AddOption("-o,--output", options->output,
                      "PLY to write: all feature points with normals, coloured from dark blue (flat)\n"
                      "to yellow (strongly curved); grey where there are too few neighbours");
    options->files.AddTo(command);
    options->settings.AddTo(command);
    options->gpu.AddTo(command);
    options->general.AddTo(command, "Tasks that share the work; the features do not depend on it (default 1)");
    command.SetFooter(
        "With --quiet only the counts are printed. Exit code 0: there are features; 1: there is none, and\n"
        "no file is written; 2: wrong call or unreadable input.\n\n"
        "Examples:\n"
        "  zorvan features scan.ply\n"
        "  zorvan features bun000.ply --scale 1000 --threads 4 -o coloured.ply\n"
        "  zorvan features scan.ply --grid 0.3 --settings mine.txt");
    command.SetAction([options] { return showFeatures(*options); });
}

} // namespace tools
