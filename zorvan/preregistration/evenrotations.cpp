// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/evenrotations.h"

#include <cmath>
#include <numbers>

namespace prereg {

// Two circles of the 3-sphere are walked at incommensurable speeds; phi^2 = 2 and psi^4 = psi + 4 spread them best.
std::vector<CTrafo> EvenRotations(std::size_t count)
{
    constexpr double phi = std::numbers::sqrt2;
    constexpr double psi = 1.533751168755204288118041;
    std::vector<CTrafo> rotations;
    rotations.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
        const double s = static_cast<double>(k) + 0.5;
        const double t = s / static_cast<double>(count);
        const double alpha = 2.0 * std::numbers::pi * s / phi;
        const double beta = 2.0 * std::numbers::pi * s / psi;
        const double r = std::sqrt(t);
        const double q = std::sqrt(1.0 - t);
        rotations.emplace_back(
            Quaternion(q * std::cos(beta), r * std::sin(alpha), r * std::cos(alpha), q * std::sin(beta)),
            kdtree::Vector<3>());
    }
    return rotations;
}

} // namespace prereg
