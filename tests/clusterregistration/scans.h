// SPDX-License-Identifier: MIT
#pragma once

#include "tests/preregistration/measuredsurface.h"
#include "tests/support/clouds.h"
#include "tests/support/matchers.h"
#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"

#include <memory>
#include <string>
#include <vector>

namespace support {

using PointSetPtr = std::shared_ptr<const prereg::CFPFHPointSet>;
using IDs = std::vector<UniversalUniqueID>;

/// Identifiers in the order of maps: "ffffffff-ffff-...", "eeeeeeee-eeee-...", and so on; k < 15.
inline UniversalUniqueID ID(unsigned k)
{
    std::string text = "........-....-....-....-............";
    for (char& c : text) c = c == '.' ? "fedcba987654321"[k] : c;
    return {text};
}

struct Scan
{
    UniversalUniqueID id;
    prereg::CTrafo truth; ///< own to common coordinates
    PointSetPtr set;
};

inline Scan MakeScan(unsigned k, const prereg::CFPFHPointSet& inPlace)
{
    std::mt19937 rng(k + 50);
    const auto truth = RandomPose(rng, 20.0F);
    return {ID(k), truth, std::make_shared<const prereg::CFPFHPointSet>(inPlace.Transform(truth.GetInverse(true)))};
}

/// A part of the bumpy surface, which a search finds in other parts.
inline Scan Strip(unsigned k, float from, float to)
{
    return MakeScan(k, Measure(k + 1)->RestrictWithPredicate([&](const auto& p) { return p.x >= from && p.x <= to; }));
}

/// The left, the right and the middle of the surface: the first two touch only the third.
inline std::vector<Scan> LeftRightMiddle() { return {Strip(0, -20, -1), Strip(1, 1, 20), Strip(2, -12, 12)}; }

/// Settings that find strips in each other, and soon give up where there is nothing to find.
inline prereg::ConfigurationFPFH StripSettings()
{
    auto config = SearchSettings();
    config.uiNumPolygons = 60;
    return config;
}

/// Views of the bumpy ball from six sides, with features that mean nothing: for all but the search. Opposite sides
/// (0 and 1, 2 and 3, 4 and 5) do not touch.
inline const std::vector<Scan>& SixViews()
{
    static const std::vector<Scan> views = [] {
        std::vector<Scan> scans;
        for (unsigned k = 0; k < 6; ++k) {
            Vector3 side;
            side[k / 2] = k % 2 == 0 ? 1.0F : -1.0F;
            const auto [p, n] = BumpyBall(side, 1.2F, 4000, k, 0.005F);
            scans.push_back(MakeScan(k, {p,
                                         n,
                                         {p.begin(), p.begin() + 200},
                                         {n.begin(), n.begin() + 200},
                                         std::vector(200, prereg::CPointFeatureHistogram(0.1F))}));
        }
        return scans;
    }();
    return views;
}

/// About 0.3 degrees and 0.1 mm away from the pose.
inline prereg::CTrafo Disturbed(const prereg::CTrafo& pose, std::uint32_t seed)
{
    std::mt19937 rng(seed);
    return prereg::CTrafo(RandomDirection(rng), 0.005F, RandomDirection(rng) * 0.1F) * pose;
}

/// The usual search; counts how often one is made.
inline prereg::CClusterRegistration::SearchFactory Counted(int& made)
{
    return [&made](const auto& fix, const auto& flt, const auto& config, const auto* oracle) {
        ++made;
        auto search = std::make_unique<prereg::CFPFHPreRegistration>(fix, flt, config);
        if (oracle != nullptr) search->SetOracleTrafo(*oracle);
        return search;
    };
}

/// Makes one cluster of these scans; the first one is its primary entity.
inline bool CreateCluster(prereg::CClusterRegistration& registration, const UniversalUniqueID& id,
                          const std::vector<Scan>& scans, const std::vector<prereg::CTrafo>& poses,
                          const prereg::CTrafo& clusterTrafo = prereg::CTrafo())
{
    std::vector<prereg::CClusterRegistration::EntityTuple> entities;
    for (std::size_t k = 0; k < scans.size(); ++k)
        entities.emplace_back(scans[k].id, poses[k], prereg::CTrafo::Invalid(), scans[k].set);
    return registration.CreateCluster(id, scans.front().id, clusterTrafo, entities);
}

/// Expects the scans in one cluster, in the right places to each other.
inline void ExpectRegistered(const prereg::CClusterRegistration& registration, const std::vector<Scan>& scans,
                             double maxMm, double maxDegrees)
{
    const auto toFirst = registration.GetTrafo(scans[0].id).GetInverse(true);
    for (const Scan& scan : scans) {
        EXPECT_EQ(registration.GetClusterID(scan.id), registration.GetClusterID(scans[0].id));
        EXPECT_THAT(toFirst * registration.GetTrafo(scan.id),
                    IsNearPose(scans[0].truth.GetInverse(true) * scan.truth, maxMm, maxDegrees));
    }
}

/// The names of the journal's entries.
inline std::string Journal(const prereg::CClusterRegistration& registration)
{
    std::string names;
    for (const auto& e : registration.ToObject().child("events").as_object()) names += e.name_string() + ' ';
    return names;
}

} // namespace support
