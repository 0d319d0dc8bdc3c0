// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/posesfile.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/registrationtable.h"
#include "zorvan/workflow/session.h"

#include <array>
#include <filesystem>
#include <string>

namespace prereg {

/// The files of a registration.
inline constexpr std::array<const char*, 4> resultFiles{"merged.ply", "poses.json", "report.html", "session.zdoc"};

/// Writes them into the folder, all or none, see `CStagingFolder`; the session last, so that it never tells of more
/// than the others show. @throws CInputError
ZORVAN_WORKFLOW_API void WriteRegistration(const std::filesystem::path& folder, const CSession& session,
                                           const RegistrationTable& table);

/// What poses.json holds: all clusters, the main one first, poses between the coordinates of the files.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::PosesFile ToPoses(const RegistrationTable& table);

/// A line a scan, by cluster, and one below in words; lengths in the unit of the files.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const RegistrationTable& table);

/// The one that merged.ply holds: the largest cluster, the primary one of several. Empty without scans.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string MainCluster(const RegistrationTable& table);

} // namespace prereg
