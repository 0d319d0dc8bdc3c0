// SPDX-License-Identifier: MIT
#include "zorvan/numerics/cnlssolver.h"

#include "zorvan/numerics/clpsolver.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"Zorvanlib.NLSSolver");

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double onThePlane = 10.0 * epsilon;
constexpr double margin = 100.0 * epsilon;

// Signed distance from x along d to the plane of row i, negative ahead. Infinite or NaN along the plane.
double stepToPlane(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, Eigen::Index i, const Eigen::VectorXd& x,
                   const Eigen::VectorXd& d)
{
    return (A.row(i).dot(x) - b(i)) / A.row(i).dot(d);
}

} // namespace

// The solution of the linear programme is not taken as a start: the iteration goes on from the infeasible one, and only
// `cutBack` deals with it.
bool CNLSSolver::isFeasible(Inequalities limits) const
{
    shrinkConstraints(limits.A, limits.b, margin);
    CLPSolver solver(limits.A, limits.b, Eigen::VectorXd::Constant(limits.A.cols(), -1.0));
    const bool hasSolution = solver.Run();
    const char* const function = "Zorvan::CNLSSolver::run";
    if (hasSolution)
        logger.Info({L"(NLS) constructed initial feasible solution", __FILE__, __LINE__, function});
    else if (solver.GetStatus() == LPInfeasible)
        logger.Info({L"(NLS) infeasible constraints detected", __FILE__, __LINE__, function});
    return hasSolution;
}

bool CNLSSolver::checkConstraints(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& x) const
{
    if (b.size() == 0) return true;
    const Eigen::VectorXd y = A * x;
    return !(y.array() > b.array()).any();
}

void CNLSSolver::shrinkConstraints(const Eigen::MatrixXd& A, Eigen::VectorXd& b, double amount) const
{
    for (Eigen::Index i = 0; i < b.size(); ++i) {
        const double length = A.row(i).norm();
        b(i) = (b(i) / length - amount) * length;
    }
}

Eigen::VectorXd CNLSSolver::cutBack(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& x,
                                    const Eigen::VectorXd& h, bool second) const
{
    // A step of length zero has no direction: no plane qualifies, and it comes back as it is.
    const Eigen::VectorXd direction = h / h.norm();
    Eigen::Index nearest = -1;
    double distance = infinity;
    for (Eigen::Index i = 0; i < b.size(); ++i) {
        const double t = stepToPlane(A, b, i, x, direction);
        const Eigen::VectorXd hit = x - t * direction;
        if (!((hit - x).dot(direction) >= 0.0) || !(std::abs(t) < distance)) continue;
        distance = std::abs(t);
        nearest = i;
    }
    if (!second && distance < onThePlane) {
        const Eigen::VectorXd normal = A.row(nearest).transpose().normalized();
        return cutBack(A, b, x, h - h.dot(normal) * normal, true);
    }
    if (h.norm() > distance) return distance * direction;
    return h;
}

void CNLSSolver::distanceToConstraints(const Eigen::MatrixXd& A, const Eigen::VectorXd& b, const Eigen::VectorXd& x,
                                       const Eigen::VectorXd& d, double& backward, double& forward) const
{
    backward = infinity;
    forward = infinity;
    for (Eigen::Index i = 0; i < b.size(); ++i) {
        const Eigen::VectorXd way = (x - stepToPlane(A, b, i, x, d) * d) - x;
        double& side = way.dot(d) >= 0.0 ? forward : backward;
        side = std::min(side, way.norm());
    }
}

} // namespace Zorvan
