// SPDX-License-Identifier: MIT
#include "zorvan/scans/meshsampling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace Zorvan {

namespace {

// Of the plastic number, the root of x^3 = x + 1: steps of 1/x and 1/x^2 leave no gaps and no clusters in a square.
constexpr double dStepU = 0.7548776662466927;
constexpr double dStepV = 0.5698402909980532;

using Vector = std::array<double, 3>;

Vector toDouble(const kdtree::Vector<3>& p) { return {p.x, p.y, p.z}; }

Vector minus(const Vector& a, const Vector& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }

/// A triangle in double, so that neither areas nor corners of large meshes overflow.
struct Triangle
{
    Vector corner;
    Vector u; ///< the two edges from the corner
    Vector v;
    Vector normal; ///< of twice the area's length
    double dArea = 0.0;

    Triangle(const Scan& mesh, const Face& face)
        : corner(toDouble(mesh.points[face[0]])),
          u(minus(toDouble(mesh.points[face[1]]), corner)),
          v(minus(toDouble(mesh.points[face[2]]), corner)),
          normal{u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]}
    {
        const double area = 0.5 * std::hypot(normal[0], normal[1], normal[2]);
        dArea = std::isfinite(area) ? area : 0.0;
    }

    [[nodiscard]] kdtree::Vector<3> At(double a, double b) const
    {
        const auto coordinate = [&](std::size_t i) { return static_cast<float>(corner[i] + a * u[i] + b * v[i]); };
        return {coordinate(0), coordinate(1), coordinate(2)};
    }

    [[nodiscard]] kdtree::Vector<3> UnitNormal() const
    {
        const auto coordinate = [&](std::size_t i) { return static_cast<float>(0.5 * normal[i] / dArea); };
        return {coordinate(0), coordinate(1), coordinate(2)};
    }
};

double areaOf(const Scan& mesh)
{
    double area = 0.0;
    for (const Face& face : mesh.faces) {
        for (const auto corner : face)
            if (corner >= mesh.points.size()) throw std::invalid_argument("a face names a point that is not there");
        area += Triangle(mesh, face).dArea;
    }
    return area;
}

/// The i-th point of the sequence, folded along the diagonal of the square into the triangle.
kdtree::Vector<3> pointOf(const Triangle& triangle, std::size_t i)
{
    const double number = static_cast<double>(i);
    const double a = std::fmod(0.5 + dStepU * number, 1.0);
    const double b = std::fmod(0.5 + dStepV * number, 1.0);
    return a + b <= 1.0 ? triangle.At(a, b) : triangle.At(1.0 - a, 1.0 - b);
}

} // namespace

MeshSamples SampleMesh(const Scan& mesh, double dGrid, std::size_t uiMost)
{
    if (!(dGrid > 0.0) || !std::isfinite(dGrid)) throw std::invalid_argument("the grid has to be positive and finite");
    MeshSamples samples;
    samples.dArea = areaOf(mesh);
    if (!(samples.dArea > 0.0) || !std::isfinite(samples.dArea) || uiMost == 0) return samples;
    const double wanted = samples.dArea / dGrid / dGrid;
    const double count = std::max(1.0, std::min(std::floor(wanted), static_cast<double>(uiMost)));
    samples.dGrid = std::max(dGrid, std::sqrt(samples.dArea / count));
    const double share = samples.dArea / count;

    double passed = 0.0; // area of the faces so far
    for (const Face& face : mesh.faces) {
        const Triangle triangle(mesh, face);
        passed += triangle.dArea;
        // Half a share ahead, so that rounding of the sum can neither lose the last point nor add one.
        // The sequence goes on from face to face: begun anew in each, it would put all points of a fan of needles side
        // by side.
        while (passed > (static_cast<double>(samples.points.size()) + 0.5) * share) {
            samples.points.push_back(pointOf(triangle, samples.points.size()));
            samples.normals.push_back(triangle.UnitNormal());
        }
    }
    return samples;
}

} // namespace Zorvan
