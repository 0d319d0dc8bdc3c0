// SPDX-License-Identifier: MIT
#include "zorvan/verdict/ellipsoidtwins.h"

#include "zorvan/verdict/verdictlimits.h"

#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace prereg {

namespace {

using Vector3 = kdtree::Vector<3>;
using Vector10d = Eigen::Matrix<double, 10, 1>;
using Matrix10d = Eigen::Matrix<double, 10, 10>;
using Points = std::vector<Eigen::Vector3d>;

Eigen::Vector3d toEigen(const Vector3& v) { return {v.x, v.y, v.z}; }

Vector3 fromEigen(const Eigen::Vector3d& v)
{
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

/// Of a quadric: the squares, the products, the coordinates, one.
Vector10d termsAt(const Eigen::Vector3d& p)
{
    Vector10d terms;
    terms << p.cwiseProduct(p), p.x() * p.y(), p.x() * p.z(), p.y() * p.z(), p, 1.0;
    return terms;
}

/// How the terms grow along one coordinate: all others stay as they are.
struct Slopes
{
    std::array<Eigen::Index, 4> terms;
    Eigen::Vector4d values;
};

std::array<Slopes, 3> slopesAt(const Eigen::Vector3d& p)
{
    return {{{{0, 3, 4, 6}, {2.0 * p.x(), p.y(), p.z(), 1.0}},
             {{1, 3, 5, 7}, {2.0 * p.y(), p.x(), p.z(), 1.0}},
             {{2, 4, 5, 8}, {2.0 * p.z(), p.x(), p.y(), 1.0}}}};
}

/// To first order: the value over its slope.
double distance(const Vector10d& quadric, const Eigen::Vector3d& p)
{
    double squares = 0.0;
    for (const Slopes& slopes : slopesAt(p)) {
        double slope = 0.0;
        for (std::size_t i = 0; i < 4; ++i)
            slope += quadric(slopes.terms[i]) * slopes.values(static_cast<Eigen::Index>(i));
        squares += slope * slope;
    }
    return std::abs(quadric.dot(termsAt(p))) / std::sqrt(squares);
}

/// Least squares of distances to first order: Taubin, PAMI 13 (1991).
Vector10d fitQuadric(const Points& points)
{
    constexpr double dRidge = 1e-12; // keeps exact surface from being singular
    Matrix10d values = Matrix10d::Zero();
    Matrix10d slopes = Matrix10d::Zero();
    for (const Eigen::Vector3d& p : points) {
        const Vector10d terms = termsAt(p);
        values += terms * terms.transpose();
        for (const Slopes& along : slopesAt(p))
            for (std::size_t i = 0; i < 4; ++i)
                for (std::size_t j = 0; j < 4; ++j)
                    slopes(along.terms[i], along.terms[j]) +=
                        along.values(static_cast<Eigen::Index>(i)) * along.values(static_cast<Eigen::Index>(j));
    }
    values += dRidge * values.trace() * Matrix10d::Identity();
    return Eigen::GeneralizedSelfAdjointEigenSolver<Matrix10d>(slopes, values).eigenvectors().col(9);
}

/// Every n-th, so that some thousand are left.
Points thinned(const Points& all)
{
    constexpr std::size_t uiEnough = 1000; // for ten unknowns
    const std::size_t stride = std::max<std::size_t>(1, all.size() / uiEnough);
    Points points;
    for (std::size_t i = 0; i < all.size(); i += stride) points.push_back(all[i]);
    return points;
}

/// Fitted to what lies on it: openings and swells are left out.
Vector10d fitRobustly(const Points& points)
{
    constexpr int iRounds = 6;
    constexpr double dMedians = 3.0;
    Vector10d quadric = fitQuadric(points);
    std::vector<double> distances(points.size());
    for (int i = 0; i < iRounds; ++i) {
        const auto toQuadric = [&](const Eigen::Vector3d& p) { return distance(quadric, p); };
        std::transform(points.begin(), points.end(), distances.begin(), toQuadric);
        const auto middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
        std::nth_element(distances.begin(), middle, distances.end());
        const double limit = dMedians * *middle;
        Points near;
        near.reserve(points.size());
        std::copy_if(points.begin(), points.end(), std::back_inserter(near),
                     [&](const Eigen::Vector3d& p) { return toQuadric(p) <= limit; });
        quadric = fitQuadric(near);
    }
    return quadric;
}

CTrafo turnAbout(const Vector3& middle, const Vector3& axis, float angle)
{
    const CTrafo turn(axis, angle, Vector3());
    return turn.Translate(middle - turn.Rotate(middle));
}

/// A step to either side along an axis of the ellipsoid, or as far about it.
bool settleInDirection(const CPoseJudge& judge, const MatchedEllipsoid& ellipsoid, std::size_t direction, double step,
                       PoseTwin& twin)
{
    const Vector3& axis = ellipsoid.axes[direction % 3];
    bool isBetter = false;
    for (const double length : {-step, step}) {
        if (twin.counts.Contradictions() == 0) break;
        const CTrafo moved =
            direction < 3
                ? twin.pose.Translate(axis * static_cast<float>(length))
                : turnAbout(ellipsoid.middle, axis, static_cast<float>(length / ellipsoid.dRadius)) * twin.pose;
        const auto counts = judge.CountWithin(moved, twin.counts.Contradictions() - 1);
        if (!counts) continue;
        twin = {moved, *counts};
        isBetter = true;
    }
    return isBetter;
}

PoseTwin settled(const CPoseJudge& judge, const MatchedEllipsoid& ellipsoid, const CTrafo& pose)
{
    constexpr int iRounds = 2;
    constexpr std::size_t uiDirections = 6;
    PoseTwin twin{pose, judge.Count(pose)};
    for (const double pixels : {3.0, 1.5, 0.75, 0.4}) {
        bool isBetter = true;
        for (int round = 0; round < iRounds && isBetter; ++round) {
            isBetter = false;
            for (std::size_t direction = 0; direction < uiDirections; ++direction) {
                if (!IsTwinContradicted(twin.counts)) return twin;
                const double step = pixels * judge.GetPixelSize();
                isBetter = settleInDirection(judge, ellipsoid, direction, step, twin) || isBetter;
            }
        }
    }
    return twin;
}

} // namespace

std::optional<MatchedEllipsoid> FitEllipsoid(std::span<const CPoseJudge::PlacedSample> samples, double dLimit)
{
    Points points;
    for (const auto& sample : samples)
        if (sample.isMatched) points.push_back(toEigen(sample.point));
    if (points.size() < verdict::uiMinMatched) return std::nullopt;
    MatchedEllipsoid ellipsoid;
    Eigen::Vector3d middle = Eigen::Vector3d::Zero();
    for (const Eigen::Vector3d& p : points) middle += p / static_cast<double>(points.size());
    double sum = 0.0;
    for (const Eigen::Vector3d& p : points) sum += (p - middle).squaredNorm();
    ellipsoid.dRadius = std::sqrt(sum / static_cast<double>(points.size()));
    if (!(ellipsoid.dRadius > 0.0)) return std::nullopt;
    for (Eigen::Vector3d& p : points) p = (p - middle) / ellipsoid.dRadius;

    const Vector10d quadric = fitRobustly(thinned(points));
    Eigen::Matrix3d square = quadric.head<3>().asDiagonal();
    square(0, 1) = square(1, 0) = 0.5 * quadric(3);
    square(0, 2) = square(2, 0) = 0.5 * quadric(4);
    square(1, 2) = square(2, 1) = 0.5 * quadric(5);
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(square);
    const Eigen::Vector3d& bends = solver.eigenvalues();
    const bool isOpen = !(bends(0) * bends(2) > 0.0);
    if (isOpen || !(bends.cwiseAbs().minCoeff() > verdict::dFlattestEllipsoid * bends.cwiseAbs().maxCoeff()))
        return std::nullopt;
    const Eigen::Vector3d centre = -0.5 * square.inverse() * quadric.segment<3>(6);
    ellipsoid.middle = fromEigen(middle + ellipsoid.dRadius * centre);
    for (std::size_t k = 0; k < 3; ++k)
        ellipsoid.axes[k] = fromEigen(solver.eigenvectors().col(static_cast<Eigen::Index>(k)));
    ellipsoid.uiMatched = points.size();
    const double limit = dLimit / ellipsoid.dRadius;
    ellipsoid.uiOff = static_cast<std::size_t>(std::count_if(
        points.begin(), points.end(), [&](const Eigen::Vector3d& p) { return !(distance(quadric, p) <= limit); }));
    return ellipsoid;
}

std::vector<PoseTwin> FindEllipsoidTwins(const CPoseJudge& judge, const CTrafo& pose,
                                         std::span<const CPoseJudge::PlacedSample> samples)
{
    if (!judge.GetFix().HasImage() || !judge.GetFlt().HasImage()) return {};
    const auto ellipsoid = FitEllipsoid(samples, judge.GetMatchLimit());
    if (!ellipsoid) return {};
    if (static_cast<double>(ellipsoid->uiOff) > verdict::dTellingShare * static_cast<double>(ellipsoid->uiMatched))
        return {};
    std::vector<PoseTwin> twins;
    for (const Vector3& axis : ellipsoid->axes) {
        PoseTwin twin =
            settled(judge, *ellipsoid, turnAbout(ellipsoid->middle, axis, std::numbers::pi_v<float>) * pose);
        if (IsTwinContradicted(twin.counts)) continue;
        twin.counts.uiTelling = static_cast<unsigned>(ellipsoid->uiOff);
        twins.push_back(twin);
    }
    return twins;
}

} // namespace prereg
