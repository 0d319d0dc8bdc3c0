// SPDX-License-Identifier: MIT
#include "zorvan/workflow/primitivefit.h"

#include "zorvan/numerics/citerativeconefit.h"
#include "zorvan/numerics/citerativecylinderfit.h"
#include "zorvan/numerics/citerativespherefit.h"
#include "zorvan/workflow/primitivestart.h"

#include <Eigen/Geometry>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <utility>

namespace prereg {

namespace {

using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using FloatPoints = std::vector<std::array<float, 3>>;
using Zorvan::CIterativeConeFit;
using Zorvan::CIterativeCylinderFit;
using Zorvan::CIterativeSphereFit;

constexpr double dNoPivot = 1e-12; // smaller: the scan leaves a parameter open
constexpr double dFlat = 1e4;      // radii to the extent of the scan: beyond, a plane fits as well
constexpr double dStep = 1e-3;     // of the parameters, for derivatives of the properties

Vector3d toEigen(const kdtree::Vector<3>& v) { return {v.x, v.y, v.z}; }

std::array<float, 3> toFloats(const Vector3d& v)
{
    return {static_cast<float>(v.x()), static_cast<float>(v.y()), static_cast<float>(v.z())};
}

/// The frame in which the fit runs: x points from its origin to the middle of the scan, along the normal there.
struct Frame
{
    Vector3d origin;
    Eigen::Matrix3d rotation; ///< to the frame

    [[nodiscard]] Vector3d ToFrame(const Vector3d& p) const { return rotation * (p - origin); }
    [[nodiscard]] Vector3d FromFrame(const Vector3d& p) const { return rotation.transpose() * p + origin; }
};

// As far off the surface as its centre or axis is behind it. Scans of holes have their normals inward: the frame stands
// off on the side away from the axis for them too.
Frame frameFor(const Zorvan::SurfelScan& scan, const PrimitiveStart& start)
{
    Vector3d middle = Vector3d::Zero();
    for (const auto& p : scan.points) middle += toEigen(p) / static_cast<double>(scan.points.size());
    std::size_t nearest = 0;
    const auto off = [&](std::size_t i) { return (toEigen(scan.points[i]) - middle).squaredNorm(); };
    for (std::size_t i = 1; i < scan.points.size(); ++i) {
        if (off(i) < off(nearest)) nearest = i;
    }
    const Vector3d p = toEigen(scan.points[nearest]);
    Vector3d outward = toEigen(scan.normals[nearest]);
    if (outward.dot(p - start.center) < 0.0) outward = -outward;
    const Vector3d across = outward.unitOrthogonal();
    Eigen::Matrix3d rotation;
    rotation << -outward, across, across.cross(outward);
    return {p + start.dRadius * outward, rotation.transpose()};
}

CIterativeSphereFit begin(CIterativeSphereFit* /*kind*/, const FloatPoints& points, const Frame& frame,
                          const PrimitiveStart& start)
{
    CIterativeSphereFit fit(points.data(), points.data(), points.size(), VectorXd::Ones(4));
    fit.SetParams(frame.ToFrame(start.center), start.dRadius);
    return fit;
}

CIterativeCylinderFit begin(CIterativeCylinderFit* /*kind*/, const FloatPoints& points, const Frame& frame,
                            const PrimitiveStart& start)
{
    CIterativeCylinderFit fit(points.data(), points.data(), points.size(), VectorXd::Ones(5));
    fit.SetParams(frame.ToFrame(start.center), frame.rotation * start.axis, start.dRadius);
    return fit;
}

CIterativeConeFit begin(CIterativeConeFit* /*kind*/, const FloatPoints& points, const Frame& frame,
                        const PrimitiveStart& start)
{
    CIterativeConeFit fit(points.data(), points.data(), points.size(), VectorXd::Ones(6));
    const Vector3d axis = start.center - start.apex;
    fit.SetParams(frame.ToFrame(start.center), frame.rotation * axis, -1.0, start.dHalfAngle);
    return fit;
}

PrimitiveProperty property(const char* name, const VectorXd& value, bool isLength = true)
{
    return {name, isLength, value, {}};
}

VectorXd number(double value) { return VectorXd::Constant(1, value); }

std::vector<PrimitiveProperty> describe(const CIterativeSphereFit& fit, const Frame& frame)
{
    return {property("radius", number(fit.GetRadius())), property("centre", frame.FromFrame(fit.GetCenter()))};
}

std::vector<PrimitiveProperty> describe(const CIterativeCylinderFit& fit, const Frame& frame)
{
    return {property("radius", number(fit.GetRadius())),
            property("point on axis", frame.FromFrame(fit.GetPointOnAxis())),
            property("axis", frame.rotation.transpose() * fit.GetAxisDirection(), false)};
}

std::vector<PrimitiveProperty> describe(const CIterativeConeFit& fit, const Frame& frame)
{
    return {property("half angle", number(fit.GetApexAngle() * 180.0 / std::numbers::pi), false),
            property("apex", frame.FromFrame(fit.GetApex())),
            property("axis", frame.rotation.transpose() * fit.GetAxisDirection(), false)};
}

void addEnds(const CIterativeSphereFit&, const Frame&, PrimitiveFit&) {}

void addEnds(const CIterativeCylinderFit& fit, const Frame& frame, PrimitiveFit& result)
{
    const auto [lower, upper] = fit.GetLowerAndUpperEnd();
    result.properties.push_back(property("lower end", frame.FromFrame(lower)));
    result.properties.push_back(property("upper end", frame.FromFrame(upper)));
}

void addEnds(const CIterativeConeFit& fit, const Frame& frame, PrimitiveFit& result)
{
    const auto [lower, upper] = fit.GetLowerAndUpperEnd();
    const auto [atLower, atUpper] = fit.GetLowerAndUpperRadius();
    result.properties.push_back(property("lower end", frame.FromFrame(lower)));
    result.properties.push_back(property("radius at lower end", number(atLower)));
    result.properties.push_back(property("upper end", frame.FromFrame(upper)));
    result.properties.push_back(property("radius at upper end", number(atUpper)));
}

template <typename Fit>
Eigen::Index curvatureOf(const Fit& fit)
{
    return fit.GetParams().size() - 1;
}

/// @param radius  0: it is free
template <typename Fit>
void fixRadius(Fit& fit, double radius)
{
    if (radius <= 0.0) return;
    (void)fit.GetObjectiveFunction().AddEquality(static_cast<int>(curvatureOf(fit)), 1.0 / radius);
}

/// Derivatives of one property by all parameters, on a fit without points.
template <typename Fit>
MatrixXd derivativesOf(const Fit& fit, const Frame& frame, std::size_t which)
{
    Fit probe(nullptr, nullptr, 0, fit.GetParams());
    const Eigen::Index last = curvatureOf(fit);
    MatrixXd derivatives;
    for (Eigen::Index i = 0; i <= last; ++i) {
        const double kappa = fit.GetParams()(last);
        const double step = dStep * (i == 0 ? 1.0 / std::abs(kappa) : i == last ? kappa : 1.0);
        const auto valueAt = [&](double offset) {
            probe.SetParams(fit.GetParams() + offset * VectorXd::Unit(last + 1, i));
            return describe(probe, frame)[which].value;
        };
        const VectorXd column = (valueAt(step) - valueAt(-step)) / (2.0 * step);
        derivatives.conservativeResize(column.size(), last + 1);
        derivatives.col(i) = column;
    }
    return derivatives;
}

template <typename Fit>
void addProperties(Fit& fit, const Frame& frame, double fixedRadius, PrimitiveFit& result)
{
    fixRadius(fit, fixedRadius); // the success set it free; a fixed radius has no deviation
    auto& objective = fit.GetObjectiveFunction();
    const auto free = static_cast<double>(objective.GetFreeVariablesIndices().size());
    const double numMore = static_cast<double>(result.residuals.size()) - free;
    const double variance = result.dRmse * result.dRmse * static_cast<double>(result.residuals.size()) / numMore;
    const MatrixXd covariance = variance * objective.GetCovariance(fit.GetParams(), dNoPivot);
    result.properties = describe(fit, frame);
    for (std::size_t i = 0; i < result.properties.size(); ++i) {
        const MatrixXd J = derivativesOf(fit, frame, i);
        result.properties[i].deviation = (J * covariance * J.transpose()).diagonal().cwiseMax(0.0).cwiseSqrt();
    }
    addEnds(fit, frame, result);
}

double extentOf(const Zorvan::SurfelScan& scan)
{
    double extent = 0.0;
    for (const auto& p : scan.points) extent = std::max(extent, (toEigen(p) - toEigen(scan.points[0])).norm());
    return extent;
}

template <typename Fit>
PrimitiveFit runOnce(const Zorvan::SurfelScan& scan, PrimitiveStart start, double fixedRadius)
{
    PrimitiveFit result;
    if (!start.IsUsable()) return result;
    if (fixedRadius > 0.0) start.dRadius = fixedRadius;
    const Frame frame = frameFor(scan, start);
    FloatPoints points;
    for (const auto& p : scan.points) points.push_back(toFloats(frame.ToFrame(toEigen(p))));
    Fit fit = begin(static_cast<Fit*>(nullptr), points, frame, start);
    fixRadius(fit, fixedRadius);
    result.eResult = fit.Run();
    if (!(fit.GetParams()(curvatureOf(fit)) * dFlat * extentOf(scan) > 1.0)) return {};
    if (!result.IsFound()) return result;

    const VectorXd errors = fit.GetObjectiveFunction().Error(fit.GetParams());
    result.residuals.assign(errors.begin(), errors.end());
    result.dRmse = errors.norm() / std::sqrt(static_cast<double>(errors.size()));
    addProperties(fit, frame, fixedRadius, result);
    return result;
}

// A limit that the free fit breaks is the best radius there is. Fixing it there takes a dozen steps; along a limit as
// an inequality the solver creeps on for more than it is given.
template <typename Fit>
PrimitiveFit run(const Zorvan::SurfelScan& scan, const PrimitiveStart& start, const RadiusLimits& limits)
{
    if (limits.dLow == limits.dHigh) return runOnce<Fit>(scan, start, limits.dLow);
    PrimitiveFit free = runOnce<Fit>(scan, start, 0.0);
    if (!free.IsFound()) return free;
    const double radius = free.properties.front().value(0);
    const double nearest = std::clamp(radius, limits.dLow, limits.dHigh);
    return nearest == radius ? free : runOnce<Fit>(scan, start, nearest);
}

constexpr std::array<std::string_view, 3> names{"sphere", "cylinder", "cone"};

PrimitiveFit runFor(EPrimitive ePrimitive, const Zorvan::SurfelScan& scan, const RadiusLimits& limits)
{
    const Zorvan::Scan surface{scan.points, scan.normals, {}};
    switch (ePrimitive) {
    case EPrimitive::Sphere:
        return run<CIterativeSphereFit>(scan, StartOfSphere(surface), limits);
    case EPrimitive::Cylinder:
        return run<CIterativeCylinderFit>(scan, StartOfCylinder(surface), limits);
    default:
        return run<CIterativeConeFit>(scan, StartOfCone(surface), {});
    }
}

} // namespace

std::string PrimitiveName(EPrimitive ePrimitive) { return std::string(names[static_cast<std::size_t>(ePrimitive)]); }

std::optional<EPrimitive> PrimitiveNamed(std::string_view name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<EPrimitive>(found - names.begin());
}

PrimitiveFit FitPrimitive(const Zorvan::SurfelScan& scan, EPrimitive ePrimitive, const RadiusLimits& limits)
{
    PrimitiveFit fit = runFor(ePrimitive, scan, limits);
    fit.ePrimitive = ePrimitive;
    return fit;
}

} // namespace prereg
