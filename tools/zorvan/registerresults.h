#pragma once

#include "registrationtable.h"
#include "session.h"

#include <filesystem>
#include <string>

namespace tools {

/// Writes poses.json, merged.ply, report.html and session.zdoc into the folder, each whole or not at all; the session
/// last, so that it never tells of more than the others show. @throws CInputError
void WriteRegistration(const std::filesystem::path& folder, const CSession& session, const RegistrationTable& table);

/// A line a scan, by cluster, and one below in words; lengths in the unit of the files.
[[nodiscard]] std::string ToText(const RegistrationTable& table);

/// The one that merged.ply holds: the largest cluster, the primary one of several. Empty without scans.
[[nodiscard]] std::string MainCluster(const RegistrationTable& table);

} // namespace tools
