// SPDX-License-Identifier: MIT
// Fits of simulated spheres, cylinders and cones, as a table of Markdown: errors against the truth beside the standard
// deviations that the covariance predicts, and the same problem through Ceres where it was found: the ratio of the
// RMSE and the processor time of both, problems built before. Times are medians of nine fits that alternate with those
// of Ceres, of three from 100,000 points on; a fit that takes a hundred times as long runs once.
//
//   primitive_fits [POINTS...]      (default 2000 200000)

#include "tests/support/simulatedprimitives.h"

#include "zorvan/numerics/citerativeconefit.h"
#include "zorvan/numerics/citerativecylinderfit.h"
#include "zorvan/numerics/citerativespherefit.h"

#ifdef ZORVAN_HAS_CERES
#include <ceres/ceres.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Eigen::Vector3d;
using Eigen::VectorXd;
using support::PrimitiveScan;
using support::ScanSetup;
using namespace Zorvan;

constexpr double radius = 5.0;
constexpr double length = 20.0;
constexpr double halfAngle = 0.3;
const Vector3d axis = Vector3d(0.3, -0.5, 1.0).normalized();
constexpr const char* onTheAxis = "on the axis";  // the cone's parameters then have no minimum
const Vector3d aside = Vector3d(0.2, -0.1, 0.15); // from the truth to the start

/// A unit vector from azimuth and polar angle, for numbers and for the dual numbers of Ceres.
template <typename T>
using Vector = Eigen::Matrix<T, 3, 1>;

template <typename T>
Vector<T> direction(const T& phi, const T& theta)
{
    using std::cos;
    using std::sin;
    return {cos(phi) * sin(theta), sin(phi) * sin(theta), cos(theta)};
}

/// The errors of the fits, a second time and independently, for any number type.
struct SphereError
{
    static constexpr int numParams = 4;
    template <typename T>
    static T Of(const Vector3d& q, const T* p)
    {
        const Vector<T> n = direction(p[1], p[2]);
        const Vector<T> d = q.cast<T>() - p[0] * n;
        return p[3] / 2.0 * d.dot(d) - d.dot(n);
    }
};

struct CylinderError
{
    static constexpr int numParams = 5;
    template <typename T>
    static T Of(const Vector3d& q, const T* p)
    {
        using std::cos;
        using std::sin;
        const Vector<T> n = direction(p[1], p[2]);
        const Vector<T> byTheta(cos(p[2]) * cos(p[1]), cos(p[2]) * sin(p[1]), -sin(p[2]));
        const Vector<T> byPhi(-sin(p[1]), cos(p[1]), T(0));
        const Vector<T> a = cos(p[3]) * byTheta + sin(p[3]) * byPhi;
        const Vector<T> d = q.cast<T>() - p[0] * n;
        return p[4] / 2.0 * a.cross(d).squaredNorm() - d.dot(n);
    }
};

struct ConeError
{
    static constexpr int numParams = 6;
    template <typename T>
    static T Of(const Vector3d& q, const T* p)
    {
        const Vector<T> n = direction(p[1], p[2]);
        const Vector<T> a = direction(p[3], p[4]);
        const T s = n.cross(a).squaredNorm();
        const Vector<T> d = q.cast<T>() - p[0] * n;
        const T u = d.dot(a);
        return (p[5] / 2.0 * (d.dot(d) * s - u * u) - d.dot(n) * s) / (p[5] * u * a.dot(n) + s);
    }
};

Vector3d toVector(const std::array<float, 3>& p) { return {p[0], p[1], p[2]}; }

template <typename Error>
double rmseOf(const PrimitiveScan& scan, const VectorXd& params)
{
    double sum = 0.0;
    for (const auto& p : scan.points) sum += std::pow(Error::template Of<double>(toVector(p), params.data()), 2);
    return std::sqrt(sum / static_cast<double>(scan.points.size()));
}

double secondsSince(std::clock_t start)
{
    return static_cast<double>(std::clock() - start) / static_cast<double>(CLOCKS_PER_SEC);
}

#ifdef ZORVAN_HAS_CERES
template <typename Error>
struct CeresError
{
    Vector3d q;
    template <typename T>
    bool operator()(const T* params, T* residual) const
    {
        residual[0] = Error::Of(q, params);
        return true;
    }
};

/// @return the seconds of the solution alone
template <typename Error>
double solveByCeres(const PrimitiveScan& scan, VectorXd& params)
{
    ceres::Problem problem;
    for (const auto& p : scan.points)
        problem.AddResidualBlock(
            new ceres::AutoDiffCostFunction<CeresError<Error>, 1, Error::numParams>(new CeresError<Error>{toVector(p)}),
            nullptr, params.data());
    ceres::Solver::Options options;
    options.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
    options.max_num_iterations = 1000;
    options.function_tolerance = 1e-12;
    options.logging_type = ceres::SILENT;
    ceres::Solver::Summary summary;
    const std::clock_t start = std::clock();
    ceres::Solve(options, &problem, &summary);
    return secondsSince(start);
}
#endif

struct Errors
{
    double radius; ///< of a cone: of its half angle, in mrad
    double deviation;
    double place; ///< of centre, axis beside the middle, or apex
    double axis;  ///< mrad
};

double offAxis(const Vector3d& p, const ScanSetup& setup) { return (p - setup.place).cross(axis).norm(); }

/// Standard deviation of the last parameter, the curvature.
template <typename Fit>
double curvatureDeviation(Fit& fit, double rmse)
{
    const auto last = fit.GetParams().size() - 1;
    return rmse * std::sqrt(fit.GetObjectiveFunction().GetCovariance(fit.GetParams(), 1e-12)(last, last));
}

Errors errorsOf(CIterativeSphereFit& fit, const ScanSetup& setup, double rmse)
{
    return {std::abs(fit.GetRadius() - radius), curvatureDeviation(fit, rmse) * radius * radius,
            (fit.GetCenter() - setup.place).norm(), 0.0};
}

Errors errorsOf(CIterativeCylinderFit& fit, const ScanSetup& setup, double rmse)
{
    return {std::abs(fit.GetRadius() - radius), curvatureDeviation(fit, rmse) * radius * radius,
            offAxis(fit.GetPointOnAxis(), setup), 1e3 * fit.GetAxisDirection().cross(axis).norm()};
}

Errors errorsOf(CIterativeConeFit& fit, const ScanSetup& setup, double rmse)
{
    const VectorXd& p = fit.GetParams();
    const auto angle = [](const VectorXd& q) {
        return std::acos(direction(q(1), q(2)).cross(direction(q(3), q(4))).norm());
    };
    VectorXd slope(6);
    for (int i = 0; i < 6; ++i)
        slope(i) = (angle(p + 1e-5 * VectorXd::Unit(6, i)) - angle(p - 1e-5 * VectorXd::Unit(6, i))) / 2e-5;
    const double variance = slope.dot(fit.GetObjectiveFunction().GetCovariance(p, 1e-12) * slope);
    const Vector3d apex = setup.place - radius / std::tan(halfAngle) * axis;
    return {1e3 * std::abs(fit.GetApexAngle() - halfAngle), 1e3 * rmse * std::sqrt(variance),
            (fit.GetApex() - apex).norm(), 1e3 * fit.GetAxisDirection().cross(axis).norm()};
}

void begin(CIterativeSphereFit& fit, const ScanSetup& setup) { fit.SetParams(setup.place + aside, 1.1 * radius); }
void begin(CIterativeCylinderFit& fit, const ScanSetup& setup)
{
    fit.SetParams(setup.place + aside, axis + 0.3 * aside, 1.1 * radius);
}
void begin(CIterativeConeFit& fit, const ScanSetup& setup)
{
    fit.SetParams(setup.place + aside, (axis + 0.3 * aside).normalized(), -radius / std::tan(halfAngle),
                  1.1 * halfAngle);
}

double medianOf(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

std::size_t repetitionsOf(const char* origin, std::size_t count)
{
    if (std::string_view(origin) == onTheAxis) return 1;
    return count < 100000 ? 9 : 3;
}

template <typename Fit, typename Error>
void printRow(const char* name, const char* origin, const ScanSetup& setup, const PrimitiveScan& scan)
{
    Fit fit(scan.points.data(), scan.normals.data(), scan.points.size(), VectorXd::Ones(Error::numParams));
    VectorXd other;
    CNLSSolver::EResult result{};
    std::vector<double> ours;
    std::vector<double> theirs;
    while (ours.size() < repetitionsOf(origin, scan.points.size())) {
        begin(fit, setup);
        other = fit.GetParams();
        const std::clock_t start = std::clock();
        result = fit.Run();
        ours.push_back(secondsSince(start));
#ifdef ZORVAN_HAS_CERES
        theirs.push_back(solveByCeres<Error>(scan, other));
#endif
    }
    const double seconds = medianOf(std::move(ours));
    const double rmse = rmseOf<Error>(scan, fit.GetParams());
    const Errors errors = errorsOf(fit, setup, rmse);
    std::printf("| %s, %zu | %g | %g | %s | %d | %.2g (%.2g) | %.2g | %.2g | %.1f |", name, scan.points.size(),
                setup.degrees, setup.noise, origin, result, errors.radius, errors.deviation, errors.place, errors.axis,
                1e3 * seconds);
#ifdef ZORVAN_HAS_CERES
    const double ceres = medianOf(std::move(theirs));
    std::printf(" %.1f | %.1f | %.2g |", 1e3 * ceres, ceres / seconds, rmse / rmseOf<Error>(scan, other) - 1.0);
#endif
    std::printf("\n");
    std::fflush(stdout);
}

void printRows(const char* origin, const ScanSetup& setup)
{
    printRow<CIterativeSphereFit, SphereError>("sphere", origin, setup, support::SimulateSphere(setup, radius));
    printRow<CIterativeCylinderFit, CylinderError>("cylinder", origin, setup,
                                                   support::SimulateCylinder(setup, radius, length));
    printRow<CIterativeConeFit, ConeError>("cone", origin, setup,
                                           support::SimulateCone(setup, radius, length, halfAngle));
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::size_t> sizes;
    for (int i = 1; i < argc; ++i) sizes.push_back(std::strtoul(argv[i], nullptr, 10));
    if (sizes.empty()) sizes = {2000, 200000};
    std::puts("| fit, points | sector | noise | origin | code | radius or angle (deviation) | place | axis | ms |"
#ifdef ZORVAN_HAS_CERES
              " Ceres, ms | times | RMSE against Ceres |\n|---|---|---|---|---|---|---|---|---|---|---|---|"
#else
              "\n|---|---|---|---|---|---|---|---|---|"
#endif
    );
    for (const std::size_t count : sizes) {
        for (const double degrees : {360.0, 180.0, 60.0}) {
            for (const double noise : {0.0, 0.01, 0.05})
                printRows("outside", {Vector3d(30, 10, -20), axis, degrees, count, noise});
        }
        printRows("inside", {Vector3d(1, 2, 0.5), axis, 180.0, count, 0.01});
        printRows(onTheAxis, {0.5 * length * axis, axis, 180.0, count, 0.01});
    }
    return 0;
}
