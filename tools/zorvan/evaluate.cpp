// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/poseerrors.h"
#include "zorvan/scans/posesfile.h"

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

int evaluate(const EvaluateOptions& options)
{
    options.general.Apply();
    const Zorvan::PoseErrors errors =
        Zorvan::ComparePoses(Zorvan::ReadPoses(options.poses), Zorvan::ReadPoses(options.truth));
    if (errors.scans.empty()) throw Zorvan::CInputError(options.truth, "holds no pose", "give the true poses");
    if (!options.general.isQuiet) std::cout << Zorvan::TableText(errors);
    std::cout << Zorvan::SummaryText(errors);
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
