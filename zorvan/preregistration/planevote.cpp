// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/planevote.h"

#include "zorvan/preregistration/votescan.h"
#include "zorvan/preregistration/votesearch.h"
#include "zorvan/verdict/supportplane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <optional>
#include <utility>

namespace prereg {

namespace {

using kdtree::Vector;

constexpr unsigned uiTurns = 72;        // 5 degrees apart: a point half a size from the middle moves by a cell
constexpr double dLeastShare = 0.5;     // of the surface
constexpr float fThinning = 0.02F;      // of the scan's size, to find the plane on
constexpr std::size_t uiLeastRest = 30; // surfels: fewer have no shape
constexpr std::size_t uiMostPoses = 20; // refined on all points later

/// A scan on its plane.
struct Standing
{
    SupportPlane plane;
    float size = 0.0F; ///< of what stands on it (mm)
};

std::optional<Standing> standing(const VotingScan& scan)
{
    const ScanSampling& sampling = scan.view->GetSampling();
    const float cell = std::max(fThinning * EstimateSize(scan.set->GetPoints()), static_cast<float>(sampling.dSpacing));
    const Surfels surfels = ThinSurfels(scan.set->GetPoints(), scan.set->GetNormals(), {}, cell);
    const auto plane = FindSupportPlane(surfels.points, surfels.normals, sampling, dLeastShare);
    if (!plane) return std::nullopt;
    Vectors rest;
    for (std::size_t i = 0; i < surfels.Size(); ++i)
        if (!plane->Holds(surfels.points[i], surfels.normals[i])) rest.push_back(surfels.points[i]);
    if (rest.size() < uiLeastRest) return std::nullopt;
    return Standing{*plane, EstimateSize(rest)};
}

/// Turns one direction into another, by the shortest way.
CTrafo shortestTurn(const Vector<3>& from, const Vector<3>& to)
{
    const Vector<3> axis = Cross(from, to);
    const float sine = axis.Length();
    if (sine > 1e-6F) return {axis * (1.0F / sine), std::atan2(sine, Dot(from, to)), Vector<3>()};
    if (Dot(from, to) > 0.0F) return {};
    const Vector<3> across = Cross(from, std::abs(from.x) < 0.7F ? Vector<3>(1, 0, 0) : Vector<3>(0, 1, 0));
    return {across * (1.0F / across.Length()), std::numbers::pi_v<float>, Vector<3>()};
}

std::vector<CTrafo> turnsOnPlane(const Vector<3>& fix, const Vector<3>& flt)
{
    const CTrafo first = shortestTurn(flt, fix);
    std::vector<CTrafo> turns;
    for (unsigned k = 0; k < uiTurns; ++k) {
        const float angle = 2.0F * std::numbers::pi_v<float> * static_cast<float>(k) / static_cast<float>(uiTurns);
        turns.push_back(CTrafo(fix, angle, Vector<3>()) * first);
    }
    return turns;
}

} // namespace

std::vector<CTrafo> ProposeOnPlane(const VotingScan& fix, const VotingScan& flt, unsigned uiNumTasks,
                                   std::function<bool()> abort)
{
    const auto fixOn = standing(fix);
    const auto fltOn = fixOn ? standing(flt) : std::nullopt;
    if (!fltOn) return {};
    const float size = std::max(fixOn->size, fltOn->size);
    ConfigurationVote config;
    config.uiNumTasks = uiNumTasks;
    const VoteScan fixScan = PrepareVoteOffPlane(fix, fixOn->plane, size);
    const VoteScan fltScan = PrepareVoteOffPlane(flt, fltOn->plane, size);
    const VoteLimits limits(size, fix.view->GetSampling(), flt.view->GetSampling());
    const auto found = CVoteSearch(fixScan, fltScan, config, limits, std::move(abort))
                           .RunWith(turnsOnPlane(fixOn->plane.normal, fltOn->plane.normal));
    std::vector<CTrafo> poses;
    if (!found) return poses;
    for (std::size_t i = 0; i < std::min(uiMostPoses, found->size()); ++i) poses.push_back((*found)[i].pose);
    return poses;
}

} // namespace prereg
