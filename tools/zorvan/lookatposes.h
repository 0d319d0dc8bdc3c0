#pragma once

#include "registrationtable.h"
#include "session.h"

namespace tools {

/// How well the scans of a session fit where they are: overlap and residual of every pair in one cluster, and the slip
/// of each scan against the first one of its cluster. The poses stay as they are.
/// @param group  does the work; see the multi-object ComputeICPRegistration
[[nodiscard]] RegistrationTable LookAtPoses(const CSession& session, const CSession::Group& group);

} // namespace tools
