// SPDX-License-Identifier: MIT
#include "zorvan/verdict/disputedspots.h"

#include "zorvan/features/latticemap.h"
#include "zorvan/graphs/cdisjointsets.h"
#include "zorvan/verdict/cspotview.h"
#include "zorvan/verdict/verdictlimits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <optional>
#include <utility>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;

struct Said
{
    std::size_t view;
    bool isLacking;
};

/// A sample of one view that another one at least lacks. The view itself is among those that show it.
struct Place
{
    Vector3 point; ///< in the common frame
    Vector3 normal;
    std::size_t owner;
    std::vector<Said> said;

    [[nodiscard]] std::size_t Count(bool isLacking) const
    {
        return static_cast<std::size_t>(std::ranges::count(said, isLacking, &Said::isLacking));
    }
};

using Places = std::vector<Place>;

/// Several views that see the spot, and how.
struct Camps
{
    std::vector<std::size_t> showing;
    std::vector<std::size_t> lacking;
    std::vector<std::size_t> unclear;
    std::vector<SpotSight> sights; ///< of all of them, in ascending order
};

/// Where the sensor of a view stands to a spot.
struct Stand
{
    bool isLacking = false;
    Vector3 direction;   ///< towards the sensor, in the common frame
    float cosine = 0.0F; ///< of the angle between it and the surface
};

/// One call of FindDisputedSpots.
class CSpotFinder
{
public:
    CSpotFinder(std::span<const PlacedView> views, std::span<const ViewPair> pairs)
    {
        m_beside.resize(views.size());
        for (const PlacedView& view : views) {
            m_views.emplace_back(view);
            if (m_views.back().IsKnown()) m_pixel = std::max(m_pixel, m_views.back().GetPixelSize());
        }
        for (const ViewPair& pair : pairs) {
            if (!m_views[pair.a].IsKnown() || !m_views[pair.b].IsKnown()) continue;
            m_numLooks += pair.uiMatched;
            m_beside[pair.a].push_back(pair);
            m_beside[pair.b].push_back({pair.b, pair.a, pair.uiMatched, pair.isAtOdds, pair.isSeenThrough});
        }
    }

    std::vector<DisputedSpot> Find()
    {
        findPlaces();
        std::vector<DisputedSpot> spots;
        for (const std::vector<std::size_t>& spot : disputed())
            if (auto found = look(spot)) spots.push_back(std::move(*found));
        std::ranges::stable_sort(spots, {}, &DisputedSpot::dChance);
        return spots;
    }

private:
    /// Between samples, mm.
    [[nodiscard]] float step() const { return static_cast<float>(verdict::dSampleStep) * m_pixel; }

    [[nodiscard]] float front(std::size_t a, std::size_t b) const
    {
        const double noise = std::hypot(m_views[a].GetNoise(), m_views[b].GetNoise());
        return static_cast<float>(verdict::dFrontPixels * static_cast<double>(m_pixel) + verdict::dFrontNoise * noise);
    }

    void findPlaces()
    {
        for (std::size_t own = 0; own < m_views.size(); ++own) {
            std::vector<std::size_t> asked;
            for (const ViewPair& pair : m_beside[own])
                if (pair.isAtOdds && (pair.isSeenThrough || m_views[pair.b].HasGap())) asked.push_back(pair.b);
            if (asked.empty()) continue;
            m_views[own].ForEachSample(step(), [&](const Vector3& point, const Vector3& normal) {
                bool isLacking = false;
                for (const std::size_t view : asked) {
                    const ESight eSight = m_views[view].Sight(point, normal, front(own, view));
                    m_numLooks += eSight == ESight::Lacks;
                    isLacking = isLacking || eSight == ESight::Lacks;
                }
                if (isLacking) m_places.push_back({point, normal, own, askAll(own, point, normal)});
            });
        }
        m_numLost = static_cast<std::size_t>(
            std::ranges::count_if(m_places, [](const Place& place) { return place.Count(true) == 1; }));
    }

    [[nodiscard]] std::vector<Said> askAll(std::size_t own, const Vector3& point, const Vector3& normal) const
    {
        std::vector<Said> said{{own, false}};
        for (const ViewPair& pair : m_beside[own]) {
            const ESight eSight = m_views[pair.b].Sight(point, normal, front(own, pair.b));
            if (eSight != ESight::Silent) said.push_back({pair.b, eSight == ESight::Lacks});
        }
        return said;
    }

    /// Places that at least two views show and two lack, those of one piece together.
    [[nodiscard]] std::vector<std::vector<std::size_t>> disputed() const
    {
        std::vector<std::size_t> among;
        for (std::size_t i = 0; i < m_places.size(); ++i)
            if (std::min(m_places[i].Count(true), m_places[i].Count(false)) >= verdict::uiMinCamp) among.push_back(i);
        // Samples of two views lie within a step and a half of one another.
        const float reach = 1.5F * step();
        TLatticeMap<std::vector<unsigned>> cells(reach);
        for (unsigned k = 0; k < among.size(); ++k) cells.At(m_places[among[k]].point).push_back(k);
        Zorvan::CDisjointSets pieces(static_cast<unsigned>(among.size()));
        for (unsigned k = 0; k < among.size(); ++k) {
            forEachNear(cells, m_places[among[k]].point, [&](unsigned other) {
                if (areOnePiece(m_places[among[k]], m_places[among[other]], reach)) pieces.Unify(k, other);
            });
        }
        std::vector<std::vector<std::size_t>> spots;
        for (const auto& piece : pieces) {
            std::vector<std::size_t>& spot = spots.emplace_back();
            for (const unsigned k : piece) spot.push_back(among[k]);
        }
        return spots;
    }

    template <typename F>
    static void forEachNear(const TLatticeMap<std::vector<unsigned>>& cells, const Vector3& point, F f)
    {
        const LatticeCell cell = cells.Lattice().CellOf(point);
        for (int k = 0; k < 27; ++k) {
            const auto* const near = cells.Find({cell.x + k % 3 - 1, cell.y + k / 3 % 3 - 1, cell.z + k / 9 - 1});
            if (near != nullptr) std::ranges::for_each(*near, f);
        }
    }

    [[nodiscard]] static bool areOnePiece(const Place& a, const Place& b, float reach)
    {
        return DistanceSq(a.point, b.point) < reach * reach &&
               Dot(a.normal, b.normal) > static_cast<float>(verdict::dMatchCosine);
    }

    /// @param places  all of the spot
    [[nodiscard]] std::optional<DisputedSpot> look(std::span<const std::size_t> places) const
    {
        const std::size_t size = numCells(places);
        if (size < verdict::uiMinSpotCells) return std::nullopt;
        const std::vector<std::size_t> spot = fewOf(places);
        const Vectors rim = rimOf(spot);
        const Camps camps = campsOf(spot, rim);
        const double chance = chanceOf(places.size(), camps.lacking.size(), camps.showing.size());
        if (chance > verdict::dMaxSpotChance) return std::nullopt;
        if (isMatterOfStand(spot, camps)) return std::nullopt;
        Vector3 sum;
        for (const std::size_t i : spot) sum = sum + m_places[i].point;
        const auto pixel = static_cast<double>(m_pixel);
        const double area = static_cast<double>(size) * std::pow(verdict::dSampleStep * pixel, 2);
        const double width = 2.0 * (std::sqrt(area / std::numbers::pi) + verdict::dMissingPixels * pixel);
        return DisputedSpot{sum * (1.0F / static_cast<float>(spot.size())),
                            width,
                            camps.showing,
                            camps.lacking,
                            camps.unclear,
                            chance,
                            spot.size(),
                            camps.sights};
    }

    /// Enough for shares of a spot: a large one has thousands.
    [[nodiscard]] static std::vector<std::size_t> fewOf(std::span<const std::size_t> places)
    {
        constexpr std::size_t uiEnough = 200;
        std::vector<std::size_t> few;
        for (std::size_t k = 0; k < places.size(); k += 1 + places.size() / uiEnough) few.push_back(places[k]);
        return few;
    }

    [[nodiscard]] Vectors pointsOf(std::span<const std::size_t> spot) const
    {
        Vectors points;
        for (const std::size_t i : spot) points.push_back(m_places[i].point);
        return points;
    }

    /// As wide as samples lie apart: of how many views ever the samples are.
    [[nodiscard]] std::size_t numCells(std::span<const std::size_t> spot) const
    {
        TLatticeMap<char> cells(step());
        for (const std::size_t i : spot) cells.At(m_places[i].point) = 1;
        return cells.Size();
    }

    /// What lies about the spot, beyond the edge that places keep away from, as those that show the spot have it.
    [[nodiscard]] Vectors rimOf(std::span<const std::size_t> spot) const
    {
        const float from = (static_cast<float>(verdict::dMissingPixels) + 1.5F) * m_pixel;
        const float to = from + 3.0F * m_pixel;
        const Vectors points = pointsOf(spot);
        Vectors rim;
        for (std::size_t view = 0; view < m_views.size(); ++view) {
            const auto isShown = [&](std::size_t i) {
                return std::ranges::any_of(m_places[i].said,
                                           [&](const Said& said) { return said.view == view && !said.isLacking; });
            };
            if (std::ranges::none_of(spot, isShown)) continue;
            m_views[view].ForEachPixelAbout(points, to, [&](const Vector3& point, const Vector3& /*normal*/) {
                float nearest = std::numeric_limits<float>::max();
                for (const Vector3& p : points) nearest = std::min(nearest, DistanceSq(p, point));
                if (nearest > from * from && nearest < to * to) rim.push_back(point);
            });
        }
        return rim;
    }

    /// Now that it is known where the spot ends, views tell that look at it too flatly to be sure of single samples.
    [[nodiscard]] Camps campsOf(std::span<const std::size_t> spot, const Vectors& rim) const
    {
        const Vectors points = pointsOf(spot);
        Camps camps;
        for (std::size_t view = 0; view < m_views.size(); ++view) {
            if (!m_views[view].IsKnown()) continue;
            const SpotSight counts = countIn(view, spot);
            const auto ofSpot = [&](std::size_t count) {
                return static_cast<double>(count) / static_cast<double>(spot.size());
            };
            const double about = rimShare(view, rim);
            const bool isLooking = about >= verdict::dMostOfSpot || ofSpot(counts.uiThrough) >= verdict::dMostOfSpot;
            if (ofSpot(counts.uiSurface) >= verdict::dShownOfSpot &&
                static_cast<double>(counts.uiLost) <= verdict::dLostOfShown * static_cast<double>(counts.uiSurface))
                camps.showing.push_back(view);
            else if (isLooking && ofSpot(counts.uiOpen) >= verdict::dMostOfSpot && m_views[view].Encloses(points))
                camps.lacking.push_back(view);
            else if (counts.uiSurface > 0 || about > 0.0)
                camps.unclear.push_back(view);
            else
                continue; // it sees nothing of it
            camps.sights.push_back(counts);
        }
        return camps;
    }

    [[nodiscard]] SpotSight countIn(std::size_t asked, std::span<const std::size_t> spot) const
    {
        const CSpotView& view = m_views[asked];
        SpotSight counts{asked};
        for (const std::size_t i : spot) {
            const Place& place = m_places[i];
            const float inFront = front(place.owner, asked);
            const bool isPresent = view.HasSurfaceNear(place.point, step());
            const bool isOpen = !isPresent && view.IsOpen(place.point, inFront);
            counts.uiSurface += isPresent;
            counts.uiOpen += isOpen;
            counts.uiLost += isOpen && view.CosineTo(place.normal) > static_cast<float>(verdict::dFacingCosine);
            counts.uiThrough += view.LooksThrough(place.point, inFront);
        }
        return counts;
    }

    [[nodiscard]] double rimShare(std::size_t view, const Vectors& rim) const
    {
        const auto shown = std::ranges::count_if(
            rim, [&](const Vector3& point) { return m_views[view].HasSurfaceNear(point, step()); });
        return rim.empty() ? 0.0 : static_cast<double>(shown) / static_cast<double>(rim.size());
    }

    /// Material that a sensor sees from some sides only divides views too: by how squarely they look at it, or by the
    /// side that they look from.
    [[nodiscard]] bool isMatterOfStand(std::span<const std::size_t> spot, const Camps& camps) const
    {
        constexpr float fAlike = 0.05F;
        constexpr float fSameSide = 0.001F; // two degrees about one direction
        std::vector<Stand> stands;
        for (const bool isLacking : {false, true})
            for (const std::size_t view : isLacking ? camps.lacking : camps.showing)
                stands.push_back({isLacking, m_views[view].GetDirection(), meanCosine(spot, view)});
        float flattest = 1.0F;  // that shows it
        float steepest = -1.0F; // that lacks it
        for (const Stand& stand : stands) {
            if (stand.isLacking)
                steepest = std::max(steepest, stand.cosine);
            else
                flattest = std::min(flattest, stand.cosine);
        }
        // Nearer to one that shows it than to any that lacks it, or as near.
        const auto isNextToShowing = [&](const Stand& stand) {
            std::array<float, 2> nearest{-1.0F, -1.0F};
            for (const Stand& other : stands) {
                if (&other == &stand) continue;
                float& cosine = nearest.at(other.isLacking ? 1 : 0);
                cosine = std::max(cosine, Dot(other.direction, stand.direction));
            }
            return nearest[0] >= nearest[1] - fSameSide;
        };
        const auto lacking = std::ranges::count_if(stands, [&](const Stand& stand) {
            return stand.isLacking && stand.cosine >= flattest - fAlike && isNextToShowing(stand);
        });
        const auto showing = std::ranges::count_if(
            stands, [&](const Stand& stand) { return !stand.isLacking && stand.cosine <= steepest + fAlike; });
        return std::min(lacking, showing) < static_cast<std::ptrdiff_t>(verdict::uiMinCamp);
    }

    [[nodiscard]] float meanCosine(std::span<const std::size_t> spot, std::size_t view) const
    {
        float sum = 0.0F;
        for (const std::size_t i : spot) sum += m_views[view].CosineTo(m_places[i].normal);
        return sum / static_cast<float>(spot.size());
    }

    /// How many spots of this size one would expect that so many of those who look at them lack, if views lost them
    /// independently, as often as they lose what no other one lacks.
    [[nodiscard]] double chanceOf(std::size_t size, std::size_t lacking, std::size_t showing) const
    {
        const auto places = static_cast<double>(size);
        const auto looks = static_cast<double>(m_numLooks);
        const auto k = static_cast<double>(lacking);
        const auto n = static_cast<double>(lacking + showing);
        const double loss = std::min(1.0, (static_cast<double>(m_numLost) + places) / looks);
        const double spots = std::max(1.0, looks / places / n);
        const double choices = std::lgamma(n + 1.0) - std::lgamma(k + 1.0) - std::lgamma(n - k + 1.0);
        return std::exp(std::log(spots) + choices + k * std::log(loss));
    }

    std::vector<CSpotView> m_views;
    std::vector<std::vector<ViewPair>> m_beside; ///< of each view, itself first
    float m_pixel = 0.0F;                        ///< of the coarsest view
    Places m_places;
    std::size_t m_numLooks = 0; ///< samples that another view shows or lacks
    std::size_t m_numLost = 0;  ///< of these, places that one view alone lacks
};

} // namespace

std::vector<DisputedSpot> FindDisputedSpots(std::span<const PlacedView> views, std::span<const ViewPair> pairs)
{
    return CSpotFinder(views, pairs).Find();
}

} // namespace prereg
