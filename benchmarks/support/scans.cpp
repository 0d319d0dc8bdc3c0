// SPDX-License-Identifier: MIT
#include "benchmarks/support/scans.h"

#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/scans/posesfile.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/spacing.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>

namespace benchmarks {

namespace {

constexpr unsigned seed = 47110815;

double spacingOf(const prereg::Vectors& points)
{
    return Zorvan::MedianSpacing(points, Zorvan::TKdTree<3, 48>(points.data(), points.size()));
}

ScanPair readBunny(const std::filesystem::path& folder)
{
    const Zorvan::ScanOptions options{.dMmPerUnit = 1000.0, .sensor = {}};
    auto fix = Zorvan::ReadScan(folder / "bun000.ply", options);
    auto flt = Zorvan::ReadScan(folder / "bun045.ply", options);
    const auto poses = Zorvan::ReadPoses(folder / "truth.json");
    const auto truth = poses.Find("bun000.ply").scan->pose.GetInverse(true) * poses.Find("bun045.ply").scan->pose;
    ScanPair pair{
        "bunny", std::move(fix.points), std::move(fix.normals), std::move(flt.points), std::move(flt.normals), truth,
        0.0};
    pair.dSpacing = spacingOf(pair.fixPoints);
    return pair;
}

ScanPair simulate(std::size_t points)
{
    tools::VirtualScannerSettings settings{.uiSeed = 1, .uiNumViews = 6};
    settings.dPixelSpacing = tools::CVirtualScanner(settings).FindSpacing(points);
    const tools::CVirtualScanner scanner(settings);
    auto fix = scanner.Render(0);
    auto flt = scanner.Render(1);
    // As the program prepares a mesh that it reads.
    Zorvan::ComputeNormals(fix.scan, {});
    Zorvan::ComputeNormals(flt.scan, {});
    ScanPair pair{"simulated",
                  std::move(fix.scan.points),
                  std::move(fix.scan.normals),
                  std::move(flt.scan.points),
                  std::move(flt.scan.normals),
                  fix.pose.GetInverse(true) * flt.pose,
                  0.0};
    pair.dSpacing = spacingOf(pair.fixPoints);
    return pair;
}

} // namespace

const ScanPair& RealPair()
{
    static const ScanPair pair = [] {
        const char* data = std::getenv("ZORVAN_DATA");
        if (data != nullptr) return readBunny(std::filesystem::path(data) / "bunny");
        std::cerr << "ZORVAN_DATA is not set: a simulated pair stands in for the real scans\n";
        return simulate(40'000);
    }();
    return pair;
}

const ScanPair& SimulatedPair(std::size_t points)
{
    static std::map<std::size_t, ScanPair> pairs;
    auto found = pairs.find(points);
    if (found == pairs.end()) found = pairs.emplace(points, simulate(points)).first;
    return found->second;
}

prereg::Vectors Queries(const ScanPair& pair, bool isShuffled)
{
    prereg::Vectors queries = pair.fltPoints;
    for (auto& q : queries) q = pair.truth * q;
    if (isShuffled) std::shuffle(queries.begin(), queries.end(), std::mt19937(seed));
    return queries;
}

} // namespace benchmarks
