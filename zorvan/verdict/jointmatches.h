// SPDX-License-Identifier: MIT
#pragma once

// What CJointCovariance and RefineJointly work on: points of many scans that match, and what they say of small motions
// of all scans. Not installed.

#include "zorvan/core/groupwork.h"
#include "zorvan/verdict/jointcovariance.h"

#include <Eigen/Core>
#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace prereg::jointfit {

using Vector6d = Eigen::Matrix<double, 6, 1>;
using Matrix6d = Eigen::Matrix<double, 6, 6>;
using Sparse = Eigen::SparseMatrix<double>;
using ScanPair = std::pair<std::size_t, std::size_t>;
using Group = std::shared_ptr<Zorvan::CJobScheduler::Group>;

[[nodiscard]] inline Eigen::Vector3d ToEigen(const kdtree::Vector<3>& v) { return {v.x, v.y, v.z}; }

/// A scan's points in common coordinates; single, as there are many.
struct Moved
{
    std::vector<kdtree::Vector<3>> points;
    std::vector<kdtree::Vector<3>> normals;
    Eigen::Vector3d centre = Eigen::Vector3d::Zero();

    /// @throws std::invalid_argument for a scan without points or with an invalid pose
    explicit Moved(const ScanInFrame& scan);
};

/// Root of the mean squared distance of points from the centres of their scans: makes turns comparable to shifts.
[[nodiscard]] double RadiusOf(const std::vector<Moved>& scans);

/// Points of two scans that match, fixed first.
struct Match
{
    Eigen::Vector3d fix;
    Eigen::Vector3d flt;
    Eigen::Vector3d normal;     ///< between the two
    Eigen::Vector3d difference; ///< of the normals, fixed minus floating
    double residual = 0.0;      ///< along the normal
};

/// How residuals along the normal change with a motion of their scan; turns in units of 1 / radius.
[[nodiscard]] Vector6d RowOf(const Eigen::Vector3d& point, const Eigen::Vector3d& normal, const Eigen::Vector3d& centre,
                             double radius);

/// A symmetric matrix over the unknowns of two scans.
struct PairBlocks
{
    Matrix6d ofFix = Matrix6d::Zero();
    Matrix6d ofFlt = Matrix6d::Zero();
    Matrix6d between = Matrix6d::Zero(); ///< rows of the fixed one

    void Add(const Vector6d& fix, const Vector6d& flt, double weight)
    {
        ofFix += weight * fix * fix.transpose();
        ofFlt += weight * flt * flt.transpose();
        between += weight * fix * flt.transpose();
    }
};

/// Of the hold of a pair, what the noise of its normals feigns: the normals of a match differ by it, and beside an edge
/// by more, and as much lean of their mean looks like a hold where there is none. A curved surface turns between the
/// points of a match, which is no noise: so the quarter of the matches whose points are nearest to each other stands
/// for all.
struct FeignedHold
{
    Matrix6d ofFix = Matrix6d::Zero();
    Matrix6d ofFlt = Matrix6d::Zero();

    FeignedHold() = default;
    FeignedHold(const std::vector<Match>& matches, const Eigen::Vector3d& fixCentre, const Eigen::Vector3d& fltCentre,
                double radius);
};

/// A symmetric matrix over the unknowns of all scans.
class CBlocks
{
public:
    void Add(std::size_t row, std::size_t column, const Matrix6d& block);
    void Add(ScanPair pair, const PairBlocks& more, double weight);
    /// @param first  scans before that one stay where they are
    [[nodiscard]] Sparse Assembled(std::size_t numScans, std::size_t first) const;
    /// Adds a trifle to the diagonal, so that what nothing holds stays finite.
    void Bound(std::size_t numScans);

private:
    std::map<ScanPair, Matrix6d> m_blocks;
};

/// Normal equations that are solved in several rounds, each of which is held where the one before has ended: by what
/// the hold may be feigned of, many times over. A motion that surfaces hold is solved after the first rounds; one that
/// they do not hold is still near its start after the last. A sharper cut than one round makes, and as sparse.
class CAnchoredEquations
{
public:
    using Columns = Eigen::MatrixXd;

    /// @param feigned  zero: all in one round
    void Take(const Sparse& hold, const Sparse& feigned);

    [[nodiscard]] Eigen::Index Size() const { return m_anchors.rows(); }
    [[nodiscard]] Columns Solve(const Columns& right) const { return solve(right).first; }
    /// Of functions of the solution, given as columns: how each depends on the right side, and on where the start was.
    [[nodiscard]] std::pair<Columns, Columns> Influences(const Columns& functions) const { return solve(functions); }

private:
    [[nodiscard]] std::pair<Columns, Columns> solve(const Columns& right) const;

    Eigen::SimplicialLDLT<Sparse> m_factor;
    Sparse m_anchors;
};

/// Pairs whose boxes overlap, in ascending order of the second.
[[nodiscard]] std::vector<ScanPair> OverlappingPairs(std::span<const ScanInFrame> scans);
/// Matches of pair after pair, side by side, but of pairs that hardly have any. Of more than 32 scans the optimisation
/// draws fewer points where they have many partners. As many times fewer are looked at here, so that a draw counts a
/// point with the same variance as ever; a pair that hardly overlaps is looked at more closely.
/// @param uiSamples  that the optimisation draws of a pair
/// @param use  is given the number of the pair, its matches and the step; writes only what belongs to the pair
void ForEachPairOfMatches(std::span<const ScanInFrame> scans, const std::vector<Moved>& moved,
                          const std::vector<ScanPair>& pairs, unsigned uiSamples, const Group& group,
                          const std::function<void(std::size_t, const std::vector<Match>&, std::size_t)>& use);

} // namespace prereg::jointfit
