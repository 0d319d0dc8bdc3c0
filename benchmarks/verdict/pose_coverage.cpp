// SPDX-License-Identifier: MIT
// How often the error of a pose lies within one and two of the standard deviations that EstimatePose gives it.
//
//     pose_coverage [REPETITIONS] [PAIR or all] [NOISE]      noise: times the default, 0.3, 1 and 3 without
//
// Repetitions run on all processors, and each has a seed of its own: the counts do not depend on how the work is split.
//
// Six pairs of views of virtual objects, each seen again and again with other noise along the rays and one of four
// rasters, normals fitted anew each time. Errors are counted along the principal directions of each covariance that are
// held: of a normal error 68.3 % lie within one deviation and 95.4 % within two. The others are counted as free, that
// is by what the estimate says in words, with how many of their errors lie within two deviations. Beside them the error
// that the same pose has under the covariance that takes all pairs for independent; and what the errors along what is
// held are made of, in deviations: what is the same in all repetitions, and what differs. One deviation of both
// together is what the covariance says.

#include "tools/virtualscanner/overlaptable.h"
#include "tools/virtualscanner/randomness.h"
#include "tools/virtualscanner/virtualobjects.h"
#include "tools/virtualscanner/virtualscanner.h"
#include "zorvan/platform/ctaskcollection.h"
#include "zorvan/scans/normals.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/verdict/scansampling.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
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
constexpr unsigned uiSeed = 47110815;

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

using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

/// An error with the covariance given for it; turns by what they move at the radius.
struct Outcome
{
    Vector6 error;
    Matrix6 covariance;
    double pairs = 0.0;
    double effective = 0.0;
};

Outcome outcomeOf(const prereg::PoseEstimate& estimate, const prereg::CTrafo& truth)
{
    const prereg::CTrafo off = estimate.pose * truth.GetInverse(true);
    const prereg::Quaternion q = off.GetQuaternion();
    const Eigen::Vector3d turn = 2.0 * Eigen::Vector3d(q.x, q.y, q.z) * (q.w < 0 ? -1.0 : 1.0);
    const kdtree::Vector<3> shift = off * estimate.centre - estimate.centre;
    Outcome outcome;
    outcome.error << turn * estimate.dRadius, shift.x, shift.y, shift.z;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j)
            outcome.covariance(i, j) =
                estimate.covariance[i][j] * (i < 3 ? estimate.dRadius : 1.0) * (j < 3 ? estimate.dRadius : 1.0);
    outcome.pairs = static_cast<double>(estimate.uiPairs);
    outcome.effective = estimate.dEffectivePairs;
    return outcome;
}

/// What moves the matched points by more is said to be free.
constexpr double dFree = prereg::verdict::dPoseFreeSpacings * dSpacing;

/// Along the principal directions of a covariance, those that are held the best first.
struct Principal
{
    Eigen::SelfAdjointEigenSolver<Matrix6> solver;
    int held = 0;

    explicit Principal(const Matrix6& covariance) : solver(covariance)
    {
        while (held < 6 && solver.eigenvalues()(held) <= dFree * dFree) ++held;
    }

    /// Standard deviations that the error comes to.
    [[nodiscard]] Vector6 Ratios(const Vector6& error) const
    {
        const Vector6 along = solver.eigenvectors().transpose() * error;
        return along.cwiseAbs().cwiseQuotient(solver.eigenvalues().cwiseSqrt());
    }
};

/// Root mean square over the held directions, in the deviations of the mean covariance.
struct Parts
{
    double same = 0.0;    ///< of the mean error
    double differs = 0.0; ///< of the errors about their mean

    explicit Parts(const std::vector<Outcome>& outcomes)
    {
        const auto count = static_cast<double>(outcomes.size());
        Vector6 mean = Vector6::Zero();
        Matrix6 covariance = Matrix6::Zero();
        for (const Outcome& outcome : outcomes) {
            mean += outcome.error / count;
            covariance += outcome.covariance / count;
        }
        const Principal principal(covariance);
        const auto squared = [&](const Vector6& error) {
            const Vector6 ratios = principal.Ratios(error);
            double squares = 0.0;
            for (int k = 0; k < principal.held; ++k) squares += ratios(k) * ratios(k);
            return squares / std::max(1, principal.held);
        };
        double sum = 0.0;
        for (const Outcome& outcome : outcomes) sum += squared(outcome.error - mean);
        same = std::sqrt(squared(mean));
        differs = std::sqrt(sum / std::max(1.0, count - 1.0));
    }
};

struct Tally
{
    int held = 0;
    int within[4] = {}; ///< 1, 2, and the same of pairs taken for independent
    int free = 0;
    int freeWithin2 = 0;

    void Add(const Outcome& outcome)
    {
        const Principal principal(outcome.covariance);
        const Vector6 ratios = principal.Ratios(outcome.error);
        const double shrink = std::sqrt(outcome.effective / outcome.pairs);
        const double limits[4] = {1.0, 2.0, shrink, 2.0 * shrink};
        for (int k = 0; k < principal.held; ++k)
            for (int limit = 0; limit < 4; ++limit) within[limit] += ratios(k) < limits[limit];
        for (int k = principal.held; k < 6; ++k) freeWithin2 += ratios(k) < 2.0;
        held += principal.held;
        free += 6 - principal.held;
    }
};

void print(const std::string& name, double noise, const std::vector<Outcome>& outcomes, std::size_t failed)
{
    Tally tally;
    double pairs = 0.0;
    double effective = 0.0;
    for (const Outcome& outcome : outcomes) {
        tally.Add(outcome);
        pairs += outcome.pairs;
        effective += outcome.effective;
    }
    const auto runs = static_cast<double>(outcomes.size());
    const auto percent = [](int n, int of) { return of > 0 ? 100.0 * n / of : 0.0; };
    std::printf("| %s | %.3f | %.0f | %zu |", name.c_str(), noise, runs, failed);
    for (const int within : tally.within) std::printf(" %.1f |", percent(within, tally.held));
    const Parts parts(outcomes);
    std::printf(" %.2f (%.0f) | %.2f | %.2f | %.0f | %.0f |\n", tally.free / runs,
                percent(tally.freeWithin2, tally.free), parts.same, parts.differs, pairs / runs, effective / runs);
    std::fflush(stdout);
}

void measure(const Scene& scene, int repetitions, const std::vector<double>& factors)
{
    const auto [first, second] = halfOverlapping(scene);
    const View fix = viewOf(scene, first);
    const View flt = viewOf(scene, second);
    const prereg::CTrafo truth = fix.pose.GetInverse(true) * flt.pose;
    for (const double factor : factors) {
        std::vector<std::optional<Outcome>> results(static_cast<std::size_t>(repetitions));
        Zorvan::CTaskCollection tasks;
        for (std::size_t i = 0; i < results.size(); ++i) {
            tasks.Schedule([&, i] {
                std::seed_seq seed{uiSeed, static_cast<unsigned>(i)};
                std::mt19937 rng(seed);
                const NoisyScan a = withNoise(fix, factor * dDefaultNoise, rng);
                const NoisyScan b = withNoise(flt, factor * dDefaultNoise, rng);
                const prereg::CTrafo start(tools::RandomDirection(rng), 0.005F, tools::RandomDirection(rng) * 0.1F);
                const auto estimate = prereg::EstimatePose(a.set, b.set, start * truth, a.sampling, b.sampling);
                if (estimate) results[i] = outcomeOf(estimate, truth);
            });
        }
        tasks.RunAndWait();
        std::vector<Outcome> outcomes;
        for (const auto& result : results)
            if (result) outcomes.push_back(*result);
        if (!outcomes.empty()) print(scene.object, factor * dDefaultNoise, outcomes, results.size() - outcomes.size());
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int repetitions = argc > 1 ? std::atoi(argv[1]) : 500;
    const std::string pair = argc > 2 ? argv[2] : "all";
    const std::vector<double> factors = argc > 3 ? std::vector<double>{std::atof(argv[3])} : std::vector{0.3, 1.0, 3.0};
    std::puts("| pair | noise mm | runs | failed | within 1 % | within 2 % | 1, independent % | 2, independent % | "
              "free of six (within 2 %) | same | differs | pairs | effective |");
    std::puts("|---|---|---|---|---|---|---|---|---|---|---|---|---|");
    for (const Scene& scene : scenes)
        if (pair == "all" || scene.object == pair) measure(scene, repetitions, factors);
    return 0;
}
