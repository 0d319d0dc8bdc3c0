// SPDX-License-Identifier: MIT
#include "zorvan/numerics/tourimprovement.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>
#include <iterator>
#include <utility>

namespace Zorvan {

namespace {

constexpr std::size_t numNeighbours = 10;
constexpr std::size_t longestSegment = 3;
/// A gain below this share of the edges that go is rounding, which could go round in circles.
constexpr double leastGain = 1e-12;

/// A tour as an array of points and the place of each in it. Places are counted modulo the length.
class CTourImprovement
{
public:
    CTourImprovement(std::vector<int>& tour, const TourDistance& distance);

    [[nodiscard]] bool Run(const std::function<bool()>& isAborted);

private:
    [[nodiscard]] int pointAt(std::size_t place) const { return m_tour[place % m_tour.size()]; }
    [[nodiscard]] std::size_t placeOf(int point) const { return m_places[static_cast<std::size_t>(point)]; }
    [[nodiscard]] const std::vector<int>& neighboursOf(int point) const
    {
        return m_neighbours[static_cast<std::size_t>(point)];
    }
    [[nodiscard]] static bool isGain(double removed, double added)
    {
        return removed - added > leastGain * (std::abs(removed) + std::abs(added));
    }
    [[nodiscard]] std::vector<int> nearestTo(int point) const;
    void reverse(std::size_t first, std::size_t count);
    void lookAtAgain(int point);
    [[nodiscard]] bool tryTurning(int point, bool isForward);
    [[nodiscard]] bool tryMoving(std::size_t first, std::size_t count);
    [[nodiscard]] bool tryMovingTo(std::size_t first, std::size_t count, std::size_t offset, double removed);
    void move(std::size_t first, std::size_t count, std::size_t offset, bool isReversed);
    [[nodiscard]] bool improveAt(int point);

    std::vector<int>& m_tour;
    const TourDistance& m_distance;
    std::vector<std::size_t> m_places;
    std::vector<std::vector<int>> m_neighbours; ///< ascending by distance
    std::deque<int> m_queue;                    ///< points at which something may be gained
    std::vector<bool> m_isQueued;
};

CTourImprovement::CTourImprovement(std::vector<int>& tour, const TourDistance& distance)
    : m_tour(tour), m_distance(distance), m_places(tour.size()), m_neighbours(tour.size()), m_isQueued(tour.size())
{
    for (std::size_t place = 0; place < m_tour.size(); ++place) {
        m_places[static_cast<std::size_t>(m_tour[place])] = place;
        m_neighbours[place] = nearestTo(static_cast<int>(place));
    }
}

std::vector<int> CTourImprovement::nearestTo(int point) const
{
    std::vector<std::pair<double, int>> candidates;
    for (int other = 0; other < static_cast<int>(m_tour.size()); ++other)
        if (other != point) candidates.emplace_back(m_distance(point, other), other);
    const auto end = candidates.begin() + static_cast<std::ptrdiff_t>(std::min(numNeighbours, candidates.size()));
    std::partial_sort(candidates.begin(), end, candidates.end());
    std::vector<int> others;
    std::transform(candidates.begin(), end, std::back_inserter(others), [](const auto& c) { return c.second; });
    return others;
}

/// Turns round what stands at `count` places from `first` on.
void CTourImprovement::reverse(std::size_t first, std::size_t count)
{
    const std::size_t n = m_tour.size();
    for (std::size_t k = 0; k < count / 2; ++k) {
        const std::size_t a = (first + k) % n;
        const std::size_t b = (first + count - 1 - k) % n;
        std::swap(m_tour[a], m_tour[b]);
        m_places[static_cast<std::size_t>(m_tour[a])] = a;
        m_places[static_cast<std::size_t>(m_tour[b])] = b;
    }
}

void CTourImprovement::lookAtAgain(int point)
{
    if (m_isQueued[static_cast<std::size_t>(point)]) return;
    m_isQueued[static_cast<std::size_t>(point)] = true;
    m_queue.push_back(point);
}

/// 2-opt: the edge from the point to the next one and another go, what lies between them is turned round.
bool CTourImprovement::tryTurning(int point, bool isForward)
{
    const std::size_t n = m_tour.size();
    const std::size_t step = isForward ? 1 : n - 1;
    const int next = pointAt(placeOf(point) + step);
    const double edge = m_distance(point, next);
    for (const int other : neighboursOf(point)) {
        const double newEdge = m_distance(point, other);
        if (newEdge >= edge) return false;
        const int afterOther = pointAt(placeOf(other) + step);
        if (!isGain(edge + m_distance(other, afterOther), newEdge + m_distance(next, afterOther))) continue;

        const std::size_t first = isForward ? placeOf(next) : placeOf(point);
        const std::size_t last = isForward ? placeOf(other) : placeOf(afterOther);
        const std::size_t count = (last + n - first) % n + 1;
        if (2 * count <= n)
            reverse(first, count);
        else
            reverse(first + count, n - count); // the rest instead: the same tour, the other way round
        for (const int end : {point, next, other, afterOther}) lookAtAgain(end);
        return true;
    }
    return false;
}

/// Or-opt: the points from place `first` on are moved to where one of their ends has a near neighbour.
bool CTourImprovement::tryMoving(std::size_t first, std::size_t count)
{
    const std::size_t n = m_tour.size();
    const int before = pointAt(first + n - 1);
    const int after = pointAt(first + count);
    const int ends[] = {pointAt(first), pointAt(first + count - 1)};
    const double removed = m_distance(before, ends[0]) + m_distance(ends[1], after) - m_distance(before, after);
    for (const int end : ends) {
        for (const int other : neighboursOf(end)) {
            const std::size_t offset = (placeOf(other) + n - first % n) % n;
            if (tryMovingTo(first, count, offset, removed) || tryMovingTo(first, count, offset + n - 1, removed))
                return true;
        }
    }
    return false;
}

/// Between the place `offset` behind the first and the next one.
bool CTourImprovement::tryMovingTo(std::size_t first, std::size_t count, std::size_t offset, double removed)
{
    const std::size_t n = m_tour.size();
    offset %= n;
    if (offset < count || offset + 1 == n) return false; // within, or where it is
    const int head = pointAt(first);
    const int tail = pointAt(first + count - 1);
    const int a = pointAt(first + offset);
    const int b = pointAt(first + offset + 1);
    const double straight = m_distance(a, head) + m_distance(tail, b);
    const double reversed = m_distance(a, tail) + m_distance(head, b);
    const double removedThere = m_distance(a, b);
    if (!isGain(removed + removedThere, std::min(straight, reversed))) return false;

    const int ends[] = {pointAt(first + n - 1), head, tail, pointAt(first + count), a, b};
    move(first, count, offset, reversed < straight);
    for (const int end : ends) lookAtAgain(end);
    return true;
}

/// Swaps the segment with what lies between it and its new place, on the shorter side: turning both together and then
/// each alone.
void CTourImprovement::move(std::size_t first, std::size_t count, std::size_t offset, bool isReversed)
{
    const std::size_t n = m_tour.size();
    const std::size_t behind = offset - count + 1;
    const std::size_t ahead = n - offset - 1;
    if (behind <= ahead) {
        reverse(first, count + behind);
        reverse(first, behind);
        if (!isReversed) reverse(first + behind, count);
    } else {
        const std::size_t start = first + n - ahead;
        reverse(start, ahead + count);
        reverse(start + count, ahead);
        if (!isReversed) reverse(start, count);
    }
}

bool CTourImprovement::improveAt(int point)
{
    if (tryTurning(point, true) || tryTurning(point, false)) return true;
    const std::size_t n = m_tour.size();
    for (std::size_t count = 1; count <= longestSegment; ++count)
        if (tryMoving(placeOf(point), count) || (count > 1 && tryMoving(placeOf(point) + n + 1 - count, count)))
            return true;
    return false;
}

bool CTourImprovement::Run(const std::function<bool()>& isAborted)
{
    for (const int point : std::vector<int>(m_tour)) lookAtAgain(point);
    while (!m_queue.empty()) {
        if (isAborted && isAborted()) return false;
        const int point = m_queue.front();
        m_queue.pop_front();
        m_isQueued[static_cast<std::size_t>(point)] = false;
        while (improveAt(point)) {
        }
    }
    return true;
}

} // namespace

bool ImproveTour(std::vector<int>& tour, const TourDistance& distance, const std::function<bool()>& isAborted)
{
    if (tour.size() < 2 * longestSegment) return true;
    return CTourImprovement(tour, distance).Run(isAborted);
}

} // namespace Zorvan
