// SPDX-License-Identifier: MIT
#include "zorvan/scans/normals.h"
#include "zorvan/scans/spacing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace {

using Zorvan::Vector3;

/// Points on a sphere of radius 10 about `centre`; where z is not below `lowest`.
prereg::Vectors spherePoints(std::size_t count, const Vector3& centre, float lowest)
{
    std::mt19937 rng(7);
    std::normal_distribution<float> normal;
    prereg::Vectors points;
    while (points.size() < count) {
        const Vector3 direction = Zorvan::Normalized({normal(rng), normal(rng), normal(rng)});
        if (direction.z >= lowest) points.push_back(centre + direction * 10.0F);
    }
    return points;
}

TEST(Normals, OfPlaneFitsFollowASphereFarFromTheOrigin)
{
    const Vector3 centre(1000, -2000, 500);
    const prereg::Vectors points = spherePoints(20000, centre, 0.2F);
    const prereg::Vectors up = Zorvan::NormalsFromPlaneFit(points, std::nullopt);
    const prereg::Vectors inward = Zorvan::NormalsFromPlaneFit(points, centre);
    int wrong = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vector3 outward = Zorvan::Normalized(points[i] - centre);
        // Twelve random neighbours some 0.2 mm away give a plane good to a few degrees.
        if (kdtree::Dot(up[i], outward) < 0.99F || kdtree::Dot(inward[i], outward) > -0.99F) ++wrong;
    }
    EXPECT_LT(wrong, 40);
}

// Along a ring of a spinning sensor the nearest neighbours form a line, and any plane through it fits.
TEST(Normals, OfRingsFollowTheSurfaceAndLookAtTheSensorThatSpunThere)
{
    const Vector3 centre(30, 0, 0);
    std::mt19937 rng(7);
    std::normal_distribution<float> noise(0.0F, 0.01F);
    Zorvan::Scan scan;
    for (float elevation = -0.3F; elevation < 0.3F; elevation += 0.02F) {
        for (float azimuth = -0.3F; azimuth < 0.3F; azimuth += 0.002F) {
            const Vector3 ray(std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth),
                              std::sin(elevation));
            const float along = kdtree::Dot(ray, centre);
            const float beside = centre.LengthSq() - along * along;
            if (beside < 64.0F) scan.points.push_back(ray * (along - std::sqrt(100.0F - beside) + noise(rng)));
        }
    }
    Zorvan::ComputeNormals(scan, std::nullopt);
    EXPECT_TRUE(scan.sensor);
    std::size_t right = 0;
    for (std::size_t i = 0; i < scan.points.size(); ++i)
        right += kdtree::Dot(scan.normals[i], Zorvan::Normalized(scan.points[i] - centre)) > 0.97F;
    EXPECT_GT(right, scan.points.size() * 19 / 20);

    Zorvan::Scan raster{spherePoints(5000, centre, -1.0F)};
    Zorvan::ComputeNormals(raster, std::nullopt);
    EXPECT_FALSE(raster.sensor);
}

TEST(Normals, AreZeroWithoutASurface)
{
    prereg::Vectors line;
    for (int i = 0; i < 100; ++i) line.emplace_back(static_cast<float>(i), 0.0F, 0.0F);
    line.emplace_back(0.0F, 1e6F, 0.0F); // nothing within reach
    for (const Vector3& n : Zorvan::NormalsFromPlaneFit(line, std::nullopt)) EXPECT_EQ(n.LengthSq(), 0.0F);
}

TEST(Normals, OfFacesTurnOverAsAWholeOrNotAtAll)
{
    const Zorvan::Scan away{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {}, {{0, 2, 1}}};
    EXPECT_EQ(Zorvan::NormalsFromFaces(away, std::nullopt), prereg::Vectors(3, Vector3(0, 0, 1)));
    EXPECT_EQ(Zorvan::NormalsFromFaces(away, Vector3(0, 0, -5)), prereg::Vectors(3, Vector3(0, 0, -1)));
    const Zorvan::Scan closed{
        {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {}, {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}}};
    const prereg::Vectors outward = Zorvan::NormalsFromFaces(closed, std::nullopt);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_GT(kdtree::Dot(outward[i], closed.points[i] - Vector3(0.25F, 0.25F, 0.25F)), 0.0F) << i;
}

TEST(Normals, WeighFacesByTheirArea)
{
    // A face of area 2 upwards and one of area 0.5 to the side meet in the first point: (0.5, 0, 2), normalised.
    const Zorvan::Scan scan{{{0, 0, 0}, {2, 0, 0}, {0, 2, 0}, {0, 1, 0}, {0, 0, 1}}, {}, {{0, 1, 2}, {0, 3, 4}}};
    const Vector3 n = Zorvan::NormalsFromFaces(scan, std::nullopt).front();
    EXPECT_NEAR(n.x, 0.5F / std::sqrt(4.25F), 1e-6F);
    EXPECT_NEAR(n.z, 2.0F / std::sqrt(4.25F), 1e-6F);
}

TEST(Spacing, OfALatticeIsItsStep)
{
    prereg::Vectors points;
    for (int i = 0; i < 40000; ++i)
        points.emplace_back(0.25F * static_cast<float>(i % 200), 0.25F * static_cast<float>(i / 200), 0.0F);
    EXPECT_EQ(Zorvan::MedianSpacing(points, {points.data(), points.size()}), 0.25);
    points.resize(1);
    EXPECT_EQ(Zorvan::MedianSpacing(points, {points.data(), 1}), 0.0);
}

} // namespace
