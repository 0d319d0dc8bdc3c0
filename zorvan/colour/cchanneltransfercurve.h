// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/cnaturalspline.h"
#include "zorvan/platform/export.h"

#include <cstddef>
#include <span>
#include <vector>

namespace Zorvan {

/// Maps the values of a colour channel, from `Lo` to `Hi`, to new ones: a spline through control points.
///
///     CChannelTransferCurve curve(0, 255, 2);  // the identity
///     curve.AddControlPoint(128, 160);         // brighter in the middle
///     pixel = curve(pixel);
///
/// A curve starts as the identity. Belongs to one thread.
class ZORVAN_API CChannelTransferCurve
{
public:
    struct ControlPoint
    {
        double dInput = 0.0;
        double dOutput = 0.0;
    };

    /// Over 0 .. 1, of degree 1.
    CChannelTransferCurve() : CChannelTransferCurve(0.0, 1.0, 1) {}
    /// @param degree  of the spline, held between 1 and 3
    CChannelTransferCurve(double lo, double hi, int degree);

    /// The new value, from `Lo` to `Hi`: that of the spline; below the first and above the last control point the
    /// output of that point, which is not held in the range. A curve without points holds x in the range. NaN stays
    /// NaN.
    [[nodiscard]] double operator()(double x) const;
    [[nodiscard]] double operator*(double x) const { return (*this)(x); }

    /// Call `Update` after a change. The index `Size()` gives a place behind the points that belongs to no curve.
    /// @throws std::invalid_argument "invalid control point index" above that
    [[nodiscard]] ControlPoint& operator[](unsigned int index);
    [[nodiscard]] const ControlPoint& operator[](unsigned int index) const;

    /// @return false, and nothing changes, unless both values lie from `Lo` to `Hi`
    bool AddControlPoint(double x, double y);
    /// Adds those points that `AddControlPoint` would take. The spline is built once and not once a point.
    void AddControlPoints(std::span<const ControlPoint> points);

    /// Removes all points.
    void Clear();
    /// Back to the identity.
    void Reset();
    /// Sorts the points by input, equal ones in the order in which they came, and builds the spline.
    void Update();

    [[nodiscard]] std::size_t Size() const { return m_controlPoints.size(); }
    [[nodiscard]] int GetDegree() const { return m_degree; }
    [[nodiscard]] double Lo() const { return m_lo; }
    [[nodiscard]] double Hi() const { return m_hi; }
    [[nodiscard]] const CNaturalSpline& GetSpline() const { return m_spline; }

    /// Kept as it is given; the spline takes it held between 1 and 3.
    void SetDegree(int degree);

    /// A straight line that is steeper by 1 / (1 - contrast) and has both ends cut off.
    /// @param contrast    held between 0 and 0.99
    /// @param inLo, inHi  where the line has the slope 1 at contrast 0; NaN, or outside the range: its end
    void SetContrast(double contrast, double inLo, double inHi);
    /// An S: steeper around the middle, flatter at both ends.
    /// @param contrast  0 is the identity, 1 a step; nothing happens outside
    /// @param keep      the flat ends keep a third of their slope instead of none
    void SetContrast(double contrast, bool keep);
    /// 32 points of the power function. A gamma of exactly 1 leaves the curve without points.
    void SetGammaCorrection(double gamma);

    /// 256 lines "input output" over the whole range. A file that cannot be opened is left alone.
    void RenderToCSVFile(const char* path) const;

private:
    [[nodiscard]] bool isInRange(double value) const { return value >= m_lo && value <= m_hi; }

    std::vector<ControlPoint> m_controlPoints;
    double m_lo;
    double m_hi;
    int m_degree;
    CNaturalSpline m_spline;
    ControlPoint m_behindLast; ///< what the index `Size()` refers to
};

} // namespace Zorvan
