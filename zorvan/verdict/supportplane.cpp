// SPDX-License-Identifier: MIT
#include "zorvan/verdict/supportplane.h"

#include "zorvan/verdict/normalprobes.h"

#include <Eigen/Eigenvalues>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Points = std::span<const Vector3>;

constexpr std::size_t uiLeastPoints = 30; // fewer make no plane that is worth a rule of its own

/// The direction that most normals lie within 10 degrees of; zero without normals.
Vector3 commonestDirection(Points normals)
{
    constexpr float fAlong = 0.985F;
    const CNormalProbes probes(normals);
    Vector3 best;
    std::uint32_t most = 0;
    for (std::size_t i = 0; i < probes.Size(); ++i) {
        const std::uint32_t count = probes.CountAlong(probes[i], fAlong);
        if (count <= most) continue;
        most = count;
        best = probes[i];
    }
    for (const float along : {fAlong, 0.9962F}) { // 10 and 5 degrees
        Vector3 sum;
        for (const Vector3& normal : normals)
            if (Dot(normal, best) > along) sum = sum + normal;
        if (sum.Length() > 0) best = sum * (1.0F / sum.Length());
    }
    return best;
}

/// Middle of the window of levels, of the given width, that holds most of them.
float fullestLevel(std::vector<float> levels, float width)
{
    std::sort(levels.begin(), levels.end());
    std::size_t most = 0;
    float best = 0.0F;
    for (std::size_t first = 0, end = 0; first < levels.size(); ++first) {
        while (end < levels.size() && levels[end] - levels[first] <= width) ++end;
        if (end - first <= most) continue;
        most = end - first;
        best = levels[first + (end - first) / 2];
    }
    return best;
}

/// Least squares through the points that a plane holds; the normal keeps its side.
SupportPlane fitted(const SupportPlane& plane, Points points, Points normals)
{
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    Eigen::Matrix3d squares = Eigen::Matrix3d::Zero();
    double count = 0.0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (!plane.Holds(points[i], normals[i])) continue;
        const Eigen::Vector3d p(static_cast<double>(points[i].x), static_cast<double>(points[i].y),
                                static_cast<double>(points[i].z));
        sum += p;
        squares += p * p.transpose();
        count += 1.0;
    }
    if (count < static_cast<double>(uiLeastPoints)) return plane;
    const Eigen::Vector3d middle = sum / count;
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> axes(squares / count - middle * middle.transpose());
    const Eigen::Vector3d n = axes.eigenvectors().col(0);
    Vector3 normal(static_cast<float>(n.x()), static_cast<float>(n.y()), static_cast<float>(n.z()));
    if (Dot(normal, plane.normal) < 0) normal = -1.0F * normal;
    const Vector3 through(static_cast<float>(middle.x()), static_cast<float>(middle.y()),
                          static_cast<float>(middle.z()));
    return {normal, Dot(normal, through), plane.reach};
}

} // namespace

std::optional<SupportPlane> FindSupportPlane(Points points, Points normals, const ScanSampling& sampling,
                                             double dLeastShare)
{
    const double least = dLeastShare * static_cast<double>(points.size());
    if (points.size() < uiLeastPoints) return std::nullopt;
    const auto reach = static_cast<float>(5.0 * sampling.dNoise + 2.0 * sampling.dSpacing);
    SupportPlane plane{commonestDirection(normals), 0.0F, 2.0F * reach};
    std::vector<float> levels;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const bool isAlong = Dot(normals[i], plane.normal) > 0.87F;
        if (isAlong) levels.push_back(Dot(plane.normal, points[i]));
    }
    if (static_cast<double>(levels.size()) < least) return std::nullopt;
    plane.offset = fullestLevel(std::move(levels), 2.0F * plane.reach);
    plane = fitted(plane, points, normals); // wide, since the mean of normals may be a fraction of a degree off
    plane.reach = reach;
    plane = fitted(plane, points, normals);
    std::size_t held = 0;
    for (std::size_t i = 0; i < points.size(); ++i)
        held += static_cast<std::size_t>(plane.Holds(points[i], normals[i]));
    if (static_cast<double>(held) < least) return std::nullopt;
    return plane;
}

} // namespace prereg
