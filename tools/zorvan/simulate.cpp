// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"
#include "progress.h"

#include "tools/virtualscanner/objectmesh.h"
#include "tools/virtualscanner/overlaptable.h"
#include "tools/virtualscanner/virtualobjects.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filelock.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/stlwriter.h"
#include "zorvan/scans/textnumber.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tools {

namespace {

struct SimulateOptions
{
    std::filesystem::path folder;
    std::string object = "jaw";
    std::string sensor = "depth";
    std::size_t uiNumPoints = 0;   ///< a view; 0: by the pixel spacing
    std::optional<double> spacing; ///< mm; without one, that of the kind of object
    std::optional<double> noise;   ///< mm; without one, that of the kind of object and sensor
    std::optional<double> field;   ///< mm; of a jaw
    bool isRandom = false;         ///< views from anywhere, not evenly spread
    bool hasTriangles = false;     ///< also for what is no jaw
    bool hasOverlap = false;       ///< also for a jaw
    bool hasMesh = false;          ///< of the object itself
    std::string rough = "5,1";
    VirtualScannerSettings scanner;
    GeneralOptions general;

    [[nodiscard]] bool IsJaw() const { return object == "jaw"; }
    [[nodiscard]] bool IsLidar() const { return sensor.find("lidar") != std::string::npos; }
};

constexpr const char* sMeshFile = "object.stl";

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

void check(const SimulateOptions& options)
{
    if (options.noise && (!(*options.noise >= 0.0) || !(*options.noise <= 10.0)))
        throw Zorvan::CInputError("--noise must be between 0 and 10 millimetres");
    if (options.field && (!options.IsJaw() || options.IsLidar()))
        throw Zorvan::CInputError("--field goes with views along a jaw; other objects are seen whole");
    if (options.uiNumPoints > 0 && options.IsLidar())
        throw Zorvan::CInputError("--points does not go with a lidar: give --spacing, the one along its rings");
    try {
        (void)SensorFor(options.sensor, {});
    } catch (const std::invalid_argument& error) {
        throw Zorvan::CInputError(std::string("--sensor: ") + error.what());
    }
}

/// A jaw keeps the small holes and the whole points that it has always had; what else is simulated is a coarser scan of
/// a larger thing.
CVirtualScanner makeScanner(const SimulateOptions& options, VirtualScannerSettings settings)
{
    settings.dPixelSpacing = options.spacing.value_or(options.IsJaw() && !options.IsLidar() ? 0.12 : 0.3);
    settings.dNoise = options.noise.value_or(options.IsLidar() ? 0.1 : options.IsJaw() ? 0.01 : 0.02);
    settings.dFieldOfView = options.field.value_or(settings.dFieldOfView);
    const auto object = MakeObject(options.object, settings.uiSeed);
    SensorEffects effects = SensorFor(options.sensor, object->GetTraits());
    if (!options.IsJaw() || options.IsLidar())
        return {object, effects, settings, options.isRandom ? EDirections::Random : EDirections::Fibonacci};
    effects.dMissing = 0.0;
    return {effects, settings};
}

CVirtualScanner makeScanner(SimulateOptions options)
{
    VirtualScannerSettings settings = options.scanner;
    settings.uiNumThreads = options.general.uiNumThreads;
    if (options.uiNumPoints > 0) options.spacing = makeScanner(options, settings).FindSpacing(options.uiNumPoints);
    return makeScanner(options, settings);
}

/// Writes the views. @return their points
std::vector<prereg::Vectors> writeViews(const SimulateOptions& options, const CVirtualScanner& scanner,
                                        const Zorvan::CStagingFolder& staging)
{
    std::vector<prereg::Vectors> points;
    CProgress progress(options.general.isQuiet);
    const Zorvan::Hooks hooks = progress.Hooks();
    hooks.Start("scanning", scanner.GetSettings().uiNumViews);
    for (unsigned view = 0; view < scanner.GetSettings().uiNumViews; ++view) {
        Zorvan::Scan scan = scanner.Render(view).scan;
        scan.normals.clear(); // as from a scanner: readers take them from the faces
        if (!options.IsJaw() && !options.hasTriangles) scan.faces.clear();
        Zorvan::WritePly(staging / (nameOf(view) + ".ply"), scan);
        points.push_back(std::move(scan.points));
        hooks.Advance();
    }
    hooks.Finish();
    return points;
}

/// Within three spacings; rings are further apart than that, and much noise drives points apart.
double reachOf(const SimulateOptions& options, const VirtualScannerSettings& settings)
{
    const double rings = options.IsLidar() ? Rings{}.dRatio * settings.dPixelSpacing : 0.0;
    return std::max({3.0 * settings.dPixelSpacing, rings, 3.0 * settings.dNoise});
}

void writeOverlap(const std::filesystem::path& file, const std::vector<std::vector<double>>& table)
{
    std::string text = "scan";
    for (unsigned view = 0; view < table.size(); ++view) text += ',' + nameOf(view);
    for (unsigned view = 0; view < table.size(); ++view) {
        text += '\n' + nameOf(view);
        for (const double share : table[view]) {
            std::array<char, 16> number{};
            std::snprintf(number.data(), number.size(), ",%.3f", share);
            text += number.data();
        }
    }
    Zorvan::WriteFileAtomically(file, text + '\n');
}

/// What was scanned and how: enough to judge a pose that somebody found.
void writeObject(const std::filesystem::path& file, const SimulateOptions& options, const CVirtualScanner& scanner)
{
    const ObjectTraits& traits = scanner.GetObject().GetTraits();
    const prereg::CTrafo toFirst = scanner.GetPose(0).GetInverse(true);
    const Zorvan::Vector3 middle = toFirst * traits.middle;
    nlohmann::ordered_json json = {
        {"object", options.object},
        {"sensor", options.sensor},
        {"seed", scanner.GetSettings().uiSeed},
        {"unit", "mm"},
        {"extent", Zorvan::JsonNumber(traits.dSize)},
        {"spacing", Zorvan::JsonNumber(scanner.GetSettings().dPixelSpacing)},
        {"noise", Zorvan::JsonNumber(scanner.GetSettings().dNoise)},
        {"middle", {Zorvan::JsonNumber(middle.x), Zorvan::JsonNumber(middle.y), Zorvan::JsonNumber(middle.z)}},
        {"symmetries", nlohmann::ordered_json::array()}};
    for (const prereg::CTrafo& symmetry : traits.symmetries)
        json["symmetries"].push_back(Zorvan::JsonPose(toFirst * symmetry * scanner.GetPose(0), 1.0));
    Zorvan::WriteFileAtomically(file, json.dump(1) + '\n');
}

/// As a maker has it: corners where the edges are, closed.
void writeMesh(const CVirtualScanner& scanner, const Zorvan::CStagingFolder& staging)
{
    constexpr double dCells = 120; // along the object; its walls are 1/30 thick and more
    const AVirtualObject& object = scanner.GetObject();
    Zorvan::WriteStl(staging / sMeshFile, MeshObject(object, object.GetTraits().dSize / dCells));
}

void writeTruth(const SimulateOptions& options, const CVirtualScanner& scanner,
                const std::vector<prereg::Vectors>& points, const Zorvan::CStagingFolder& staging)
{
    const std::vector<double> rough = ParseNumbers("--rough", options.rough, 2);
    const std::vector<prereg::CTrafo> truth = posesInFirst(scanner);
    const prereg::CTrafo toFirst = scanner.GetPose(0).GetInverse(true);
    const Zorvan::Vector3 middle = toFirst * scanner.GetObject().GetTraits().middle;
    Zorvan::PosesFile truthFile = toFile(truth, "truth");
    if (options.hasMesh) truthFile.clusters[0].scans.push_back({sMeshFile, "object", toFirst, {}});
    Zorvan::WritePoses(staging / "truth.json", truthFile);
    Zorvan::WritePoses(staging / "rough.json",
                       toFile(DisturbPoses(truth, middle, rough[0], rough[1], scanner.GetSettings().uiSeed), "rough"));
    if (options.IsJaw() && !options.IsLidar() && !options.hasOverlap) return;
    writeObject(staging / "object.json", options, scanner);
    writeOverlap(staging / "overlap.csv", OverlapTable(points, truth, reachOf(options, scanner.GetSettings()),
                                                       scanner.GetSettings().uiNumThreads));
}

int simulate(const SimulateOptions& options)
{
    options.general.Apply();
    check(options);
    const std::vector<double> rough = ParseNumbers("--rough", options.rough, 2);
    Zorvan::MakeFolder(options.folder);
    Zorvan::RequireWritable(options.folder / "truth.json");
    const Zorvan::CFileLock lock(options.folder / "truth.json", [&](const std::string& holder) {
        throw Zorvan::CInputError(options.folder, "in use by " + holder,
                                  "wait until it has ended, or give another folder");
    });

    const CVirtualScanner scanner = makeScanner(options);
    Zorvan::CStagingFolder staging(options.folder);
    const std::vector<prereg::Vectors> points = writeViews(options, scanner, staging);
    writeTruth(options, scanner, points, staging);
    if (options.hasMesh) writeMesh(scanner, staging);
    staging.Publish();
    const std::size_t total =
        std::accumulate(points.begin(), points.end(), std::size_t{0},
                        [](std::size_t sum, const prereg::Vectors& view) { return sum + view.size(); });
    std::cout << points.size() << " scans with " << total << " points, truth.json and rough.json (start poses off by "
              << Zorvan::ToText(rough[0]) << " degrees and " << Zorvan::ToText(rough[1]) << " mm) are in "
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
void addKinds(CCommand command, SimulateOptions& options)
{
    command.AddOption("--object", options.object, "One of " + joined(ObjectNames()) + " (default jaw)")
        .Among(ObjectNames());
    command.AddOption("--sensor", options.sensor,
                      "One of " + joined(SensorNames()) + ",\nor several joined by + (default depth)");
    command.AddOption("--seed", options.scanner.uiSeed,
                      "Another seed gives another object and other views (default 1)");
    command.AddFlag("--random-views", options.isRandom, "Look from random sides, not from evenly spread ones");
    command.AddFlag("--triangles", options.hasTriangles, "Write triangles too; a jaw has them always");
    command.AddFlag("--overlap", options.hasOverlap, "Write overlap.csv and object.json; without it for all but a jaw");
    command.AddFlag("--mesh", options.hasMesh,
                    "Write object.stl, the surface of the object as its maker has it; truth.json\nhas its pose");
}

} // namespace

void AddSimulate(CCommand app)
{
    const auto options = std::make_shared<SimulateOptions>();
    CCommand command =
        app.AddCommand("simulate", "A virtual scanner: scans with known poses of teeth, machine parts, figures");
    command.AddOption("-o,--output", options->folder, "Folder for view00.ply, view01.ply, ..., truth.json, rough.json")
        .Required();
    addKinds(command, *options);
    command.AddOption("--views", options->scanner.uiNumViews, "Number of scans (default 6)").Between(1, 1000);
    command.AddOption(
        "--noise", options->noise,
        "Standard deviation along the ray in mm\n(default 0.01 for a jaw, 0.02 for others, 0.1 for a lidar)");
    command
        .AddOption("--spacing", options->spacing,
                   "Of the pixels, or along the rings of a lidar, in mm\n(default 0.12 for a jaw, else 0.3)")
        .Between(0.01, 10.0);
    command.AddOption("--field", options->field, "Width and height of a view of a jaw in mm (default 40)")
        .Between(5.0, 80.0);
    command.AddOption("--points", options->uiNumPoints, "About so many points a scan, instead of a spacing")
        .Between(100, 20000000);
    command.AddOption("--rough", options->rough,
                      "Turn in degrees and shift in mm of the start poses in rough.json,\n"
                      "all but the first one's (default 5,1)");
    options->general.AddTo(command, "Threads that scan; the files do not depend on it (default 1)");
    command.SetFooter("Examples:\n"
                      "  zorvan simulate -o demo\n"
                      "  zorvan simulate -o arch --views 24 --field 16\n"
                      "  zorvan simulate -o big --views 2 --points 4000000 --threads 8\n"
                      "  zorvan simulate -o gear --object gear --sensor triangulation --seed 5 --views 12\n"
                      "  zorvan simulate -o street --object housing --sensor lidar+outliers --noise 0.5");
    command.SetAction([options] { return simulate(*options); });
}

} // namespace tools
