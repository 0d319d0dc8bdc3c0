// SPDX-License-Identifier: MIT
#include "randomness.h"

#include <cmath>

namespace tools {

std::mt19937 EngineFor(unsigned seed, ERandomPurpose purpose, unsigned view, unsigned row)
{
    std::seed_seq sequence{seed, static_cast<unsigned>(purpose), view, row};
    return std::mt19937(sequence);
}

int UniformInteger(std::mt19937& rng, int low, int high)
{
    return low + static_cast<int>(Uniform(rng, 0.0, high - low + 1.0));
}

Zorvan::Vector3 RandomDirection(std::mt19937& rng)
{
    const double z = Uniform(rng, -1, 1);
    const double angle = Uniform(rng, -180, 180) * (3.14159265358979 / 180.0);
    const double radius = std::sqrt(1 - z * z);
    return {static_cast<float>(radius * std::cos(angle)), static_cast<float>(radius * std::sin(angle)),
            static_cast<float>(z)};
}

} // namespace tools
