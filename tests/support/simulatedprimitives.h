// SPDX-License-Identifier: MIT
#pragma once

#include <Eigen/Geometry>

#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

namespace support {

/// Points of a surface with their outward normals, as the fits of primitives take them.
struct PrimitiveScan
{
    std::vector<std::array<float, 3>> points;
    std::vector<std::array<float, 3>> normals;

    void Add(const Eigen::Vector3d& p, const Eigen::Vector3d& n)
    {
        points.push_back({static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z())});
        normals.push_back({static_cast<float>(n.x()), static_cast<float>(n.y()), static_cast<float>(n.z())});
    }
};

/// Where a primitive stands, and how it is scanned: the sector of `degrees` about the axis, with noise along the
/// normal.
struct ScanSetup
{
    Eigen::Vector3d place = Eigen::Vector3d::Zero(); ///< centre of a sphere, middle of the axis of the others
    Eigen::Vector3d axis = Eigen::Vector3d::UnitZ();
    double degrees = 360.0;
    std::size_t count = 2000;
    double noise = 0.0; ///< mm, one standard deviation
    unsigned seed = 47110815;
};

/// Calls surface(azimuth, height, p, n) for uniform draws, height in [-1, 1], to get points in the frame of the axis.
template <typename Surface>
PrimitiveScan Simulate(const ScanSetup& setup, const Surface& surface)
{
    std::mt19937 rng(setup.seed);
    const double half = setup.degrees / 360.0 * std::numbers::pi;
    std::uniform_real_distribution<double> azimuth(-half, half);
    std::uniform_real_distribution<double> height(-1.0, 1.0);
    std::normal_distribution<double> noise(0.0, 1.0);
    const Eigen::Vector3d axis = setup.axis.normalized();
    const Eigen::Vector3d across = axis.unitOrthogonal();
    Eigen::Matrix3d turn;
    turn << across, axis.cross(across), axis;
    PrimitiveScan scan;
    for (std::size_t i = 0; i < setup.count; ++i) {
        Eigen::Vector3d p;
        Eigen::Vector3d n;
        const double angle = azimuth(rng);
        surface(angle, height(rng), p, n);
        scan.Add(setup.place + turn * (p + setup.noise * noise(rng) * n), turn * n);
    }
    return scan;
}

inline PrimitiveScan SimulateSphere(const ScanSetup& setup, double radius)
{
    return Simulate(setup, [radius](double azimuth, double height, Eigen::Vector3d& p, Eigen::Vector3d& n) {
        const double width = std::sqrt(1.0 - height * height);
        n = {width * std::cos(azimuth), width * std::sin(azimuth), height};
        p = radius * n;
    });
}

/// From -length / 2 to length / 2 along the axis.
inline PrimitiveScan SimulateCylinder(const ScanSetup& setup, double radius, double length)
{
    return Simulate(setup, [=](double azimuth, double height, Eigen::Vector3d& p, Eigen::Vector3d& n) {
        n = {std::cos(azimuth), std::sin(azimuth), 0.0};
        p = radius * n + Eigen::Vector3d(0, 0, length / 2.0 * height);
    });
}

/// As the cylinder; `radius` is that of the middle, and the cone opens along the axis.
inline PrimitiveScan SimulateCone(const ScanSetup& setup, double radius, double length, double halfAngle)
{
    return Simulate(setup, [=](double azimuth, double height, Eigen::Vector3d& p, Eigen::Vector3d& n) {
        const Eigen::Vector3d out(std::cos(azimuth), std::sin(azimuth), 0.0);
        const double along = length / 2.0 * height;
        p = (radius + std::tan(halfAngle) * along) * out + Eigen::Vector3d(0, 0, along);
        n = std::cos(halfAngle) * out - Eigen::Vector3d(0, 0, std::sin(halfAngle));
    });
}

} // namespace support
