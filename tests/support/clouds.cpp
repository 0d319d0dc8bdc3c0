// SPDX-License-Identifier: MIT
#include "tests/support/clouds.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace support {

namespace {

/// The same from every compiler; as arguments of one call they would come in an order that each chooses.
template <class Distribution>
Vector3 drawVector(Distribution& draw, std::mt19937& rng)
{
    const float z = draw(rng);
    const float y = draw(rng);
    return {draw(rng), y, z};
}

constexpr float inf = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

Cloud uniform(std::string name, std::size_t n, float low, float high, std::uint32_t seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> draw(low, high);
    Cloud cloud{std::move(name), {}};
    for (std::size_t i = 0; i < n; ++i) {
        const float x = draw(rng);
        const float y = draw(rng);
        cloud.points.emplace_back(x, y, draw(rng));
    }
    return cloud;
}

Cloud twoClusters()
{
    Cloud cloud = uniform("two clusters", 800, 0.0F, 1.0F, 2);
    for (std::size_t i = 0; i < 400; ++i) cloud.points[i] = cloud.points[i] * 1e-3F + Vector3(100, 100, 100);
    return cloud;
}

Cloud lattice()
{
    Cloud cloud{"lattice", {}};
    for (int x = 0; x < 9; ++x) {
        for (int y = 0; y < 9; ++y) {
            for (int z = 0; z < 9; ++z) {
                cloud.points.emplace_back(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
            }
        }
    }
    return cloud;
}

Cloud duplicates()
{
    Cloud cloud = uniform("duplicates", 20, -1.0F, 1.0F, 3);
    for (std::size_t i = 0; i < 980; ++i) cloud.points.push_back(cloud.points[i % 3]);
    return cloud;
}

Cloud plane()
{
    Cloud cloud = uniform("plane", 1500, -5.0F, 5.0F, 4);
    for (auto& p : cloud.points) p.z = 1.0F;
    return cloud;
}

Cloud withHoles()
{
    Cloud cloud = uniform("not all finite", 500, -1.0F, 1.0F, 5);
    cloud.points[0].x = nan;
    cloud.points[250].y = inf;
    cloud.points[499].z = -inf;
    return cloud;
}

} // namespace

std::vector<Cloud> HardClouds()
{
    return {uniform("uniform", 5000, -10.0F, 10.0F, 1),
            twoClusters(),
            lattice(),
            duplicates(),
            plane(),
            uniform("around 1e6", 2000, 1e6F, 1.001e6F, 6),
            uniform("around 1e30", 300, -1e30F, 1e30F, 7),
            uniform("single leaf", 10, -1.0F, 1.0F, 8),
            withHoles()};
}

std::vector<Vector3> QueriesAround(const Cloud& cloud, std::size_t n)
{
    std::mt19937 rng(11);
    std::uniform_int_distribution<std::size_t> pick(0, cloud.points.size() - 1);
    std::uniform_real_distribution<float> draw(-0.5F, 0.5F);
    std::vector<Vector3> queries;
    for (std::size_t i = 0; i < n; ++i) {
        const Vector3 p = cloud.points[pick(rng)];
        const Vector3 q = cloud.points[pick(rng)];
        const Vector3 offset = drawVector(draw, rng);
        switch (i % 4) {
        case 0:
            queries.push_back(p);
            break;
        case 1:
            queries.push_back(p + offset * 0.1F);
            break;
        case 2:
            queries.push_back((p + q) * 0.5F + offset);
            break;
        default:
            queries.push_back(p * 3.0F + offset);
            break;
        }
    }
    return queries;
}

Vector3 RandomDirection(std::mt19937& rng)
{
    std::normal_distribution<float> draw;
    const Vector3 v = drawVector(draw, rng);
    return v * (1.0F / v.Length());
}

prereg::CTrafo RandomPose(std::mt19937& rng, float shift)
{
    std::normal_distribution<double> component;
    std::uniform_real_distribution<float> draw(-shift, shift);
    const double w = component(rng);
    const double x = component(rng);
    const double y = component(rng);
    const auto q = prereg::Quaternion(w, x, y, component(rng)).GetNormalized();
    return {q, drawVector(draw, rng)};
}

prereg::CTrafo ExactTurn(const Vector3& axis, double angle)
{
    const double s = std::sin(0.5 * angle) / std::sqrt(static_cast<double>(axis.LengthSq()));
    const prereg::Quaternion q(std::cos(0.5 * angle), s * static_cast<double>(axis.x), s * static_cast<double>(axis.y),
                               s * static_cast<double>(axis.z));
    return {q, Vector3()};
}

Surface BumpySurface(std::size_t n, std::uint32_t seed, float noise)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> draw(-20.0F, 20.0F);
    std::normal_distribution<float> disturb(0.0F, 1.0F);
    Surface surface;
    for (std::size_t i = 0; i < n; ++i) {
        const float x = draw(rng);
        const float y = draw(rng);
        const float z =
            3.0F * std::sin(0.31F * x) * std::cos(0.23F * y) + 1.5F * std::sin(0.17F * x * y / 4 + 0.9F * y);
        const float inner = std::cos(0.17F * x * y / 4 + 0.9F * y);
        const float dx = 0.93F * std::cos(0.31F * x) * std::cos(0.23F * y) + 1.5F * inner * 0.0425F * y;
        const float dy = -0.69F * std::sin(0.31F * x) * std::sin(0.23F * y) + 1.5F * inner * (0.0425F * x + 0.9F);
        const Vector3 normal(-dx, -dy, 1.0F);
        surface.normals.push_back(normal * (1.0F / normal.Length()));
        surface.points.push_back(Vector3(x, y, z) + surface.normals.back() * (noise * disturb(rng)));
    }
    return surface;
}

Surface BumpyBall(const Vector3& direction, float maxAngle, std::size_t n, std::uint32_t seed, float noise)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> disturb(0.0F, 1.0F);
    Surface surface;
    while (surface.points.size() < n) {
        const Vector3 u = RandomDirection(rng);
        if (Dot(u, direction) < std::cos(maxAngle)) continue;
        const float a = 5 * u.x + 1;
        const float b = 6 * u.z + 2 * u.x;
        const float radius = 20 + 1.2F * std::sin(a) * std::cos(4 * u.y) + 0.8F * std::sin(b);
        const Vector3 slope(6 * std::cos(a) * std::cos(4 * u.y) + 1.6F * std::cos(b),
                            -4.8F * std::sin(a) * std::sin(4 * u.y), 4.8F * std::cos(b));
        const Vector3 normal = u * radius - (slope - u * Dot(slope, u));
        surface.normals.push_back(normal * (1.0F / normal.Length()));
        surface.points.push_back(u * radius + surface.normals.back() * (noise * disturb(rng)));
    }
    return surface;
}

} // namespace support
