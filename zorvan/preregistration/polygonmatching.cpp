// SPDX-License-Identifier: MIT
#include "zorvan/preregistration/polygonmatching.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace prereg {

namespace {

// How badly each pair of candidates of a vertex and the next one keeps the length of their side.
struct Side
{
    std::size_t numTo;
    std::vector<float> changes; // row by row: from, to

    [[nodiscard]] const float* From(std::size_t from) const { return &changes[from * numTo]; }
};

Side makeSide(const RingVertex& from, const RingVertex& to)
{
    const float length = (from.point - to.point).Length();
    Side side{to.candidates.size(), {}};
    side.changes.reserve(from.candidates.size() * to.candidates.size());
    for (const auto& a : from.candidates) {
        for (const auto& b : to.candidates) side.changes.push_back(std::abs((a - b).Length() - length));
    }
    return side;
}

// Shortest paths from one candidate of the first vertex to all candidates of the others, layer by layer: every edge
// leads to the next layer, so one pass finds them.
class PathsFrom
{
public:
    PathsFrom(const std::vector<Side>& sides, std::size_t start) : m_sides(sides), m_start(start)
    {
        m_layers.push_back({{start}, {0.0F}});
        for (std::size_t i = 0; i + 1 < sides.size(); ++i) advance(sides[i]);
    }

    /// The last side back to the start: (length, candidate of the last vertex).
    [[nodiscard]] std::pair<float, std::size_t> Close() const
    {
        const Layer& last = m_layers.back();
        std::pair<float, std::size_t> best{std::numeric_limits<float>::infinity(), 0};
        for (std::size_t k = 0; k < last.length.size(); ++k) {
            const float length = last.length[k] + m_sides.back().From(from(last, k))[m_start];
            if (length < best.first) best = {length, k};
        }
        return best;
    }

    [[nodiscard]] std::vector<std::size_t> Trace(std::size_t last) const
    {
        std::vector<std::size_t> path(m_layers.size());
        for (std::size_t i = m_layers.size(); i-- > 1;) {
            path[i] = last;
            last = m_layers[i].previous[last];
        }
        path[0] = m_start;
        return path;
    }

private:
    struct Layer
    {
        std::vector<std::size_t> previous; // candidate of the vertex before
        std::vector<float> length;
    };

    // The first layer has the start alone.
    [[nodiscard]] std::size_t from(const Layer& layer, std::size_t k) const
    {
        return &layer == &m_layers.front() ? m_start : k;
    }

    void advance(const Side& side)
    {
        const Layer& before = m_layers.back();
        Layer next{std::vector<std::size_t>(side.numTo, 0),
                   std::vector<float>(side.numTo, std::numeric_limits<float>::infinity())};
        for (std::size_t k = 0; k < before.length.size(); ++k) {
            const float* changes = side.From(from(before, k));
            for (std::size_t to = 0; to < side.numTo; ++to) {
                const float length = before.length[k] + changes[to];
                if (length >= next.length[to]) continue;
                next.length[to] = length;
                next.previous[to] = k;
            }
        }
        m_layers.push_back(std::move(next));
    }

    const std::vector<Side>& m_sides;
    std::size_t m_start;
    std::vector<Layer> m_layers;
};

std::vector<float> errorsAt(const std::vector<Side>& sides, const std::vector<std::size_t>& path)
{
    const std::size_t m = sides.size();
    std::vector<float> change(m);
    for (std::size_t i = 0; i < m; ++i) change[i] = sides[i].From(path[i])[path[(i + 1) % m]];
    std::vector<float> errors(m);
    for (std::size_t i = 0; i < m; ++i) errors[i] = (change[(i + m - 1) % m] + change[i]) / 2;
    return errors;
}

} // namespace

RingMatch matchRing(const std::vector<RingVertex>& ring)
{
    const auto hasNone = [](const RingVertex& vertex) { return vertex.candidates.empty(); };
    if (ring.empty() || std::any_of(ring.begin(), ring.end(), hasNone)) return {};
    std::vector<Side> sides;
    for (std::size_t i = 0; i < ring.size(); ++i) sides.push_back(makeSide(ring[i], ring[(i + 1) % ring.size()]));

    float shortest = std::numeric_limits<float>::infinity();
    RingMatch match;
    for (std::size_t start = 0; start < ring[0].candidates.size(); ++start) {
        const PathsFrom paths(sides, start);
        const auto [length, last] = paths.Close();
        if (!(length < shortest)) continue;
        shortest = length;
        match.candidate = paths.Trace(last);
    }
    if (!match.Empty()) match.errors = errorsAt(sides, match.candidate);
    return match;
}

} // namespace prereg
