// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/framepose.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/scan.h"
#include "zorvan/scans/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

/// Points on a bent sheet, 100 wide, with every attribute; `origin` far away makes it one at coordinates of a map.
inline Zorvan::Scan SampleScan(const Zorvan::Position& origin = {}, std::size_t count = 200)
{
    std::mt19937 rng(47110815);
    std::uniform_real_distribution<double> along(0.0, 100.0);
    std::uniform_int_distribution<int> byte(0, 255);
    Zorvan::Scan scan;
    std::vector<Zorvan::Position> places;
    for (std::size_t i = 0; i < count; ++i) {
        const double x = along(rng);
        const double y = along(rng);
        places.push_back({origin[0] + x, origin[1] + y, origin[2] + std::sin(x / 20)});
        scan.normals.push_back(Zorvan::Normalized(Zorvan::Vector3(-static_cast<float>(std::cos(x / 20) / 20), 0, 1)));
        const auto part = [&] { return static_cast<std::uint8_t>(byte(rng)); };
        scan.colours.push_back({part(), part(), part()});
        scan.intensities.push_back(static_cast<float>(byte(rng)) / 255.0F);
    }
    Zorvan::SetPoints(scan, places);
    const Zorvan::FramePose sensor = *Zorvan::Normalized(Zorvan::FramePose{{10, -20, 300}, {1, 2, -3, 4}});
    scan.sensor = sensor;
    for (std::size_t k = 0; k < 3; ++k) scan.sensor->position[k] += origin[k] - scan.shift[k];
    return scan;
}

/// Where a point stands in its file.
inline Zorvan::Position PlaceOf(const Zorvan::Scan& scan, std::size_t i)
{
    const Zorvan::Vector3& p = scan.points[i];
    return {static_cast<double>(p.x) + scan.shift[0], static_cast<double>(p.y) + scan.shift[1],
            static_cast<double>(p.z) + scan.shift[2]};
}

inline void ExpectNear(const Zorvan::Position& a, const Zorvan::Position& b, double tolerance)
{
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(a[k], b[k], tolerance) << "axis " << k;
}

/// Same places within `tolerance`, and the same attributes.
inline void ExpectSameScan(const Zorvan::Scan& read, const Zorvan::Scan& written, double tolerance = 0.0)
{
    ASSERT_EQ(read.points.size(), written.points.size());
    for (std::size_t i = 0; i < read.points.size(); ++i) ExpectNear(PlaceOf(read, i), PlaceOf(written, i), tolerance);
    EXPECT_EQ(read.normals, written.normals);
    EXPECT_EQ(read.colours, written.colours);
    EXPECT_EQ(read.intensities, written.intensities);
}

/// What a reader says against its input.
template <typename Read>
std::string RefusalOf(const Read& read)
{
    try {
        static_cast<void>(read());
    } catch (const Zorvan::CInputError& error) {
        return error.what();
    }
    return "no error";
}
