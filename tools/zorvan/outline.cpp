// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "tools/pictures/maskregions.h"
#include "tools/pictures/outlinepicture.h"
#include "tools/pictures/picture.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/outputcheck.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

namespace tools {

namespace {

constexpr int iMostDilation = 10000;

struct OutlineOptions
{
    std::string input;
    std::string output;
    unsigned uiDilation = 0;
    int iThreshold = 128;
    int iLeastArea = 1;
    GeneralOptions general;
};

void checkCall(const OutlineOptions& options)
{
    Zorvan::RequireApart(options.output, {options.input});
    if (std::filesystem::path(options.output).extension() != ".svg")
        throw Zorvan::CInputError(options.output, "outlines are written as SVG", "give a name that ends in .svg");
    Zorvan::RequireWritable(options.output);
}

int outline(const OutlineOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const Picture picture = ReadPng(options.input);
    const auto regions = RegionsOf(picture, {options.iThreshold, options.iLeastArea, options.uiDilation});
    if (regions.empty()) {
        Tell(options.input + ": no region of " + std::to_string(options.iLeastArea) +
                 " pixels or more that are at least " + std::to_string(options.iThreshold) +
                 " bright; give another --threshold or --min-area",
             false);
        return NotEveryScan;
    }
    Zorvan::WriteFileAtomically(options.output,
                                DrawOutlines(regions, picture.uiWidth, picture.uiHeight, options.uiDilation));
    if (!options.general.isQuiet) std::cout << TableText(regions);
    return Done;
}

} // namespace

void AddOutline(CCommand app)
{
    const auto options = std::make_shared<OutlineOptions>();
    CCommand command = app.AddCommand("outline", "Traces the regions of a mask and measures them");
    command
        .AddOption("IN", options->input, "The mask, PNG: regions are bright, what is around them dark or transparent")
        .Required();
    command.AddOption("-o,--output", options->output, "SVG to write: one path a region, numbered as in the table")
        .Required();
    command.AddOption("--dilate", options->uiDilation, "Pixels by which each region grows to all sides (default 0)")
        .Between(0, iMostDilation);
    command.AddOption("--threshold", options->iThreshold, "How bright a pixel of a region is at least (default 128)")
        .Between(1, 255);
    command.AddOption("--min-area", options->iLeastArea, "Regions of fewer pixels are left out (default 1)");
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter(
        "The table: area in pixels, holes included; perimeter from centre to centre of the outermost pixels;\n"
        "roundness, perimeter^2 / area, 12.57 for a disc and more for all else; centre of gravity.\n"
        "Pixels that touch at a corner hang together. Regions that grow into one another stay apart.\n"
        "Exit code 0: there are regions; 1: there is none, and no file is written; 2: wrong call or\n"
        "unreadable input.\n\n"
        "Example:\n"
        "  zorvan outline mask.png -o outlines.svg --dilate 2 --min-area 20");
    command.SetAction([options] { return outline(*options); });
}

} // namespace tools
