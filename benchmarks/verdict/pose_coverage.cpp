// SPDX-License-Identifier: MIT
// How often the error of a pose lies within one and two of the standard deviations that EstimatePose gives it.
//
//     pose_coverage [REPETITIONS] [PAIR]
//
// Six pairs of views of virtual objects, each seen again and again with other noise along the rays and one of four
// rasters, normals fitted anew each time. Errors are counted along the six principal directions of each covariance: of
// a normal error 68.3 % lie within one deviation and 95.4 % within two. Beside them the error that the same pose has
// under the covariance that takes all pairs for independent.

#include "tools/virtualscanner/overlaptable.h"
#include "tools/virtualscanner/randomness.h"
#include "tools/virtualscanner/virtualobjects.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/scans/normals.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/verdict/scansampling.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr double dDefaultNoise = 0.02; // mm
constexpr double dSpacing = 0.4;

constexpr unsigned uiViews = 6;
constexpr int iPhases = 2; // the raster of a repetition is one of 2 x 2 that lie inside the rendered one

struct Scene
{
    std::string object;
    unsigned seed;
};

const std::vector<Scene> scenes{{"jaw", 3}, {"bracket", 4}, {"figure", 5}, {"housing", 6}, {"shell", 7}, {"gear", 8}};

/// A view without noise, in a raster finer than that of the scans.
struct View
{
    prereg::Vectors points;
    prereg::CTrafo pose;
};

tools::CVirtualScanner scannerOf(const Scene& scene, double spacing)
{
    const tools::VirtualScannerSettings settings{
        .uiSeed = scene.seed, .uiNumViews = uiViews, .dNoise = 0.0, .dPixelSpacing = spacing};
    if (scene.object == "jaw") return tools::CVirtualScanner(settings);
    return {tools::MakeObject(scene.object, scene.seed), tools::SensorEffects{}, settings};
}

/// The two views whose overlap (the smaller of both directions) is nearest to one half.
std::pair<unsigned, unsigned> halfOverlapping(const Scene& scene)
{
    const tools::CVirtualScanner scanner = scannerOf(scene, 1.0);
    std::vector<prereg::Vectors> scans;
    std::vector<prereg::CTrafo> poses;
    for (unsigned view = 0; view < uiViews; ++view) {
        scans.push_back(scanner.Render(view).scan.points);
        poses.push_back(scanner.GetPose(view));
    }
    const auto table = tools::OverlapTable(scans, poses, 2.0, 1);
    std::pair<unsigned, unsigned> best{0, 1};
    const auto off = [&](unsigned a, unsigned b) { return std::abs(std::min(table[a][b], table[b][a]) - 0.5); };
    for (unsigned a = 0; a < uiViews; ++a)
        for (unsigned b = a + 1; b < uiViews; ++b)
            if (off(a, b) < off(best.first, best.second)) best = {a, b};
    return best;
}

/// Rays end up to 0.0002 mm above the surface, always on the same side: as much as a pose is known to where noise is
/// least. One step of Newton's puts the points down.
View viewOf(const Scene& scene, unsigned view)
{
    const tools::CVirtualScanner scanner = scannerOf(scene, dSpacing / iPhases);
    auto scan = scanner.Render(view);
    const kdtree::Vector<3> ray = scan.pose.Rotate({0, 0, 1});
    for (auto& p : scan.scan.points) {
        const kdtree::Vector<3> inObject = scan.pose * p;
        p.z -= scanner.GetObject().Distance(inObject) / Dot(scanner.GetObject().Normal(inObject), ray);
    }
    return {scan.scan.points, scan.pose};
}

struct NoisyScan
{
    prereg::CPointSet set;
    prereg::ScanSampling sampling;

    NoisyScan(const prereg::Vectors& points, const prereg::Vectors& normals)
        : set(points.data(), normals.data(), points.size()),
          sampling(prereg::MeasureSampling(set.GetPoints(), set.GetKdTree()))
    {
    }
};

NoisyScan withNoise(const View& view, double noise, std::mt19937& rng)
{
    std::normal_distribution<double> normal(0.0, noise);
    const int column = tools::UniformInteger(rng, 0, iPhases - 1);
    const int row = tools::UniformInteger(rng, 0, iPhases - 1);
    const auto isIn = [](float at, int phase) {
        const double pixel = std::floor(static_cast<double>(at) * iPhases / dSpacing + 0.25);
        return static_cast<int>(pixel + 1000.0 * iPhases) % iPhases == phase;
    };
    prereg::Vectors points;
    for (const auto& p : view.points) {
        if (!isIn(p.x, column) || !isIn(p.y, row)) continue;
        points.emplace_back(p.x, p.y, p.z + static_cast<float>(normal(rng)));
    }
    const prereg::Vectors all = Zorvan::NormalsFromPlaneFit(points, std::nullopt);
    prereg::Vectors kept;
    prereg::Vectors normals;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (all[i].LengthSq() < 0.5F) continue;
        kept.push_back(points[i]);
        normals.push_back(all[i]);
    }
    return {kept, normals};
}

/// Errors over standard deviations, along the principal directions.
using Ratios = std::array<double, 6>;

Ratios ratiosOf(const prereg::PoseEstimate& estimate, const prereg::CTrafo& truth)
{
    const prereg::CTrafo off = estimate.pose * truth.GetInverse(true);
    const prereg::Quaternion q = off.GetQuaternion();
    const Eigen::Vector3d turn = 2.0 * Eigen::Vector3d(q.x, q.y, q.z) * (q.w < 0 ? -1.0 : 1.0);
    const kdtree::Vector<3> shift = off * estimate.centre - estimate.centre;
    Eigen::Matrix<double, 6, 1> error;
    error << turn * estimate.dRadius, shift.x, shift.y, shift.z;
    Eigen::Matrix<double, 6, 6> covariance;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j)
            covariance(i, j) =
                estimate.covariance[i][j] * (i < 3 ? estimate.dRadius : 1.0) * (j < 3 ? estimate.dRadius : 1.0);
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix<double, 6, 6>> solver(covariance);
    Ratios ratios{};
    for (int k = 0; k < 6; ++k)
        ratios[k] = std::abs(solver.eigenvectors().col(k).dot(error)) / std::sqrt(solver.eigenvalues()(k));
    return ratios;
}

struct Tally
{
    std::size_t errors = 0;
    std::size_t within1 = 0;
    std::size_t within2 = 0;
    std::size_t within1Apart = 0; ///< pairs taken for independent
    std::size_t within2Apart = 0;
    std::size_t failed = 0;
    double pairs = 0.0;
    double effective = 0.0;

    void Add(const prereg::PoseEstimate& estimate, const prereg::CTrafo& truth)
    {
        if (!estimate) {
            ++failed;
            return;
        }
        const double shrink = std::sqrt(estimate.dEffectivePairs / static_cast<double>(estimate.uiPairs));
        for (const double ratio : ratiosOf(estimate, truth)) {
            ++errors;
            within1 += ratio < 1.0;
            within2 += ratio < 2.0;
            within1Apart += ratio < shrink;
            within2Apart += ratio < 2.0 * shrink;
        }
        pairs += static_cast<double>(estimate.uiPairs);
        effective += estimate.dEffectivePairs;
    }

    void Print(const std::string& name, double noise) const
    {
        const auto percent = [&](std::size_t n) {
            return 100.0 * static_cast<double>(n) / static_cast<double>(errors);
        };
        const double runs = static_cast<double>(errors) / 6.0;
        std::printf("| %s | %.3f | %.0f | %zu | %.1f | %.1f | %.1f | %.1f | %.0f | %.0f |\n", name.c_str(), noise, runs,
                    failed, percent(within1), percent(within2), percent(within1Apart), percent(within2Apart),
                    pairs / runs, effective / runs);
        std::fflush(stdout);
    }
};

void measure(const Scene& scene, int repetitions)
{
    const auto [first, second] = halfOverlapping(scene);
    const View fix = viewOf(scene, first);
    const View flt = viewOf(scene, second);
    const prereg::CTrafo truth = fix.pose.GetInverse(true) * flt.pose;
    for (const double factor : {0.3, 1.0, 3.0}) {
        std::mt19937 rng(47110815);
        Tally tally;
        for (int i = 0; i < repetitions; ++i) {
            const NoisyScan a = withNoise(fix, factor * dDefaultNoise, rng);
            const NoisyScan b = withNoise(flt, factor * dDefaultNoise, rng);
            const prereg::CTrafo start(tools::RandomDirection(rng), 0.005F, tools::RandomDirection(rng) * 0.1F);
            tally.Add(prereg::EstimatePose(a.set, b.set, start * truth, a.sampling, b.sampling), truth);
        }
        tally.Print(scene.object, factor * dDefaultNoise);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 500;
    std::puts("| pair | noise mm | runs | failed | within 1 % | within 2 % | 1, independent % | 2, independent % | "
              "pairs | effective |");
    std::puts("|---|---|---|---|---|---|---|---|---|---|");
    for (const Scene& scene : scenes)
        if (argc <= 2 || scene.object == argv[2]) measure(scene, repetitions);
    return 0;
}
