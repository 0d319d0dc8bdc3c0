// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/workflow/export.h"
#include "zorvan/workflow/session.h"

#include <string>

namespace prereg {

// Both stand in the journal of the session, and it can be taken back (`CSession::Undone`).

/// The session without one of its scans. All others keep their poses, their clusters and the frames of these.
/// @throws std::invalid_argument for a name that it does not have, and for its only scan
[[nodiscard]] ZORVAN_WORKFLOW_API CSession WithoutScan(const CSession& session, const std::string& name,
                                                       const CSession::Group& group, const JournalStamp& stamp = {});

/// The same with the scan in a cluster of its own, where the next registration looks for its place anew.
/// @throws std::invalid_argument for a name that it does not have
[[nodiscard]] ZORVAN_WORKFLOW_API CSession WithScanApart(const CSession& session, const std::string& name,
                                                         const CSession::Group& group, const JournalStamp& stamp = {});

/// A scan that takes no part for a while.
struct ScanAside
{
    CSession::ScanFile file;
    CClusterRegistration::PointSet set;
    CTrafo start; ///< what the caller gave
};

/// Takes scans out, to come back by `CSession::AddAgain`; nothing of it is noted. All others keep their poses, their
/// clusters and the frames of these.
/// @param names  identifiers of some of its scans, not of all
[[nodiscard]] std::vector<ScanAside> SetAside(CSession& session, const std::vector<UniversalUniqueID>& names,
                                              const CSession::Group& group);

} // namespace prereg
