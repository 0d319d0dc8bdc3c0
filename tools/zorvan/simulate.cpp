#include "commands.h"
#include "options.h"
#include "progress.h"
#include "tools/virtualscanner/virtualscanner.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/textnumber.h"

#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tools {

namespace {

struct SimulateOptions
{
    std::filesystem::path folder;
    std::size_t uiNumPoints = 0; ///< a view; 0: by the default pixel spacing
    std::string rough = "5,1";
    VirtualScannerSettings scanner;
    GeneralOptions general;
};

std::string nameOf(unsigned view) { return (view < 10 ? "view0" : "view") + std::to_string(view); }

/// Poses of all views in the frame of the first one.
std::vector<prereg::CTrafo> posesInFirst(const CVirtualScanner& scanner)
{
    const prereg::CTrafo toFirst = scanner.GetPose(0).GetInverse(true);
    std::vector<prereg::CTrafo> poses{prereg::CTrafo::Identity()};
    for (unsigned view = 1; view < scanner.GetSettings().uiNumViews; ++view)
        poses.push_back(toFirst * scanner.GetPose(view));
    return poses;
}

Zorvan::PosesFile toFile(const std::vector<prereg::CTrafo>& poses, const std::string& id)
{
    Zorvan::PoseCluster cluster{id, true, {}};
    for (unsigned view = 0; view < poses.size(); ++view)
        cluster.scans.push_back({nameOf(view) + ".ply", nameOf(view), poses[view], {}});
    return {1.0, {cluster}};
}

void checkNoise(double noise)
{
    if (!(noise >= 0.0) || !(noise <= 10.0)) throw Zorvan::CInputError("--noise must be between 0 and 10 millimetres");
}

std::size_t writeViews(const SimulateOptions& options, const CVirtualScanner& scanner,
                       const Zorvan::CStagingFolder& staging)
{
    std::size_t points = 0;
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks();
    hooks.Start("scanning", scanner.GetSettings().uiNumViews);
    for (unsigned view = 0; view < scanner.GetSettings().uiNumViews; ++view) {
        Zorvan::Scan scan = scanner.Render(view).scan;
        points += scan.points.size();
        scan.normals.clear(); // as from a scanner: readers take them from the faces
        Zorvan::WritePly(staging / (nameOf(view) + ".ply"), scan);
        hooks.Advance();
    }
    hooks.Finish();
    return points;
}

int simulate(const SimulateOptions& options)
{
    options.general.Apply();
    checkNoise(options.scanner.dNoise);
    const std::vector<double> rough = ParseNumbers("--rough", options.rough, 2);
    Zorvan::MakeFolder(options.folder);
    Zorvan::RequireWritable(options.folder / "truth.json");
    const Zorvan::CFileLock lock(options.folder / "truth.json", [&](const std::string& holder) {
        throw Zorvan::CInputError(options.folder, "in use by " + holder,
                                  "wait until it has ended, or give another folder");
    });

    VirtualScannerSettings settings = options.scanner;
    settings.uiNumThreads = options.general.uiNumThreads;
    if (options.uiNumPoints > 0) settings.dPixelSpacing = CVirtualScanner(settings).FindSpacing(options.uiNumPoints);
    const CVirtualScanner scanner(settings);
    Zorvan::CStagingFolder staging(options.folder);
    const std::size_t points = writeViews(options, scanner, staging);

    const std::vector<prereg::CTrafo> truth = posesInFirst(scanner);
    const Zorvan::Vector3 middle = scanner.GetPose(0).GetInverse(true) * Zorvan::Vector3(0, 0, 0);
    Zorvan::WritePoses(staging / "truth.json", toFile(truth, "truth"));
    Zorvan::WritePoses(staging / "rough.json",
                       toFile(DisturbPoses(truth, middle, rough[0], rough[1], settings.uiSeed), "rough"));
    staging.Publish();
    std::cout << settings.uiNumViews << " scans with " << points
              << " points, truth.json and rough.json (start poses off by " << Zorvan::ToText(rough[0])
              << " degrees and " << Zorvan::ToText(rough[1]) << " mm) are in "
              << Zorvan::ToShown(options.folder.string()) << '\n';
    return Done;
}

} // namespace

void AddSimulate(CLI::App& app, int& exitCode)
{
    const auto options = std::make_shared<SimulateOptions>();
    CLI::App* const command =
        app.add_subcommand("simulate", "A virtual scanner: scans of a row of teeth with known poses");
    command
        ->add_option("-o,--output", options->folder, "Folder for view00.ply, view01.ply, ..., truth.json, rough.json")
        ->required();
    command->add_option("--views", options->scanner.uiNumViews, "Number of scans (default 6)")
        ->check(CLI::Range(1, 1000));
    command->add_option("--noise", options->scanner.dNoise, "Standard deviation along the ray in mm (default 0.01)");
    command->add_option("--field", options->scanner.dFieldOfView, "Width and height of a view in mm (default 40)")
        ->check(CLI::Range(5.0, 80.0));
    command->add_option("--seed", options->scanner.uiSeed,
                        "Another seed gives another object and other views (default 1)");
    command->add_option("--points", options->uiNumPoints, "About so many points a scan (default: pixels 0.12 mm apart)")
        ->check(CLI::Range(100, 20000000));
    command->add_option("--rough", options->rough,
                        "Turn in degrees and shift in mm of the start poses in rough.json,\n"
                        "all but the first one's (default 5,1)");
    options->general.AddTo(*command, "Threads that scan; the files do not depend on it (default 1)");
    command->footer("Examples:\n"
                    "  zorvan simulate -o demo\n"
                    "  zorvan simulate -o arch --views 24 --field 16\n"
                    "  zorvan simulate -o big --views 2 --points 4000000 --threads 8");
    command->callback([options, &exitCode] { exitCode = simulate(*options); });
}

} // namespace tools
