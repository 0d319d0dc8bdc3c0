// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/numerics/cnlssolver.h"
#include "zorvan/scans/scanreader.h"
#include "zorvan/workflow/export.h"

#include <Eigen/Core>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace prereg {

enum class EPrimitive
{
    Sphere,
    Cylinder,
    Cone
};

/// "sphere", "cylinder" or "cone".
[[nodiscard]] ZORVAN_WORKFLOW_API std::string PrimitiveName(EPrimitive ePrimitive);
/// Nothing for any other word.
[[nodiscard]] ZORVAN_WORKFLOW_API std::optional<EPrimitive> PrimitiveNamed(std::string_view name);

/// What the user knows of the radius, in millimetres; both ends equal: it is fixed.
struct RadiusLimits
{
    double dLow = 0.0; ///< 0: nothing is known
    double dHigh = 0.0;
};

/// One property of the primitive that was fitted: a number or a point, with a standard deviation for each coordinate.
struct PrimitiveProperty
{
    std::string name;
    bool isLength = true; ///< millimetres; else a direction, or degrees
    Eigen::VectorXd value;
    Eigen::VectorXd deviation; ///< empty where none is known: the ends depend on where the scan stops
};

struct PrimitiveFit
{
    EPrimitive ePrimitive = EPrimitive::Sphere;
    Zorvan::CNLSSolver::EResult eResult = Zorvan::CNLSSolver::LSSolutionFailed;
    double dRmse = 0.0;            ///< mm
    std::vector<double> residuals; ///< mm, one for each point, positive outside
    std::vector<PrimitiveProperty> properties;

    [[nodiscard]] bool IsFound() const { return eResult <= Zorvan::CNLSSolver::SmallStepSize; }
};

/// Fits a primitive to points and normals wherever they lie: the start comes from all normals at once, and the fit runs
/// in a frame of its own, whose origin stands off the middle of the scan. There the parameters are well apart, which
/// they are not for an axis near the origin of the scan.
/// @param limits  of the radius of sphere or cylinder; a cone takes none
/// @return        not found when the normals leave the primitive open, as those of a plane do
[[nodiscard]] ZORVAN_WORKFLOW_API PrimitiveFit FitPrimitive(const Zorvan::SurfelScan& scan, EPrimitive ePrimitive,
                                                            const RadiusLimits& limits);

} // namespace prereg
