// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/vector.h"
#include "zorvan/runtime/cjobscheduler.h"
#include "zorvan/verdict/posecovariance.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/registrationtable.h"
#include "zorvan/workflow/session.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace prereg {

/// How well the pose of a scan is known in the frame of its cluster; see CJointCovariance.
struct PoseUncertainty
{
    std::size_t scan = 0;     ///< into the scans of the table
    kdtree::Vector<3> centre; ///< what turns are about: mean of the points, cluster coordinates (mm)
    Matrix6 covariance{};     ///< rotation vector (radians), then shift (mm); zeros for the scan that the others are
                              ///< measured against
};

/// Of every scan that lies with others, in the order of the table; the first of a cluster is what its others are
/// measured against. Makes sense for poses that were optimised together.
/// @param table  of the session, as LookAtPoses made it
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<PoseUncertainty>
JointUncertainties(const CSession& session, const RegistrationTable& table,
                   const std::shared_ptr<Zorvan::CJobScheduler::Group>& group = nullptr);

} // namespace prereg
