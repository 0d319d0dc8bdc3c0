// SPDX-License-Identifier: MIT
#include "zorvan/verdict/chold.h"

#include "zorvan/numerics/symsolvers.h"
#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace prereg {

namespace {

CHold::Vector3 inSingle(const Eigen::Vector3d& v)
{
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

} // namespace

CHold::CHold(const Vector3& middle, double radius) : m_middle(middle), m_radius(std::max(radius, 1e-30)) {}

void CHold::Add(const Vector3& point, const Vector3& normal, const Vector3& otherNormal)
{
    const auto a = row(point, normal);
    const auto b = row(point, otherNormal);
    std::size_t at = 0;
    for (std::size_t i = 0; i < iSize; ++i)
        for (std::size_t j = 0; j <= i; ++j) m_sum[at++] += 0.5 * (a[i] * b[j] + a[j] * b[i]);
}

std::vector<CTrafo> CHold::WeakestMotions(std::size_t count, double step) const
{
    const Directions directions = decompose();
    std::vector<CTrafo> motions;
    for (std::size_t k = 0; k < count; ++k) {
        motions.push_back(motion(directions.vectors[k], step));
        motions.push_back(motion(directions.vectors[k], -step));
    }
    return motions;
}

std::vector<CTrafo> CHold::WeakMotionsAllAround(double step) const
{
    const Directions directions = decompose();
    std::vector<CTrafo> motions;
    constexpr int iPlaces = 27; // of a cube with three places a side
    for (int place = 0; place < iPlaces; ++place) {
        const std::array<int, 3> parts{place / 9 - 1, place / 3 % 3 - 1, place % 3 - 1};
        Direction between{};
        double lengthSq = 0.0;
        for (std::size_t k = 0; k < parts.size(); ++k) {
            lengthSq += parts[k] * parts[k];
            for (std::size_t i = 0; i < iSize; ++i) between[i] += parts[k] * directions.vectors[k][i];
        }
        if (lengthSq > 0.0) motions.push_back(motion(between, step / std::sqrt(lengthSq)));
    }
    return motions;
}

double CHold::Ratio() const
{
    const Directions directions = decompose();
    const double greatest = directions.values[iSize - 1];
    return greatest > 0.0 ? std::max(0.0, directions.values[0]) / greatest : 0.0;
}

std::vector<CTrafo> CHold::WeakTurns(std::size_t count, std::size_t steps) const
{
    const Directions directions = decompose();
    std::vector<CTrafo> turns;
    for (std::size_t k = 0; k < count; ++k) {
        if (directions.values[k] > verdict::dWeakHold * directions.values[iSize - 1]) break;
        for (std::size_t i = 1; i < steps; ++i) {
            const double angle = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(steps);
            if (const auto turn = turnAbout(directions.vectors[k], angle)) turns.push_back(*turn);
        }
    }
    return turns;
}

CHold::Directions CHold::decompose() const
{
    Directions result;
    auto matrix = m_sum;
    std::array<double, iSize * iSize> vectors{};
    std::array<double, 2 * iSize> work{};
    Zorvan::symsolvers::JacobiIteration(matrix.data(), result.values.data(), vectors.data(), iSize, 30, work.data());
    Zorvan::symsolvers::SortEigenV(result.values.data(), vectors.data(), iSize, true);
    for (std::size_t k = 0; k < iSize; ++k)
        for (std::size_t i = 0; i < iSize; ++i) result.vectors[k][i] = vectors[i * iSize + k];
    return result;
}

/// Nothing for a direction that hardly turns.
std::optional<CTrafo> CHold::turnAbout(const Direction& direction, double angle) const
{
    constexpr double dMinTurn = 0.3; // of the unit length
    const Eigen::Vector3d turn = Eigen::Vector3d(direction[0], direction[1], direction[2]) / m_radius;
    const Eigen::Vector3d shift(direction[3], direction[4], direction[5]);
    if (turn.norm() * m_radius < dMinTurn) return std::nullopt;
    const Eigen::Vector3d offset = turn.cross(shift) / turn.squaredNorm(); // from the middle to the axis
    const Eigen::Vector3d axis = turn.normalized();
    const CTrafo rotation(inSingle(axis), static_cast<float>(angle), Vector3());
    const Vector3 through = m_middle + inSingle(offset);
    return rotation.Translate(through - rotation.Rotate(through));
}

CHold::Direction CHold::row(const Vector3& point, const Vector3& normal) const
{
    const Vector3 turn = Cross(point - m_middle, normal);
    return {static_cast<double>(turn.x) / m_radius, static_cast<double>(turn.y) / m_radius,
            static_cast<double>(turn.z) / m_radius, static_cast<double>(normal.x),
            static_cast<double>(normal.y),          static_cast<double>(normal.z)};
}

/// The screw motion of a direction, so that a ball turns on its spot however far it turns. Source: Murray, Li and
/// Sastry, A Mathematical Introduction to Robotic Manipulation (1994), 2.36.
CTrafo CHold::motion(const Direction& direction, double step) const
{
    const Eigen::Vector3d turn = Eigen::Vector3d(direction[0], direction[1], direction[2]) * (step / m_radius);
    const Eigen::Vector3d shift = Eigen::Vector3d(direction[3], direction[4], direction[5]) * step;
    const double angle = turn.norm();
    if (angle < 1e-9) return CTrafo().Translate(inSingle(shift));
    const Eigen::Vector3d once = turn.cross(shift);
    const Eigen::Vector3d moved = shift + once * ((1.0 - std::cos(angle)) / (angle * angle)) +
                                  turn.cross(once) * ((angle - std::sin(angle)) / (angle * angle * angle));
    const CTrafo rotation(inSingle(turn / angle), static_cast<float>(angle), Vector3());
    return rotation.Translate(m_middle - rotation.Rotate(m_middle) + inSingle(moved));
}

} // namespace prereg
