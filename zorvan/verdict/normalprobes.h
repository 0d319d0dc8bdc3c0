// SPDX-License-Identifier: MIT
#pragma once

// How many of the normals of a scan look one way. Not installed.

#include "zorvan/core/cpointset.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace prereg {

/// Some five hundred normals at equal steps stand for all of them. They lie coordinate by coordinate, so that compilers
/// count several at a time: each is asked about by each other.
class CNormalProbes
{
public:
    using Vector3 = kdtree::Vector<3>;
    static constexpr std::size_t uiProbes = 500;

    [[nodiscard]] static std::size_t StepFor(std::size_t size) { return size < uiProbes ? 1 : size / uiProbes; }

    CNormalProbes() = default;
    explicit CNormalProbes(std::span<const Vector3> normals)
    {
        for (std::size_t i = 0; i < normals.size(); i += StepFor(normals.size())) Add(normals[i]);
    }

    void Add(const Vector3& normal)
    {
        m_x.push_back(normal.x);
        m_y.push_back(normal.y);
        m_z.push_back(normal.z);
    }

    [[nodiscard]] std::size_t Size() const { return m_x.size(); }
    [[nodiscard]] Vector3 operator[](std::size_t i) const { return {m_x[i], m_y[i], m_z[i]}; }

    /// Of the probes, those within an angle of a direction.
    [[nodiscard]] std::uint32_t CountAlong(const Vector3& direction, float cosine) const
    {
        return count([&](float along) { return along > cosine; }, direction);
    }
    /// The same, of either sign.
    [[nodiscard]] std::uint32_t CountEitherWay(const Vector3& direction, float cosine) const
    {
        return count([&](float along) { return std::abs(along) > cosine; }, direction);
    }

private:
    template <typename Matches>
    [[nodiscard]] std::uint32_t count(const Matches& matches, const Vector3& direction) const
    {
        std::uint32_t number = 0;
        for (std::size_t i = 0; i < m_x.size(); ++i) {
            const float along = m_x[i] * direction.x + m_y[i] * direction.y + m_z[i] * direction.z;
            number += static_cast<std::uint32_t>(matches(along));
        }
        return number;
    }

    std::vector<float> m_x;
    std::vector<float> m_y;
    std::vector<float> m_z;
};

} // namespace prereg
