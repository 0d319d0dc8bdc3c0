// SPDX-License-Identifier: MIT
#include "zorvan/verdict/viewingray.h"

#include "zorvan/verdict/planeshare.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <utility>
#include <vector>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

Vector3 normalised(const Vector3& v) { return v * (1.0F / v.Length()); }

/// The neighbourhoods of some probes, gathered once for all directions.
class CProbes
{
public:
    CProbes(const Vectors& points, const std::vector<std::size_t>& at, const Zorvan::TKdTree<3, 48>& tree,
            double dSpacing)
    {
        const auto radius = static_cast<float>(verdict::dRayRadius * dSpacing);
        std::vector<unsigned> found;
        for (const std::size_t i : at) {
            if (!points[i].IsFinite()) continue;
            found.clear();
            tree.FindInBall(found, {points[i], radius * radius});
            add(points, i, found);
        }
    }

    [[nodiscard]] double Regularity(const Vector3& direction)
    {
        constexpr std::size_t uiMinProbes = 20;
        if (m_ends.size() < uiMinProbes) return 0.0;
        m_nearest.clear();
        std::size_t at = 0;
        for (const std::size_t end : m_ends) {
            float nearest = m_offsets[at].LengthSq();
            for (; at < end; ++at) {
                const float along = Dot(m_offsets[at], direction);
                nearest = std::min(nearest, m_offsets[at].LengthSq() - along * along);
            }
            m_nearest.push_back(std::max(0.0F, nearest));
        }
        return std::sqrt(quantile(0.1) / std::max(quantile(0.9), 1e-30));
    }

private:
    void add(const Vectors& points, std::size_t i, const std::vector<unsigned>& found)
    {
        const std::size_t before = m_offsets.size();
        // The nearest ones matter in projection too, but any of them may be the nearest: all, up to a bound.
        for (const unsigned k : found) {
            const Vector3 offset = points[k] - points[i];
            if (offset.LengthSq() > 0.0F && m_offsets.size() - before < verdict::uiMaxRayNeighbours)
                m_offsets.push_back(offset);
        }
        if (m_offsets.size() > before) m_ends.push_back(m_offsets.size());
    }

    double quantile(double q)
    {
        const auto middle = m_nearest.begin() + static_cast<std::ptrdiff_t>(q * static_cast<double>(m_nearest.size()));
        std::nth_element(m_nearest.begin(), middle, m_nearest.end());
        return static_cast<double>(*middle);
    }

    std::vector<Vector3> m_offsets; ///< probe by probe
    std::vector<std::size_t> m_ends;
    std::vector<float> m_nearest;
};

std::vector<std::size_t> atEqualSteps(std::size_t size, std::size_t count)
{
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < size; i += std::max<std::size_t>(1, size / count)) indices.push_back(i);
    return indices;
}

/// A plane has a raster along any ray. Where one holds most of a scan, as a table does, probes on it would outnumber
/// those that know better: they are taken from many, of which crowds are thinned until few are left.
std::vector<std::size_t> probePlaces(const Vectors& normals)
{
    constexpr std::size_t uiMore = 16;
    if (PlaneShare(normals) <= verdict::dMaxPlaneShare) return atEqualSteps(normals.size(), verdict::uiRayProbes);
    std::vector<std::size_t> places = atEqualSteps(normals.size(), uiMore * verdict::uiRayProbes);
    while (places.size() > 2 * verdict::uiRayProbes) {
        Vectors directions;
        for (const std::size_t i : places) directions.push_back(normals[i]);
        std::vector<std::size_t> kept;
        for (const std::size_t k : ThinDirections(directions, verdict::dMostOfADirection)) kept.push_back(places[k]);
        if (kept.size() == places.size()) break;
        places = std::move(kept);
    }
    std::vector<std::size_t> probes;
    for (const std::size_t k : atEqualSteps(places.size(), verdict::uiRayProbes)) probes.push_back(places[k]);
    return probes;
}

/// A direction with what speaks for it.
struct Ray
{
    Vector3 direction;
    double dRegularity = 0.0;
};

std::vector<Vector3> halfSphere(std::size_t n)
{
    // A spiral of equal areas; source: Gonzalez, Mathematical Geosciences 42 (2010).
    constexpr double dTurn = std::numbers::pi * (3.0 - 2.2360679774997896964);
    std::vector<Vector3> directions{{0, 0, 1}};
    for (std::size_t i = 0; i < n; ++i) {
        const double z = (static_cast<double>(i) + 0.5) / static_cast<double>(n);
        const double r = std::sqrt(1.0 - z * z);
        const double angle = dTurn * static_cast<double>(i);
        directions.emplace_back(static_cast<float>(r * std::cos(angle)), static_cast<float>(r * std::sin(angle)),
                                static_cast<float>(z));
    }
    return directions;
}

/// Climbs to the most regular direction nearby, in steps of halved width.
Ray refined(CProbes& probes, Ray ray)
{
    const Vector3 helper = std::abs(ray.direction.z) < 0.9F ? Vector3(0, 0, 1) : Vector3(1, 0, 0);
    const Vector3 u = normalised(Cross(ray.direction, helper));
    const Vector3 v = Cross(ray.direction, u);
    float step = 0.06F; // radians
    for (int halving = 0; halving < 4; ++halving, step *= 0.5F) {
        const Vector3 middle = ray.direction;
        for (int k = 0; k < 6; ++k) {
            const float angle = static_cast<float>(k) * static_cast<float>(std::numbers::pi) / 3;
            const Vector3 tried = normalised(middle + u * (step * std::cos(angle)) + v * (step * std::sin(angle)));
            const double regularity = probes.Regularity(tried);
            if (regularity > ray.dRegularity) ray = {tried, regularity};
        }
    }
    return ray;
}

std::vector<Ray> regularRays(CProbes& probes)
{
    constexpr std::size_t uiRefined = 8;
    std::vector<Ray> rays;
    for (const Vector3& direction : halfSphere(verdict::uiRayDirections))
        rays.push_back({direction, probes.Regularity(direction)});
    const auto better = [](const Ray& a, const Ray& b) { return a.dRegularity > b.dRegularity; };
    const Ray zAxis = rays.front();
    std::stable_sort(rays.begin(), rays.end(), better);
    for (std::size_t i = 0; i < std::min(uiRefined, rays.size()); ++i) rays[i] = refined(probes, rays[i]);
    rays.push_back(refined(probes, zAxis));
    rays.push_back(zAxis);
    const double best =
        std::max_element(rays.begin(), rays.end(), [&](auto& a, auto& b) { return better(b, a); })->dRegularity;
    const double tie = std::clamp(2.0 * (1.0 - best), verdict::dRegularityRounding, verdict::dRegularityTie);
    std::erase_if(rays, [&](const Ray& ray) { return ray.dRegularity < best - tie; });
    return rays;
}

Vector3 meanNormal(const Vectors& normals)
{
    double sum[3] = {0.0, 0.0, 0.0};
    for (const Vector3& n : normals) {
        if (!n.IsFinite()) continue;
        for (unsigned k = 0; k < 3; ++k) sum[k] += static_cast<double>(n[k]);
    }
    const double scale = 1.0 / static_cast<double>(std::max<std::size_t>(1, normals.size()));
    return {static_cast<float>(sum[0] * scale), static_cast<float>(sum[1] * scale), static_cast<float>(sum[2] * scale)};
}

double visibleShare(const Vectors& normals, const Vector3& direction)
{
    const auto visible = std::count_if(normals.begin(), normals.end(), [&](const Vector3& n) {
        return Dot(n, direction) > static_cast<float>(verdict::dVisibleCosine);
    });
    return static_cast<double>(visible) / static_cast<double>(normals.size());
}

} // namespace

std::string ViewingRay::Warning() const
{
    switch (eKind) {
    case ERay::None:
        return "was not seen from one side: what lies in front of it, or is missing, cannot be judged";
    case ERay::Guessed:
        return "has no raster of a sensor: its viewing direction is guessed from the normals";
    default:
        return {};
    }
}

double RayRegularity(const Vectors& points, const Zorvan::TKdTree<3, 48>& tree, double dSpacing,
                     const kdtree::Vector<3>& direction)
{
    return CProbes(points, atEqualSteps(points.size(), verdict::uiRayProbes), tree, dSpacing).Regularity(direction);
}

ViewingRay FindViewingRay(const Vectors& points, const Vectors& normals, const Zorvan::TKdTree<3, 48>& tree,
                          double dSpacing)
{
    const Vector3 mean = meanNormal(normals);
    if (!(static_cast<double>(mean.Length()) > verdict::dMinMeanNormal)) return {};
    CProbes probes(points, probePlaces(normals), tree, dSpacing);
    // Most scans lie in the frame of their sensor: the search (20 ms) is for the others.
    const Vector3 zAxis(0.0F, 0.0F, mean.z < 0.0F ? -1.0F : 1.0F);
    const double zRegularity = probes.Regularity(zAxis);
    if (zRegularity >= verdict::dSureRegularity && visibleShare(normals, zAxis) >= verdict::dSureVisible)
        return {ERay::Found, zAxis, zRegularity};
    std::vector<Ray> rays = regularRays(probes);
    for (Ray& ray : rays) {
        if (Dot(ray.direction, mean) < 0.0F) ray.direction = -ray.direction;
    }
    std::vector<double> visible;
    visible.reserve(rays.size());
    for (const Ray& ray : rays) visible.push_back(visibleShare(normals, ray.direction));
    const double bestVisible = *std::max_element(visible.begin(), visible.end());
    const Ray* chosen = nullptr;
    for (std::size_t i = 0; i < rays.size(); ++i) { // the z axis comes last and wins
        if (visible[i] < bestVisible - verdict::dVisibleTie) continue;
        const bool isZAxis = i + 1 == rays.size() && std::abs(rays[i].direction.z) == 1.0F;
        if (chosen == nullptr || isZAxis || Dot(rays[i].direction, mean) > Dot(chosen->direction, mean))
            chosen = &rays[i];
    }
    if (chosen->dRegularity < verdict::dMinRegularity) return {ERay::Guessed, normalised(mean), chosen->dRegularity};
    return {ERay::Found, chosen->direction, chosen->dRegularity};
}

} // namespace prereg
