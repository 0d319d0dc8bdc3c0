// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "tools/pictures/picture.h"
#include "tools/pictures/picturecurves.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/outputcheck.h"
#include "zorvan/scans/showntext.h"

#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

struct CurveOptions
{
    std::string curves;
    std::string input;
    std::string output;
    GeneralOptions general;
};

void checkCall(const CurveOptions& options)
{
    Zorvan::RequireApart(options.output, {options.input, options.curves});
    Zorvan::RequireWritable(options.output);
}

int applyCurves(const CurveOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const PictureCurves curves = ReadCurves(options.curves);
    Picture picture = ReadPng(options.input);
    Apply(curves, picture);
    WritePng(options.output, picture);
    if (options.general.isQuiet) return Done;
    std::cout << ToText(curves);
    std::cout << Zorvan::ToShown(options.output) << ": " << picture.uiWidth << " x " << picture.uiHeight << " pixels\n";
    return Done;
}

} // namespace

void AddCurve(CCommand app)
{
    const auto options = std::make_shared<CurveOptions>();
    CCommand command = app.AddCommand("curve", "Applies the transfer curves of a file to a picture");
    command.AddOption("CURVES", options->curves, "A text file of curves, see below").Required();
    command.AddOption("IN", options->input, "The picture, PNG").Required();
    command.AddOption("OUT", options->output, "The picture to write, PNG with 8 bits a channel").Required();
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter(
        "Red, green and blue go through their own curve and then through that of \"value\".\n"
        "A file of curves; points of a smooth curve are shares of the range, samples of a free one bytes:\n"
        "  (time 0)\n"
        "  (channel red)\n"
        "  (curve (curve-type smooth) (n-points 3) (points 6  0 0  0.5 0.6  1 1)\n"
        "         (n-samples 0) (samples 0))\n"
        "  (channel blue)\n"
        "  (curve (curve-type free) (n-points 0) (points 0) (n-samples 3) (samples 3  0 90 255))\n"
        "Channels: value, red, green, blue, alpha. Exit code 2: wrong call or unreadable input.\n\n"
        "Example:\n"
        "  zorvan curve warm.curve photo.png warm.png");
    command.SetAction([options] { return applyCurves(*options); });
}

} // namespace tools
