// SPDX-License-Identifier: MIT
#include "tests/support/temporaryfolder.h"
#include "zorvan/scans/meshsampling.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/scans/scanwriter.h"
#include "zorvan/scans/stlwriter.h"
#include "zorvan/scans/surfacemodel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <utility>

namespace {

using Zorvan::IsSurfaceModel;
using Zorvan::Scan;
using Vector3 = kdtree::Vector<3>;

Scan cube(bool isInsideOut)
{
    Scan mesh;
    for (int i = 0; i < 8; ++i)
        mesh.points.emplace_back(100.0F + 20.0F * static_cast<float>(i & 1), 20.0F * static_cast<float>((i >> 1) & 1),
                                 20.0F * static_cast<float>(i >> 2));
    mesh.faces = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                  {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
    if (isInsideOut)
        for (auto& face : mesh.faces) std::swap(face[0], face[1]);
    return mesh;
}

/// A ball from its pole down to an angle (degrees), in rings; like a range image where only the upper part is seen.
Scan ballDownTo(double degrees, unsigned rings)
{
    Scan mesh;
    const unsigned steps = 4 * rings;
    for (unsigned ring = 0; ring <= rings; ++ring) {
        const double polar = degrees * std::numbers::pi / 180 * (ring + 1e-3) / (rings + 1e-3);
        for (unsigned k = 0; k < steps; ++k) {
            const double turn = 2 * std::numbers::pi * k / steps;
            mesh.points.emplace_back(static_cast<float>(30 * std::sin(polar) * std::cos(turn)),
                                     static_cast<float>(30 * std::sin(polar) * std::sin(turn)),
                                     static_cast<float>(30 * std::cos(polar)));
        }
    }
    for (unsigned ring = 0; ring < rings; ++ring) {
        for (unsigned k = 0; k < steps; ++k) {
            const std::uint32_t a = ring * steps + k;
            const std::uint32_t b = ring * steps + (k + 1) % steps;
            mesh.faces.push_back({a, a + steps, b});
            mesh.faces.push_back({b, a + steps, b + steps});
        }
    }
    return mesh;
}

/// A plate with a fillet of slivers along each side, nothing of it joined: every face has corners of its own.
Scan looseTray()
{
    Scan mesh;
    const auto add = [&](const Vector3& a, const Vector3& b, const Vector3& c) {
        const auto first = static_cast<std::uint32_t>(mesh.points.size());
        mesh.points.insert(mesh.points.end(), {a, b, c});
        mesh.faces.push_back({first, first + 1, first + 2});
    };
    add({0, 0, 0}, {60, 0, 0}, {60, 40, 0});
    add({0, 0, 0.01F}, {60, 40, 0.01F}, {0, 40, 0.01F});
    for (float x = 0; x < 60; x += 1) {
        add({x, 0, 0}, {x + 1, -1, -1}, {x + 1, 0, 0});
        add({x, 40, 0}, {x + 1, 40, 0}, {x + 1, 41, -1});
    }
    return mesh;
}

TEST(SurfaceModel, IsWhatIsClosedOrUneven)
{
    EXPECT_TRUE(IsSurfaceModel(cube(false)));
    EXPECT_TRUE(IsSurfaceModel(ballDownTo(180, 40)));
    EXPECT_TRUE(IsSurfaceModel(ballDownTo(160, 40))) << "a hole where it stood";
    EXPECT_TRUE(IsSurfaceModel(looseTray()));
    for (const unsigned rings : {10U, 300U}) { // a rim is a rim, however fine the triangles
        EXPECT_FALSE(IsSurfaceModel(ballDownTo(75, rings))) << rings;
        EXPECT_FALSE(IsSurfaceModel(ballDownTo(20, rings))) << rings;
    }
    EXPECT_FALSE(IsSurfaceModel({}));
    EXPECT_FALSE(IsSurfaceModel({{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, {}, {{0, 1, 2}}}));
}

TEST(SurfaceModel, IsReadWithItsOutsideOut)
{
    const TemporaryFolder folder;
    for (const bool isInsideOut : {false, true}) {
        Zorvan::WriteStl(folder / "cube.stl", cube(isInsideOut));
        const Zorvan::SurfelScan scan = Zorvan::ReadScan(folder / "cube.stl", {.dMmPerUnit = 10.0, .sensor = {}});
        EXPECT_EQ(scan.points.size(), 8U);
        const auto samples = Zorvan::SampleMesh(scan.model, 10.0);
        EXPECT_NEAR(samples.dArea, 6 * 200 * 200, 1.0);
        for (std::size_t i = 0; i < samples.points.size(); ++i)
            ASSERT_GT(Dot(samples.normals[i], samples.points[i] - Vector3(1100, 100, 100)), 99.0F) << isInsideOut;
    }
}

TEST(SurfaceModel, IsWhatTheCallerSays)
{
    const TemporaryFolder folder;
    Zorvan::WriteStl(folder / "cube.stl", cube(false));
    Zorvan::WritePly(folder / "dome.ply", ballDownTo(75, 20));
    const auto hasModel = [&](const char* file, Zorvan::EMesh eMesh) {
        return !Zorvan::ReadScan(folder / file, {.dMmPerUnit = 1.0, .sensor = {}, .eMesh = eMesh}).model.faces.empty();
    };
    EXPECT_FALSE(hasModel("cube.stl", Zorvan::EMesh::Scan));
    EXPECT_FALSE(hasModel("dome.ply", Zorvan::EMesh::Auto));
    EXPECT_TRUE(hasModel("dome.ply", Zorvan::EMesh::Model));
}

} // namespace
