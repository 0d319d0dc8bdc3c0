// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "progress.h"

#include "tools/virtualscanner/scene.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/textnumber.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct SimulateOptions
{
    std::filesystem::path folder;
    std::string rough = "5,1";
    Scene scene;
    GeneralOptions general;
};

int simulate(SimulateOptions options)
{
    options.general.Apply();
    const std::string why = WhatIsWrong(options.scene);
    if (!why.empty()) throw Zorvan::CInputError(why);
    const std::vector<double> rough = ParseNumbers("--rough", options.rough, 2);
    options.scene.dRoughDegrees = rough[0];
    options.scene.dRoughMm = rough[1];
    options.scene.scanner.uiNumThreads = options.general.uiNumThreads;
    Zorvan::MakeFolder(options.folder);
    Zorvan::RequireWritable(options.folder / "truth.json");
    const Zorvan::CFileLock lock(options.folder / "truth.json", [&](const std::string& holder) {
        throw Zorvan::CInputError(options.folder, "in use by " + holder,
                                  "wait until it has ended, or give another folder");
    });

    CProgress progress(options.general.isQuiet);
    const SceneCount count = WriteScene(options.scene, options.folder, progress.Hooks());
    std::cout << count.uiViews << " scans with " << count.uiPoints
              << " points, truth.json and rough.json (start poses off by " << Zorvan::ToText(rough[0])
              << " degrees and " << Zorvan::ToText(rough[1]) << " mm) are in "
              << Zorvan::ToShown(options.folder.string()) << '\n';
    return Done;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

/// What is scanned, and by what.
void addKinds(CCommand command, Scene& scene)
{
    command
        .AddOption("--object", scene.object,
                   "One of " + joined(SceneObjectNames()) +
                       " (default jaw).\nA wall grows with the views: each overlaps about as many others")
        .Among(SceneObjectNames());
    command.AddOption("--sensor", scene.sensor,
                      "One of " + joined(SensorNames()) + ",\nor several joined by + (default depth)");
    command.AddOption("--seed", scene.scanner.uiSeed, "Another seed gives another object and other views (default 1)");
    command.AddFlag("--random-views", scene.isRandom, "Look from random sides, not from evenly spread ones");
    command.AddFlag("--video", scene.scanner.isVideo,
                    "Frames of a hand that sweeps along a jaw, 0.4 mm apart, each 14 mm wide\n(--field)");
    command.AddFlag("--triangles", scene.hasTriangles, "Write triangles too; a jaw and a wall have them always");
    command.AddFlag("--overlap", scene.hasOverlap,
                    "Write overlap.csv and object.json; without it for all but a jaw\nand a wall");
    command.AddFlag("--mesh", scene.hasMesh,
                    "Write object.stl, the surface of the object as its maker has it; truth.json\nhas its pose");
}

} // namespace

void AddSimulate(CCommand app)
{
    const auto options = std::make_shared<SimulateOptions>();
    CCommand command =
        app.AddCommand("simulate", "A virtual scanner: scans with known poses of teeth, machine parts, figures, walls");
    command.AddOption("-o,--output", options->folder, "Folder for view00.ply, view01.ply, ..., truth.json, rough.json")
        .Required();
    addKinds(command, options->scene);
    command.AddOption("--views", options->scene.scanner.uiNumViews, "Number of scans (default 6)").Between(1, 1000);
    command.AddOption("--noise", options->scene.noise,
                      "Standard deviation along the ray in mm\n(default 0.01 for a jaw and a wall, 0.02 for others, "
                      "0.1 for a lidar)");
    command
        .AddOption("--spacing", options->scene.spacing,
                   "Of the pixels, or along the rings of a lidar, in mm\n(default 0.12 for a jaw and a wall, else 0.3)")
        .Between(0.01, 10.0);
    command
        .AddOption("--field", options->scene.field,
                   "Width and height of a view of a jaw (default 40) or a wall (16) in mm")
        .Between(5.0, 80.0);
    command.AddOption("--points", options->scene.uiNumPoints, "About so many points a scan, instead of a spacing")
        .Between(100, 20000000);
    command.AddOption("--rough", options->rough,
                      "Turn in degrees and shift in mm of the start poses in rough.json,\n"
                      "all but the first one's (default 5,1)");
    options->general.AddToShared(command);
    command.SetFooter("Examples:\n"
                      "  zorvan simulate -o demo\n"
                      "  zorvan simulate -o arch --views 24 --field 16\n"
                      "  zorvan simulate -o wall --object wall --views 400\n"
                      "  zorvan simulate -o sweep --video --views 200\n"
                      "  zorvan simulate -o big --views 2 --points 4000000\n"
                      "  zorvan simulate -o gear --object gear --sensor triangulation --seed 5 --views 12\n"
                      "  zorvan simulate -o street --object housing --sensor lidar+outliers --noise 0.5");
    command.SetAction([options] { return simulate(*options); });
}

} // namespace tools
