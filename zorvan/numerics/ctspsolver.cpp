// SPDX-License-Identifier: MIT
#include "zorvan/numerics/ctspsolver.h"

#include "zorvan/numerics/tourimprovement.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

constexpr int iMostExact = 12;
constexpr double infinity = std::numeric_limits<double>::infinity();

/// The shortest tour through all of 0 .. n - 1, by the shortest ways from the last point through each set of others.
std::vector<int> shortestTour(const TourDistance& distance, int n)
{
    const int last = n - 1;
    const auto others = static_cast<std::size_t>(last);
    const std::size_t numSets = std::size_t{1} << others;
    std::vector<double> lengths(numSets * others, infinity); // of the way through a set to its member, from `last`
    std::vector<int> before(numSets * others, last);
    for (std::size_t i = 0; i < others; ++i)
        lengths[(std::size_t{1} << i) * others + i] = distance(last, static_cast<int>(i));
    for (std::size_t set = 1; set < numSets; ++set) {
        for (std::size_t i = 0; i < others; ++i) {
            const std::size_t without = set & ~(std::size_t{1} << i);
            if (without == set || without == 0) continue;
            for (std::size_t j = 0; j < others; ++j) {
                if ((without >> j & 1U) == 0) continue;
                const double length =
                    lengths[without * others + j] + distance(static_cast<int>(j), static_cast<int>(i));
                if (length >= lengths[set * others + i]) continue;
                lengths[set * others + i] = length;
                before[set * others + i] = static_cast<int>(j);
            }
        }
    }
    std::size_t set = numSets - 1;
    double best = infinity;
    int at = 0;
    for (std::size_t i = 0; i < others; ++i) {
        const double length = lengths[set * others + i] + distance(static_cast<int>(i), last);
        if (length < best) at = static_cast<int>(i);
        best = std::min(best, length);
    }
    std::vector<int> tour{last};
    while (at != last) {
        tour.push_back(at);
        const auto member = static_cast<std::size_t>(at);
        at = before[set * others + member];
        set &= ~(std::size_t{1} << member);
    }
    return tour;
}

std::vector<int> nearestNeighbourTour(const TourDistance& distance, int n)
{
    std::vector<int> tour(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) tour[static_cast<std::size_t>(i)] = (i + n - 1) % n; // from the last point on
    for (std::size_t i = 0; i + 2 < tour.size(); ++i) {
        std::size_t nearest = i + 1;
        double least = infinity;
        for (std::size_t j = i + 1; j < tour.size(); ++j) {
            const double candidate = distance(tour[i], tour[j]);
            if (candidate < least) nearest = j;
            least = std::min(least, candidate);
        }
        std::swap(tour[i + 1], tour[nearest]);
    }
    return tour;
}

void requireFinite(const TourDistance& distance, int n)
{
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j)
            if (!std::isfinite(distance(j, i))) throw std::invalid_argument("distances have to be finite");
}

/// Begins a closed tour at 0, or an open one behind the point `gap` that stands for its ends, and picks the direction.
TPermutation<int> normalised(std::vector<int> tour, int gap)
{
    const bool isOpen = gap >= 0;
    std::rotate(tour.begin(), std::ranges::find(tour, isOpen ? gap : 0), tour.end());
    if (tour.size() > 1 && tour.back() < tour[1]) std::reverse(tour.begin() + 1, tour.end());
    TPermutation<int> order(tour.size() - (isOpen ? 1 : 0));
    std::copy(tour.begin() + (isOpen ? 1 : 0), tour.end(), order.begin());
    return order;
}

} // namespace

CTSPSolver::CTSPSolver(int numPoints, std::function<double(int, int)> distance)
    : m_numPoints(numPoints), m_distance(std::move(distance))
{
    if (m_numPoints < 0) throw std::invalid_argument("a tour has no fewer than 0 points");
    if (!m_distance) throw std::invalid_argument("a tour needs distances");
}

CTSPSolver::Tour CTSPSolver::Solve(ETour eTour, const std::function<bool()>& isAborted) const
{
    if (m_numPoints == 0) return {};
    // An open tour is a closed one through a further point, which is at distance 0 from all others.
    const int gap = eTour == ETour::Open ? m_numPoints : -1;
    const int n = eTour == ETour::Open ? m_numPoints + 1 : m_numPoints;
    const TourDistance distance = [&](int i, int j) {
        return i == gap || j == gap || i == j ? 0.0 : m_distance(std::min(i, j), std::max(i, j));
    };
    requireFinite(distance, n);

    Tour result;
    std::vector<int> tour;
    if (m_numPoints <= iMostExact) {
        tour = n == 1 ? std::vector<int>{0} : shortestTour(distance, n);
    } else {
        tour = nearestNeighbourTour(distance, n);
        result.isShortest = false;
        result.isAborted = !ImproveTour(tour, distance, isAborted);
    }
    result.order = normalised(std::move(tour), gap);
    result.dLength = GetLength(result.order, eTour);
    return result;
}

double CTSPSolver::GetLength(const TPermutation<int>& order, ETour eTour) const
{
    if (order.Size() != static_cast<std::size_t>(m_numPoints) || !order.IsValid())
        throw std::invalid_argument("a tour visits each point once");
    double length = 0.0;
    const auto add = [&](int i, int j) { length += i == j ? 0.0 : m_distance(std::min(i, j), std::max(i, j)); };
    for (std::size_t k = 1; k < order.Size(); ++k) add(order[k - 1], order[k]);
    if (eTour == ETour::Closed && order.Size() > 1) add(order[order.Size() - 1], order[0]);
    return length;
}

} // namespace Zorvan
