// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "progress.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/featuresurvey.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct FeaturesOptions
{
    std::string scan;
    std::string output;
    GeneralOptions general;
    ScanFileOptions files;
    SettingsOptions settings;
    GpuOptions gpu;
};

void checkCall(const FeaturesOptions& options)
{
    if (options.output.empty()) return;
    if (std::filesystem::path(options.output).extension() != ".ply")
        throw Zorvan::CInputError(options.output, "coloured points are written as PLY",
                                  "give a name that ends in .ply");
    Zorvan::RequireApart(options.output, {options.scan, options.settings.file});
    Zorvan::RequireWritable(options.output);
}

prereg::FeatureSurvey survey(const FeaturesOptions& options)
{
    prereg::FeatureSurveyOptions how{options.files.ToGrid(), options.settings.Read(options.general.isQuiet),
                                     options.general.uiNumThreads, options.gpu.MakeContext(options.general.isQuiet),
                                     options.files.dMmPerUnit};
    CProgress progress(options.general.isQuiet);
    const Zorvan::SurfelScan scan = Zorvan::ReadScan(options.scan, options.files.ToScanOptions());
    prereg::FeatureSurvey survey = prereg::SurveyFeatures(scan, how, progress.Hooks());
    Tell(scan.Warning(), options.general.isQuiet);
    Tell(survey.settingsWords, options.general.isQuiet);
    return survey;
}

int refuseEmpty(const FeaturesOptions& options, double radius)
{
    Tell(Zorvan::ToShown(options.scan) + ": no point has enough neighbours within " +
             Zorvan::ToText(radius / options.files.dMmPerUnit) + " " + Zorvan::UnitName(options.files.dMmPerUnit) +
             " for a feature; set a larger dFeatureRadius or a smaller dFeatureGridSize with --settings",
         false);
    return NotEveryScan;
}

int showFeatures(const FeaturesOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const prereg::FeatureSurvey found = survey(options);
    if (found && !options.output.empty()) prereg::WriteColouredFeatures(options.output, found);
    std::cout << Zorvan::ToShown(options.scan) << '\n' << prereg::CountsText(found);
    if (!found) return refuseEmpty(options, found.config.dFeatureRadius);
    if (!options.general.isQuiet) std::cout << prereg::ShapeText(found);
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
    options->general.AddToShared(command);
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
