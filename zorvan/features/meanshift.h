// SPDX-License-Identifier: MIT
#pragma once

// Mean shift with a flat kernel, for the clusterers of rows and of points in space. Not installed.

#include "zorvan/features/clustermembers.h"
#include "zorvan/features/uniformdraw.h"

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <limits>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace Zorvan::meanshift {

/// How often a datum lay in a kernel on the way to a cluster.
struct Vote
{
    unsigned int datum;
    unsigned int count;
};

/// The votes of one cluster, ascending by datum. Only data with votes are listed: a small bandwidth gives as many
/// clusters as there are data, and a full table would grow with the square of their number.
using Votes = std::vector<Vote>;

[[nodiscard]] Votes MergeVotes(const Votes& a, const Votes& b);

struct Mapping
{
    std::vector<unsigned int> clusterOf; ///< for each datum its place in `kept`, or CClusterMembers::none
    std::vector<unsigned int> sizes;     ///< data of each cluster that is kept
    std::vector<unsigned int> kept;      ///< the clusters that got data, ascending
};

/// Gives each datum to the cluster where it has most votes, the first of several. A datum without votes stays alone.
[[nodiscard]] Mapping MapData(const std::vector<Votes>& votes, std::size_t numData);

template <typename Point>
struct Clustering
{
    std::vector<Point> centres;
    Mapping mapping;
};

/// What a search needs to know of its data: how many there are, each of them, distances, and the mean of those near a
/// centre, for which it calls `taken` with each (false when there are none). A seed that has not converged after
/// `MaxRounds` leaves no cluster; for `clearsPick` see Search::takeSeed.
template <typename T>
concept SearchSpace = std::copyable<typename T::Point> && std::equality_comparable<typename T::Point> &&
    requires(const T& space, std::size_t i, typename T::Point& p, float radiusSq, void (&taken)(std::size_t))
{
    {
        space.Size()
        } -> std::same_as<std::size_t>;
    {
        space.MaxRounds()
        } -> std::same_as<std::size_t>;
    {
        T::clearsPick
        } -> std::convertible_to<bool>;
    {
        space.At(i)
        } -> std::convertible_to<typename T::Point>;
    {
        space.DistanceSq(p, p)
        } -> std::same_as<float>;
    {
        space.MoveHalfway(p, p)
        } -> std::same_as<void>;
    {
        space.MeanAround(p, radiusSq, p, taken)
        } -> std::same_as<bool>;
};

/// Source: Comaniciu, Meer, Mean Shift: A Robust Approach Toward Feature Space Analysis, PAMI 24 (2002). Seeds are
/// drawn from the data that no kernel has met yet, and a datum belongs to the mode whose kernels met it most often.
template <SearchSpace Space>
class Search
{
public:
    using Point = typename Space::Point;

    Search(const Space& space, float bandwidth, float tolerance)
        : m_space(space),
          m_radiusSq(bandwidth * bandwidth),
          m_toleranceSq(tolerance * tolerance),
          m_visited(space.Size()),
          m_counts(space.Size())
    {
    }

    [[nodiscard]] Clustering<Point> Run(std::mt19937& rng) &&
    {
        std::vector<unsigned int> unvisited(m_space.Size());
        std::iota(unvisited.begin(), unvisited.end(), 0U);
        // Seeds that never converge may bring back data without end.
        const std::size_t maxSeeds = 4 * unvisited.size();
        for (std::size_t seed = 0; seed < maxSeeds && !unvisited.empty(); ++seed) {
            const std::size_t pick = DrawIndex(rng, unvisited.size());
            takeSeed(unvisited[pick], pick);
            listUnvisited(unvisited);
        }
        Clustering<Point> result;
        result.mapping = MapData(m_votes, m_space.Size());
        for (const unsigned int k : result.mapping.kept) result.centres.push_back(std::move(m_centres[k]));
        return result;
    }

private:
    enum class EEnd
    {
        Converged,
        Empty,
        LimitReached
    };

    void takeSeed(std::size_t datum, std::size_t pick)
    {
        std::fill(m_counts.begin(), m_counts.end(), 0U);
        m_visited[datum] = 1; // a distance function may put a datum outside its own kernel
        Point mean = m_space.At(datum);
        const EEnd end = climb(mean);
        if (end == EEnd::Converged) addMean(mean);
        // The pick is a place in the list of unvisited data, so another datum than the seed may become a seed again.
        // Callers rely on the clusters that come of it.
        if (Space::clearsPick && end == EEnd::LimitReached) m_visited[pick] = 0;
    }

    EEnd climb(Point& mean)
    {
        Point next = mean;
        // A mean that was there before goes round in a ring until the limit: nothing more to be learnt (Brent).
        Point earlier = mean;
        std::size_t renewal = 1;
        for (std::size_t round = 1; round <= m_space.MaxRounds(); ++round) {
            const bool any = m_space.MeanAround(mean, m_radiusSq, next, [this](std::size_t i) {
                ++m_counts[i];
                m_visited[i] = 1;
            });
            if (!any) return EEnd::Empty;
            std::swap(mean, next);
            if (m_space.DistanceSq(mean, next) < m_toleranceSq) return EEnd::Converged;
            if (mean == earlier) return EEnd::LimitReached;
            if (round == renewal) {
                earlier = mean;
                renewal *= 2;
            }
        }
        return EEnd::LimitReached;
    }

    void addMean(const Point& mean)
    {
        const Votes votes = countedVotes();
        for (std::size_t k = 0; k < m_centres.size(); ++k) {
            if (m_space.DistanceSq(mean, m_centres[k]) < m_radiusSq * 0.25F) {
                m_space.MoveHalfway(m_centres[k], mean);
                m_votes[k] = MergeVotes(m_votes[k], votes);
                return;
            }
        }
        m_centres.push_back(mean);
        m_votes.push_back(votes);
    }

    [[nodiscard]] Votes countedVotes() const
    {
        Votes votes;
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            if (m_counts[i] > 0) votes.push_back({static_cast<unsigned int>(i), m_counts[i]});
        }
        return votes;
    }

    void listUnvisited(std::vector<unsigned int>& unvisited) const
    {
        unvisited.clear();
        for (std::size_t i = 0; i < m_visited.size(); ++i) {
            if (m_visited[i] == 0) unvisited.push_back(static_cast<unsigned int>(i));
        }
    }

    const Space& m_space;
    float m_radiusSq;
    float m_toleranceSq;
    std::vector<unsigned char> m_visited;
    std::vector<unsigned int> m_counts; ///< of the seed at work: how often its kernels met each datum
    std::vector<Point> m_centres;
    std::vector<Votes> m_votes;
};

/// Smallest distance between clusters over largest distance inside one, over all pairs; data without a cluster do not
/// count. Source: Dunn, J. Cybernetics 3 (1973).
/// @param clusterOf   (i) to the cluster of a datum
/// @param distanceSq  (i, j) to a squared distance
template <typename ClusterOf, typename DistanceSq>
[[nodiscard]] float DunnIndex(std::size_t numData, ClusterOf clusterOf, DistanceSq distanceSq)
{
    float maxIntra = 0.0F;
    float minInter = std::numeric_limits<float>::infinity();
    for (std::size_t i = 1; i < numData; ++i) {
        const unsigned int cluster = clusterOf(i);
        if (cluster == CClusterMembers::none) continue;
        for (std::size_t j = 0; j < i; ++j) {
            const unsigned int other = clusterOf(j);
            if (other == cluster)
                maxIntra = std::max(maxIntra, distanceSq(i, j));
            else if (other != CClusterMembers::none)
                minInter = std::min(minInter, distanceSq(i, j));
        }
    }
    return std::sqrt(minInter / maxIntra);
}

} // namespace Zorvan::meanshift
