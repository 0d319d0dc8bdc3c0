// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"
#include "zorvan/workflow/colourscale.h"
#include "zorvan/workflow/primitivefit.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

namespace {

using Json = nlohmann::ordered_json;

constexpr double dColourRange = 3.0; // RMSE from the middle of the scale to its ends

struct FitOptions
{
    std::string primitive;
    std::string scan;
    std::vector<std::string> fixed;
    std::vector<std::string> bounded;
    std::filesystem::path output;
    GeneralOptions general;
    ScanFileOptions files;

    [[nodiscard]] std::filesystem::path Residuals() const
    {
        return output.parent_path() / (output.stem().string() + "_residuals.ply");
    }
};

prereg::EPrimitive primitiveOf(const std::string& word)
{
    if (word == "sphere") return prereg::EPrimitive::Sphere;
    if (word == "cylinder") return prereg::EPrimitive::Cylinder;
    return prereg::EPrimitive::Cone;
}

double parseLength(const std::string& option, const std::string& text, double dMmPerUnit)
{
    const double length = ParseNumbers(option, text, 1).front() * dMmPerUnit;
    if (!(length > 0.0)) throw Zorvan::CInputError(option + ": a radius is greater than 0");
    return length;
}

/// What stands behind "radius=".
std::string valueOf(const FitOptions& options, const std::string& option, const std::string& text)
{
    const std::string name = "radius=";
    if (options.primitive == "cone")
        throw Zorvan::CInputError(option + ": a cone has no radius of its own; only sphere and cylinder take one");
    if (text.compare(0, name.size(), name) != 0)
        throw Zorvan::CInputError(option + ": \"" + text +
                                  "\" does not begin with radius=, the one thing that can be given");
    return text.substr(name.size());
}

prereg::RadiusLimits limitsOf(const FitOptions& options)
{
    prereg::RadiusLimits limits;
    for (const std::string& text : options.bounded) {
        const std::string value = valueOf(options, "--bound", text);
        const std::size_t colon = value.find(':');
        if (colon == std::string::npos)
            throw Zorvan::CInputError("--bound: \"" + text +
                                      "\" is not two lengths with a colon between, as radius=2:3");
        limits.dLow = parseLength("--bound", value.substr(0, colon), options.files.dMmPerUnit);
        limits.dHigh = parseLength("--bound", value.substr(colon + 1), options.files.dMmPerUnit);
        if (!(limits.dLow < limits.dHigh))
            throw Zorvan::CInputError("--bound: the first length must be the smaller one");
    }
    for (const std::string& text : options.fixed) {
        limits.dLow = parseLength("--fix", valueOf(options, "--fix", text), options.files.dMmPerUnit);
        limits.dHigh = limits.dLow;
    }
    return limits;
}

void checkOutput(const FitOptions& options)
{
    if (options.output.empty()) return;
    for (const auto& file : {options.output, options.Residuals()}) {
        Zorvan::RequireApart(file, {options.scan});
        Zorvan::RequireWritable(file);
    }
}

double inUnit(double value, const prereg::PrimitiveProperty& property, const FitOptions& options)
{
    return property.isLength ? value / options.files.dMmPerUnit : value;
}

std::string toText(const Eigen::VectorXd& values, const prereg::PrimitiveProperty& property, const FitOptions& options,
                   int digits)
{
    std::string text;
    for (const double value : values)
        text += (text.empty() ? "" : ", ") + Zorvan::ToText(inUnit(value, property, options), digits);
    return text;
}

void print(const FitOptions& options, const Zorvan::SurfelScan& scan, const prereg::PrimitiveFit& fit)
{
    const std::string unit = Zorvan::UnitName(options.files.dMmPerUnit);
    std::cout << options.primitive << " through " << scan.points.size() << " points, RMSE "
              << Zorvan::ToText(fit.dRmse / options.files.dMmPerUnit) << ' ' << unit << '\n';
    for (const prereg::PrimitiveProperty& property : fit.properties) {
        std::cout << "  " << property.name << std::string(22 - property.name.size(), ' ')
                  << toText(property.value, property, options, 7);
        if (property.deviation.size() > 0) std::cout << " +- " << toText(property.deviation, property, options, 2);
        std::cout << (property.isLength ? " " + unit : property.value.size() == 1 ? " degrees" : "") << '\n';
    }
}

Json toJson(const Eigen::VectorXd& values, const prereg::PrimitiveProperty& property, const FitOptions& options)
{
    if (values.size() == 1) return Zorvan::JsonNumber(inUnit(values(0), property, options));
    Json list = Json::array();
    for (const double value : values) list.push_back(Zorvan::JsonNumber(inUnit(value, property, options)));
    return list;
}

void writeJson(const std::filesystem::path& file, const FitOptions& options, const Zorvan::SurfelScan& scan,
               const prereg::PrimitiveFit& fit)
{
    Json json{{"primitive", options.primitive},
              {"file", options.scan},
              {"unit", Zorvan::UnitName(options.files.dMmPerUnit)},
              {"points", scan.points.size()},
              {"rmse", Zorvan::JsonNumber(fit.dRmse / options.files.dMmPerUnit)}};
    for (const prereg::PrimitiveProperty& property : fit.properties) {
        json[property.name] = {{"value", toJson(property.value, property, options)}};
        if (property.deviation.size() > 0)
            json[property.name]["deviation"] = toJson(property.deviation, property, options);
    }
    Zorvan::WriteFileAtomically(file, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void writeResiduals(const std::filesystem::path& file, const FitOptions& options, const Zorvan::SurfelScan& scan,
                    const prereg::PrimitiveFit& fit)
{
    std::vector<Zorvan::Rgb> colours;
    for (const double residual : fit.residuals)
        colours.push_back(prereg::ColourAt(0.5 + residual / (2.0 * dColourRange * fit.dRmse)));
    Zorvan::WritePly(file, {scan.points, scan.normals, {}}, 1.0 / options.files.dMmPerUnit, colours);
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
    const prereg::PrimitiveFit fit = prereg::FitPrimitive(scan, primitiveOf(options.primitive), limits);
    if (!fit.IsFound()) return refuse(options, fit);
    if (!options.output.empty()) {
        Zorvan::CStagingFolder staging(options.output.parent_path());
        writeResiduals(staging / options.Residuals().filename(), options, scan, fit);
        writeJson(staging / options.output.filename(), options, scan, fit);
        staging.Publish();
    }
    print(options, scan, fit);
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
