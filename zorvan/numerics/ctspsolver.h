// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/tpermutation.h"
#include "zorvan/platform/export.h"

#include <functional>

namespace Zorvan {

/// Short round trips, and short ways from one end to the other, through points that are known by their distances.
///
///     const CTSPSolver solver(n, [&](int i, int j) { return Distance(points[i], points[j]); });
///     const auto tour = solver.Solve(CTSPSolver::ETour::Open);
///     for (const int i : tour.order) visit(points[i]);
///
/// Up to 12 points the result is the shortest of all, by dynamic programming. Beyond that a nearest-neighbour tour is
/// improved until turning round a part of it (2-opt) and moving one to three neighbours elsewhere (Or-opt) no longer
/// help, among the ten nearest neighbours of each point. Time then grows with the square of the number of points,
/// memory with the number. The same distances give the same tour.
/// Sources: Held and Karp, J. SIAM 10 (1962); Or, dissertation, Northwestern University (1976); Bentley, ORSA J. on
/// Computing 4 (1992), for the neighbour lists and the queue.
class ZORVAN_API CTSPSolver
{
public:
    enum class ETour
    {
        Closed, ///< back to the first point
        Open    ///< from any point to any other
    };

    struct Tour
    {
        /// The points as they are visited. A closed tour begins at 0 and goes on to the neighbour of smaller index, an
        /// open one begins at the end of smaller index.
        TPermutation<int> order;
        double dLength = 0.0;
        bool isShortest = true; ///< no tour is shorter
        bool isAborted = false; ///< the search ended early; the tour is complete all the same
    };

    /// @param distance  asked for i < j only; may be negative, need not obey the triangle inequality
    /// @throws std::invalid_argument when there are fewer than 0 points, or no distance to ask
    CTSPSolver(int numPoints, std::function<double(int, int)> distance);

    /// @param isAborted  asked for each point that is looked at; may be empty
    /// @throws std::invalid_argument when a distance is not finite
    [[nodiscard]] Tour Solve(ETour eTour, const std::function<bool()>& isAborted = {}) const;
    /// @param order  each point once
    [[nodiscard]] double GetLength(const TPermutation<int>& order, ETour eTour) const;

private:
    int m_numPoints;
    std::function<double(int, int)> m_distance;
};

} // namespace Zorvan
