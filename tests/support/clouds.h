// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/vector.h"

#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace support {

using Vector3 = kdtree::Vector<3>;

/// A named set of points for property tests; the same seed gives the same points.
struct Cloud
{
    std::string name;
    std::vector<Vector3> points;

    friend std::ostream& operator<<(std::ostream& out, const Cloud& cloud) { return out << cloud.name; }
};

/// Clouds that break indexes: uniform, clustered, lattice (many equal distances), duplicates, one plane, coordinates
/// around 1e6 and 1e30, a single leaf, and some points that are not finite.
std::vector<Cloud> HardClouds();

/// Queries on points of the cloud, near them, between them and far outside.
std::vector<Vector3> QueriesAround(const Cloud& cloud, std::size_t n);

Vector3 RandomDirection(std::mt19937& rng);
/// Any rotation, and a translation of up to `shift` in each coordinate.
prereg::CTrafo RandomPose(std::mt19937& rng, float shift);

/// A turn in radians about an axis through the origin. That of the library scales by up to 3e-4, on each processor
/// otherwise: too much for a scan that is to be exact.
prereg::CTrafo ExactTurn(const Vector3& axis, double angle);

/// A bumpy surface without symmetry over [-20, 20] x [-20, 20] mm, with its exact normals.
struct Surface
{
    std::vector<Vector3> points;
    std::vector<Vector3> normals;
};
Surface BumpySurface(std::size_t n, std::uint32_t seed, float noise = 0.0F);

/// One view of a bumpy ball without symmetry, about 20 mm in radius, around the origin: what lies within `maxAngle`
/// (radians) of the direction, with its exact normals.
Surface BumpyBall(const Vector3& direction, float maxAngle, std::size_t n, std::uint32_t seed, float noise = 0.0F);

} // namespace support
