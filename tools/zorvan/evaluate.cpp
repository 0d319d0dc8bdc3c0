// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/poseerrors.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/showntext.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <string>

namespace tools {

namespace {

struct EvaluateOptions
{
    std::string poses;
    std::string truth;
    double dMaxDegrees = std::numeric_limits<double>::infinity();
    double dMaxMm = std::numeric_limits<double>::infinity();
    GeneralOptions general;
};

const char* wordFor(Zorvan::EPlace place)
{
    switch (place) {
    case Zorvan::EPlace::Reference:
        return "reference";
    case Zorvan::EPlace::Alone:
        return "alone in its cluster";
    default:
        return "no pose";
    }
}

void printTable(const Zorvan::PoseErrors& errors)
{
    std::size_t width = 4;
    for (const Zorvan::PoseError& scan : errors.scans) width = std::max(width, Zorvan::ToShown(scan.file).size());
    const auto name = [width](const std::string& text) { return text + std::string(width - text.size() + 2, ' '); };
    std::cout << name("scan") << "   degrees         mm\n" << std::fixed;
    for (const Zorvan::PoseError& scan : errors.scans) {
        std::cout << name(Zorvan::ToShown(scan.file));
        if (scan.ePlace != Zorvan::EPlace::Measured)
            std::cout << wordFor(scan.ePlace) << '\n';
        else
            std::cout << std::setprecision(5) << std::setw(10) << scan.dDegrees << ' ' << std::setw(10) << scan.dMm
                      << '\n';
    }
}

void printSummary(const Zorvan::PoseErrors& errors)
{
    const auto placed = std::count_if(errors.scans.begin(), errors.scans.end(), [](const Zorvan::PoseError& scan) {
        return scan.ePlace == Zorvan::EPlace::Measured || scan.ePlace == Zorvan::EPlace::Reference;
    });
    std::cout << placed << " of " << errors.scans.size() << " scans have a place";
    if (errors.uiMeasured > 0)
        std::cout << std::fixed << std::setprecision(5) << "; median " << errors.dMedianDegrees << " degrees, "
                  << errors.dMedianMm << " mm; worst " << errors.dWorstDegrees << " degrees, " << errors.dWorstMm
                  << " mm";
    std::cout << '\n';
}

int evaluate(const EvaluateOptions& options)
{
    options.general.Apply();
    const Zorvan::PoseErrors errors =
        Zorvan::ComparePoses(Zorvan::ReadPoses(options.poses), Zorvan::ReadPoses(options.truth));
    if (errors.scans.empty()) throw Zorvan::CInputError(options.truth, "holds no pose", "give the true poses");
    if (!options.general.isQuiet) printTable(errors);
    printSummary(errors);
    const bool isNear = errors.dWorstDegrees <= options.dMaxDegrees && errors.dWorstMm <= options.dMaxMm;
    return errors.isComplete && isNear ? Done : NotEveryScan;
}

} // namespace

void AddEvaluate(CCommand app)
{
    const auto options = std::make_shared<EvaluateOptions>();
    CCommand command = app.AddCommand("evaluate", "Errors of poses against the true ones, scan by scan");
    command.AddOption("POSES.json", options->poses, "Poses to judge").Required();
    command.AddOption("TRUTH.json", options->truth, "True poses; scans are matched by file name").Required();
    command.AddOption("--max-degrees", options->dMaxDegrees, "Exit code 1 when a rotation is further off");
    command.AddOption("--max-mm", options->dMaxMm, "Exit code 1 when a translation is further off");
    options->general.AddTo(command, "Accepted for all commands; evaluating uses one");
    command.SetFooter("Exit code 0: every scan of the truth has a place, within the limits; 1: not so.\n"
                      "In each cluster, poses are compared relative to its first scan.\n\n"
                      "Examples:\n"
                      "  zorvan evaluate poses.json demo/truth.json\n"
                      "  zorvan evaluate poses.json demo/truth.json --max-degrees 0.1 --max-mm 0.05");
    command.SetAction([options] { return evaluate(*options); });
}

} // namespace tools
