// SPDX-License-Identifier: MIT
#include "zorvan/core/tkdtree.h"
#include "zorvan/scans/meshsampling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using Vector3 = kdtree::Vector<3>;
using Zorvan::MeshSamples;
using Zorvan::SampleMesh;
using Zorvan::Scan;

/// A flat rectangle in the plane z = 0 out of nx * ny squares, each cut into two triangles.
Scan sheet(float width, float height, unsigned nx, unsigned ny)
{
    Scan mesh;
    for (unsigned y = 0; y <= ny; ++y)
        for (unsigned x = 0; x <= nx; ++x)
            mesh.points.emplace_back(width * static_cast<float>(x) / static_cast<float>(nx),
                                     height * static_cast<float>(y) / static_cast<float>(ny), 0.0F);
    for (unsigned y = 0; y < ny; ++y) {
        for (unsigned x = 0; x < nx; ++x) {
            const unsigned i = y * (nx + 1) + x;
            mesh.faces.push_back({i, i + 1, i + nx + 2});
            mesh.faces.push_back({i, i + nx + 2, i + nx + 1});
        }
    }
    return mesh;
}

/// Fewest and most points in the tiles of a sheet, as shares of the mean.
std::pair<double, double> evenness(const MeshSamples& samples, float width, float height, float tile)
{
    std::map<std::pair<int, int>, double> counts;
    const int nx = static_cast<int>(width / tile);
    const int ny = static_cast<int>(height / tile);
    for (int x = 0; x < nx; ++x)
        for (int y = 0; y < ny; ++y) counts[{x, y}] = 0.0;
    for (const Vector3& p : samples.points)
        counts[{std::clamp(static_cast<int>(p.x / tile), 0, nx - 1),
                std::clamp(static_cast<int>(p.y / tile), 0, ny - 1)}] += 1.0;
    const double mean = static_cast<double>(samples.points.size()) / (nx * ny);
    double fewest = std::numeric_limits<double>::max();
    double most = 0.0;
    for (const auto& [place, count] : counts) {
        fewest = std::min(fewest, count / mean);
        most = std::max(most, count / mean);
    }
    return {fewest, most};
}

TEST(SampleMesh, IsEvenOnHugeFacesAndOnTinyOnes)
{
    const struct
    {
        const char* what;
        unsigned nx;
        unsigned ny;
        double low;
        double high;
    } cases[] = {{"two faces", 1, 1, 0.8, 1.2},
                 {"needles", 300, 1, 0.6, 1.4},
                 {"faces of 1.5 points", 57, 38, 0.7, 1.3},
                 {"faces of a tenth of a point", 220, 150, 0.7, 1.3}};
    for (const auto& c : cases) {
        const MeshSamples samples = SampleMesh(sheet(60, 40, c.nx, c.ny), 0.6);
        EXPECT_NEAR(static_cast<double>(samples.points.size()), 60 * 40 / 0.36, 1.5) << c.what;
        EXPECT_NEAR(samples.dArea, 2400.0, 0.01) << c.what;
        // 69 points per tile: random ones would spread by 12 %, to 0.7 and 1.35 over all tiles.
        const auto [fewest, most] = evenness(samples, 60, 40, 5.0F);
        EXPECT_GT(fewest, c.low) << c.what;
        EXPECT_LT(most, c.high) << c.what;
    }
}

TEST(SampleMesh, LeavesNoHolesAndNoClustersInAFace)
{
    const MeshSamples samples = SampleMesh(sheet(50, 50, 1, 1), 0.5);
    const Zorvan::TKdTree<3, 48> tree(samples.points.data(), samples.points.size());
    for (float x = 1; x < 49; x += 0.37F) {
        for (float y = 1; y < 49; y += 0.41F) {
            Zorvan::NearestQuery query{{x, y, 0}, -1, 0.6F * 0.6F};
            tree.FindNearest(query);
            ASSERT_GE(query.index, 0) << "a hole at " << x << ' ' << y;
        }
    }
    for (const Vector3& p : samples.points) {
        std::vector<unsigned> near;
        tree.FindInBall(near, {p, 0.5F * 0.5F});
        ASSERT_LE(near.size(), 9U) << "a cluster at " << p.x << ' ' << p.y;
    }
}

TEST(SampleMesh, KeepsToTheFacesAndTheirSides)
{
    Scan roof;
    roof.points = {{0, 0, 0}, {10, 0, 0}, {10, 8, 6}, {0, 8, 6}, {10, -8, 6}, {0, -8, 6}};
    roof.faces = {{0, 1, 2}, {0, 2, 3}, {0, 4, 1}, {0, 5, 4}};
    for (const auto& samples : {SampleMesh(roof, 0.4), SampleMesh(roof, 0.4)}) {
        EXPECT_EQ(samples.points, SampleMesh(roof, 0.4).points);
        std::size_t right = 0;
        for (std::size_t i = 0; i < samples.points.size(); ++i) {
            const Vector3& p = samples.points[i];
            ASSERT_NEAR(p.z, 0.75F * std::abs(p.y), 1e-5F);
            const float side = p.y > 0 ? 1.0F : -1.0F;
            ASSERT_LT((samples.normals[i] - Vector3(0, -0.6F * side, 0.8F)).Length(), 1e-5F);
            if (p.y > 0) ++right;
        }
        EXPECT_NEAR(static_cast<double>(right), 0.5 * static_cast<double>(samples.points.size()), 1.0);
    }
}

TEST(SampleMesh, PassesOverFacesThatAreNoSurface)
{
    constexpr float inf = std::numeric_limits<float>::infinity();
    Scan mesh = sheet(10, 10, 1, 1);
    const MeshSamples whole = SampleMesh(mesh, 0.5);
    const auto first = static_cast<std::uint32_t>(mesh.points.size());
    mesh.points.insert(mesh.points.end(), {{inf, 0, 0}, {std::nanf(""), 0, 0}, {5, 5, 0}});
    mesh.faces.insert(mesh.faces.begin(), {{0, 0, 1}, {0, 1, first}, {first + 1, 1, 2}, {0, first + 2, 3}, {2, 2, 2}});
    const MeshSamples samples = SampleMesh(mesh, 0.5);
    EXPECT_EQ(samples.points, whole.points);

    for (const Scan& nothing : {Scan{}, Scan{{{1, 2, 3}}, {}, {{0, 0, 0}}}})
        EXPECT_TRUE(SampleMesh(nothing, 0.5).points.empty());
    mesh.faces.push_back({0, 1, 999});
    EXPECT_THROW((void)SampleMesh(mesh, 0.5), std::invalid_argument);
    for (const double grid : {0.0, -1.0, std::nan(""), double{inf}})
        EXPECT_THROW((void)SampleMesh(sheet(1, 1, 1, 1), grid), std::invalid_argument) << grid;
}

TEST(SampleMesh, NeverMakesMorePointsThanAskedFor)
{
    const Scan vast = sheet(3e38F, 3e38F, 1, 1);
    for (const double grid : {1e-300, 1e-9, 1.0}) {
        const MeshSamples samples = SampleMesh(vast, grid, 5000);
        EXPECT_NEAR(static_cast<double>(samples.points.size()), 5000, 1) << grid;
        EXPECT_GT(samples.dGrid, 1e36) << grid;
        EXPECT_TRUE(
            std::all_of(samples.points.begin(), samples.points.end(), [](const Vector3& p) { return p.IsFinite(); }));
    }
    EXPECT_EQ(SampleMesh(sheet(1, 1, 1, 1), 1e9).points.size(), 1U);
}

} // namespace
