// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/scan.h"
#include "zorvan/workflow/export.h"

#include <Eigen/Core>

namespace prereg {

/// A primitive before it is fitted, and where to look at it from. Not finite where the normals leave it open.
struct ZORVAN_WORKFLOW_API PrimitiveStart
{
    Eigen::Vector3d center = Eigen::Vector3d::Zero(); ///< of the sphere; of the axis beside the middle of the scan
    Eigen::Vector3d axis = Eigen::Vector3d::UnitZ();  ///< a cone opens along it
    double dRadius = 0.0;                             ///< at the centre
    Eigen::Vector3d apex = Eigen::Vector3d::Zero();   ///< of a cone
    double dHalfAngle = 0.0;                          ///< of a cone, radians

    [[nodiscard]] bool IsUsable() const;
};

/// The place that is nearest to the lines along all normals.
[[nodiscard]] ZORVAN_WORKFLOW_API PrimitiveStart StartOfSphere(const Zorvan::Scan& scan);
/// The direction that is most at right angles to all normals, and the place that is nearest to their lines beside it.
[[nodiscard]] ZORVAN_WORKFLOW_API PrimitiveStart StartOfCylinder(const Zorvan::Scan& scan);
/// The direction to which all normals are most equally inclined, and the place where their tangent planes meet.
[[nodiscard]] ZORVAN_WORKFLOW_API PrimitiveStart StartOfCone(const Zorvan::Scan& scan);

} // namespace prereg
