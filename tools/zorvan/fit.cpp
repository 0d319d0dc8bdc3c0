// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/primitivefile.h"
#include "zorvan/workflow/primitivefit.h"
#include "zorvan/workflow/radiuslimits.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct FitOptions
{
    std::string primitive;
    std::string scan;
    std::vector<std::string> fixed;
    std::vector<std::string> bounded;
    std::filesystem::path output;
    GeneralOptions general;
    ScanFileOptions files;
};

prereg::RadiusLimits limitsOf(const FitOptions& options)
{
    if (options.primitive == "cone" && !(options.bounded.empty() && options.fixed.empty()))
        throw Zorvan::CInputError("a cone has no radius of its own; only sphere and cylinder take --fix and --bound");
    prereg::RadiusLimits limits;
    for (const std::string& text : options.bounded)
        limits = prereg::ReadRadiusBounds("--bound", text, options.files.dMmPerUnit);
    for (const std::string& text : options.fixed)
        limits = prereg::ReadFixedRadius("--fix", text, options.files.dMmPerUnit);
    return limits;
}

void checkOutput(const FitOptions& options)
{
    if (options.output.empty()) return;
    for (const auto& file : {options.output, prereg::ResidualsBeside(options.output)}) {
        Zorvan::RequireApart(file, {options.scan});
        Zorvan::RequireWritable(file);
    }
}

int refuse(const FitOptions& options, const prereg::PrimitiveFit& fit)
{
    const std::wstring message = Zorvan::CNLSSolver::GetMessage(fit.eResult);
    Tell(options.scan + ": no " + options.primitive + " fits (" + std::string(message.begin(), message.end()) +
             "); the normals must show how the surface turns",
         false);
    return NotEveryScan;
}

int fitScan(const FitOptions& options)
{
    options.general.Apply();
    const prereg::RadiusLimits limits = limitsOf(options);
    checkOutput(options);
    const Zorvan::SurfelScan scan = Zorvan::ReadScan(options.scan, options.files.ToScanOptions());
    Tell(scan.Warning(), options.general.isQuiet);
    const prereg::PrimitiveFit fit =
        prereg::FitPrimitive(scan, prereg::PrimitiveNamed(options.primitive).value(), limits);
    if (!fit.IsFound()) return refuse(options, fit);
    if (!options.output.empty()) prereg::WriteFit(options.output, scan, fit, options.files.dMmPerUnit);
    std::cout << prereg::ToText(fit, options.files.dMmPerUnit);
    return Done;
}

} // namespace

void AddFit(CCommand app)
{
    const auto options = std::make_shared<FitOptions>();
    CCommand command = app.AddCommand("fit", "Fits a sphere, cylinder or cone to a scan");
    command.AddOption("PRIMITIVE", options->primitive, "sphere, cylinder or cone")
        .Required()
        .Among({"sphere", "cylinder", "cone"});
    command.AddOption("SCAN", options->scan, "The scan: " + Zorvan::ReadFormats()).Required();
    command.AddOption("--fix", options->fixed, "radius=R: the radius is known, in file units").TakesOneValue();
    command.AddOption("--bound", options->bounded, "radius=LOW:HIGH: the radius lies between, in file units")
        .TakesOneValue();
    command.AddOption("-o,--output", options->output,
                      "JSON to write; beside it the scan as NAME_residuals.ply, coloured from dark blue (3 RMSE\n"
                      "inside the surface) to yellow (3 RMSE outside)");
    options->files.AddTo(command);
    options->general.AddTo(command, "Accepted for all commands; fitting uses one");
    command.SetFooter("Behind +- stands one standard deviation, from the scatter of the points about the surface.\n"
                      "Exit code 0: fitted; 1: no such primitive fits, and no file is written; 2: wrong call or\n"
                      "unreadable input.\n\n"
                      "Examples:\n"
                      "  zorvan fit sphere ball.ply\n"
                      "  zorvan fit cylinder bore.ply --fix radius=2.5 -o bore.json\n"
                      "  zorvan fit cylinder bore.ply --bound radius=2:3");
    command.SetAction([options] { return fitScan(*options); });
}

} // namespace tools
