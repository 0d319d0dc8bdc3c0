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
#include "zorvan/workflow/moves.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct ApplyOptions
{
    std::string poses;
    std::vector<std::string> scans;
    std::string folder;
    double dMmPerUnit = 0.0; ///< not positive: that of the poses
    GeneralOptions general;
};

std::filesystem::path outputOf(const ApplyOptions& options, const std::string& scan)
{
    return std::filesystem::path(options.folder) / NameOf(scan);
}

/// Nothing that is read is replaced, and no result by another.
void checkCall(const ApplyOptions& options)
{
    Zorvan::RequireDistinctNames(options.scans);
    std::vector<std::string> inputs = options.scans;
    inputs.push_back(options.poses);
    for (const std::string& scan : options.scans) Zorvan::RequireApart(outputOf(options, scan), inputs);
}

int apply(const ApplyOptions& options)
{
    options.general.Apply();
    checkCall(options);
    const Zorvan::PosesFile poses = Zorvan::ReadPoses(options.poses);
    std::vector<prereg::FileMove> moves;
    for (const std::string& scan : options.scans) {
        const auto move = prereg::FindMove(poses, scan, options.dMmPerUnit);
        if (!move)
            throw Zorvan::CInputError(options.poses, "has no pose of " + NameOf(scan),
                                      "leave the scan out, or add a pose under this file name");
        if (!move->why.empty())
            Tell("left out: " + move->why, false);
        else
            moves.push_back(*move);
    }
    Zorvan::MakeFolder(options.folder);
    for (const std::string& scan : options.scans) Zorvan::RequireWritable(outputOf(options, scan));

    const Zorvan::CInterruption interruption;
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks(interruption);
    std::size_t written = 0;
    for (const prereg::FileMove& move : moves) {
        const std::filesystem::path output = outputOf(options, move.file.string());
        const Zorvan::MoveResult result = prereg::Apply(move, output, hooks);
        if (result.isStopped) break;
        ++written;
        if (!result.words.empty()) Tell(output.string() + ": " + result.words, options.general.isQuiet);
    }
    std::cout << written << " of " << options.scans.size() << " scans written to " << Zorvan::ToShown(options.folder)
              << '\n';
    return written == options.scans.size() ? Done : NotEveryScan;
}

} // namespace

void AddApply(CCommand app)
{
    const auto options = std::make_shared<ApplyOptions>();
    CCommand command =
        app.AddCommand("apply", "Write scans, every point and attribute of them, in the frame of their poses");
    command.AddOption("POSES", options->poses, "Poses file, such as register writes").Required();
    command.AddOption("SCAN", options->scans, "The scans, found in it by file name: " + Zorvan::ReadFormats())
        .Required();
    command.AddOption("-o,--output", options->folder, "Folder for them; each keeps its name and format").Required();
    command
        .AddOption("--scale", options->dMmPerUnit,
                   "Millimetres per unit of the scan files; 1000 for metres (default: as the poses)")
        .Positive();
    options->general.AddTo(command, "Accepted for all commands; applying uses one");
    command.SetFooter(
        "Points, normals and the sensor move; all else stays: colours, faces, unknown properties, comments,\n"
        "the order of points. E57 and PTX get new poses, and keep their points. Files of any size take\n"
        "some megabytes of memory, but for PCD that is compressed. Ctrl-C ends between files.\n"
        "Exit code 0: all are written; 1: some have no pose in the common frame, or it was stopped;\n"
        "2: wrong call, unreadable input or unwritable output.\n\n"
        "Example:\n"
        "  zorvan apply out/poses.json scans/*.las -o registered");
    command.SetAction([options] { return apply(*options); });
}

} // namespace tools
