// SPDX-License-Identifier: MIT
#include "scene.h"

#include "objectmesh.h"
#include "overlaptable.h"
#include "virtualobjects.h"
#include "virtualwall.h"

#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/jsonvalues.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stagingfolder.h"
#include "zorvan/scans/stlwriter.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

namespace tools {

namespace {

constexpr const char* sMeshFile = "object.stl";
constexpr double dPatch = 16.0; // mm; of a wall that a view sees
constexpr double dFrame = 14.0; // mm; what a hand-held scanner sees at once

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

/// Looks at a wall that goes half a view beyond the outermost views.
CVirtualScanner overWall(const SensorEffects& effects, const VirtualScannerSettings& settings)
{
    std::vector<prereg::CTrafo> views = ViewsOverWall(settings.uiNumViews, settings.dFieldOfView, settings.uiSeed);
    float furthest = 0.0F;
    for (const prereg::CTrafo& view : views) {
        const Zorvan::Vector3 place = view.GetTranslation();
        furthest = std::max({furthest, std::abs(place.x), std::abs(place.y)});
    }
    const double halfWidth = furthest + settings.dFieldOfView;
    return {std::make_shared<CVirtualWall>(settings.uiSeed, halfWidth), std::move(views), effects, settings};
}

/// A jaw keeps the small holes and the whole points that it has always had, and a wall is scanned like it; what else is
/// simulated is a coarser scan of a larger thing.
CVirtualScanner makeScanner(const Scene& scene, VirtualScannerSettings settings)
{
    settings.dPixelSpacing = scene.spacing.value_or(scene.IsByPatches() ? 0.12 : 0.3);
    settings.dNoise = scene.noise.value_or(scene.IsLidar() ? 0.1 : scene.IsByPatches() ? 0.01 : 0.02);
    settings.dFieldOfView = scene.field.value_or(settings.isVideo ? dFrame
                                                 : scene.IsWall() ? dPatch
                                                                  : settings.dFieldOfView);
    if (scene.IsWall()) {
        SensorEffects effects = SensorFor(scene.sensor, {});
        effects.dMissing = 0.0;
        return overWall(effects, settings);
    }
    const auto object = MakeObject(scene.object, settings.uiSeed);
    SensorEffects effects = SensorFor(scene.sensor, object->GetTraits());
    if (!scene.IsByPatches())
        return {object, effects, settings, scene.isRandom ? EDirections::Random : EDirections::Fibonacci};
    effects.dMissing = 0.0;
    return {effects, settings};
}

/// Writes the views. @return their points
std::vector<prereg::Vectors> writeViews(const Scene& scene, const CVirtualScanner& scanner,
                                        const Zorvan::CStagingFolder& staging, const Zorvan::Hooks& hooks)
{
    std::vector<prereg::Vectors> points;
    hooks.Start("scanning", scanner.GetSettings().uiNumViews);
    for (unsigned view = 0; view < scanner.GetSettings().uiNumViews; ++view) {
        Zorvan::Scan scan = scanner.Render(view).scan;
        scan.normals.clear(); // as from a scanner: readers take them from the faces
        if (!scene.IsJaw() && !scene.IsByPatches() && !scene.hasTriangles) scan.faces.clear();
        Zorvan::WritePly(staging / (nameOf(view) + ".ply"), scan);
        points.push_back(std::move(scan.points));
        hooks.Advance();
    }
    hooks.Finish();
    return points;
}

/// Within three spacings; rings are further apart than that, and much noise drives points apart.
double reachOf(const Scene& scene, const VirtualScannerSettings& settings)
{
    const double rings = scene.IsLidar() ? Rings{}.dRatio * settings.dPixelSpacing : 0.0;
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
void writeObject(const std::filesystem::path& file, const Scene& scene, const CVirtualScanner& scanner)
{
    const ObjectTraits& traits = scanner.GetObject().GetTraits();
    const prereg::CTrafo toFirst = scanner.GetPose(0).GetInverse(true);
    const Zorvan::Vector3 middle = toFirst * traits.middle;
    nlohmann::ordered_json json = {
        {"object", scene.object},
        {"sensor", scene.sensor},
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

void writeTruth(const Scene& scene, const CVirtualScanner& scanner, const std::vector<prereg::Vectors>& points,
                const Zorvan::CStagingFolder& staging)
{
    const std::vector<prereg::CTrafo> truth = posesInFirst(scanner);
    const prereg::CTrafo toFirst = scanner.GetPose(0).GetInverse(true);
    const Zorvan::Vector3 middle = toFirst * scanner.GetObject().GetTraits().middle;
    Zorvan::PosesFile truthFile = toFile(truth, "truth");
    if (scene.hasMesh) truthFile.clusters[0].scans.push_back({sMeshFile, "object", toFirst, {}});
    Zorvan::WritePoses(staging / "truth.json", truthFile);
    Zorvan::WritePoses(staging / "rough.json", toFile(DisturbPoses(truth, middle, scene.dRoughDegrees, scene.dRoughMm,
                                                                   scanner.GetSettings().uiSeed),
                                                      "rough"));
    if (scene.IsByPatches() && !scene.hasOverlap) return;
    writeObject(staging / "object.json", scene, scanner);
    writeOverlap(staging / "overlap.csv", OverlapTable(points, truth, reachOf(scene, scanner.GetSettings()),
                                                       scanner.GetSettings().uiNumThreads));
}

} // namespace

const std::vector<std::string>& SceneObjectNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all = ObjectNames();
        all.emplace_back("wall");
        return all;
    }();
    return names;
}

std::string WhatIsWrong(const Scene& scene)
{
    if (scene.noise && (!(*scene.noise >= 0.0) || !(*scene.noise <= 10.0)))
        return "--noise must be between 0 and 10 millimetres";
    if (scene.field && !scene.IsByPatches())
        return "--field goes with views along a jaw or over a wall; other objects are seen whole";
    if (scene.IsWall() && scene.IsLidar()) return "--object wall does not go with a lidar";
    if (scene.IsWall() && scene.hasMesh) return "--mesh does not go with a wall, which has no end";
    if (scene.scanner.isVideo && (!scene.IsJaw() || scene.IsLidar())) return "--video goes with views along a jaw";
    if (scene.uiNumPoints > 0 && scene.IsLidar())
        return "--points does not go with a lidar: give --spacing, the one along its rings";
    try {
        (void)SensorFor(scene.sensor, {});
    } catch (const std::invalid_argument& error) {
        return std::string("--sensor: ") + error.what();
    }
    return {};
}

CVirtualScanner MakeScanner(Scene scene)
{
    if (scene.uiNumPoints > 0) scene.spacing = makeScanner(scene, scene.scanner).FindSpacing(scene.uiNumPoints);
    return makeScanner(scene, scene.scanner);
}

SceneCount WriteScene(const Scene& scene, const std::filesystem::path& folder, const Zorvan::Hooks& hooks)
{
    const CVirtualScanner scanner = MakeScanner(scene);
    Zorvan::CStagingFolder staging(folder);
    const std::vector<prereg::Vectors> points = writeViews(scene, scanner, staging, hooks);
    writeTruth(scene, scanner, points, staging);
    if (scene.hasMesh) writeMesh(scanner, staging);
    staging.Publish();
    const std::size_t total =
        std::accumulate(points.begin(), points.end(), std::size_t{0},
                        [](std::size_t sum, const prereg::Vectors& view) { return sum + view.size(); });
    return {points.size(), total};
}

} // namespace tools
