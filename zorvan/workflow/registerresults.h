// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/scans/posesfile.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/registrationtable.h"
#include "zorvan/workflow/session.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace prereg {

/// The files of a registration.
inline constexpr std::array<const char*, 4> resultFiles{"merged.ply", "poses.json", "report.html", "session.zdoc"};

/// What else a caller wants beside them.
struct MoreResults
{
    std::string exported = {}; ///< an ending, "e57", "ply", "pcd" or "las": all points of the originals
                               ///< in the largest cluster, see ExportScans; empty: no such file
    std::function<std::string()> runRecord = {}; ///< text of run.json, asked for when all else is there; empty: none
};
inline constexpr const char* sRunRecordFile = "run.json";
/// All files of a registration. @param exported  as in MoreResults
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::string> ResultNames(const std::string& exported = {});
/// Makes the folder, and sees that every result can be written into it. @throws CInputError
ZORVAN_WORKFLOW_API void PrepareResults(const std::filesystem::path& folder);
/// "scans.e57"
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ExportName(const std::string& ending);

/// What came of the export.
struct ExportOutcome
{
    std::size_t uiScans = 0;
    std::vector<std::filesystem::path> missing = {}; ///< files that are not where the session says any more
};

/// Writes them into the folder, all or none, see `CStagingFolder`; the session last, so that it never knows of more
/// than the others show. @throws CInputError
ZORVAN_WORKFLOW_API ExportOutcome WriteRegistration(const std::filesystem::path& folder, const CSession& session,
                                                    const RegistrationTable& table, const MoreResults& more = {});

/// What poses.json holds: all clusters, the main one first, poses between the coordinates of the files.
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::PosesFile ToPoses(const RegistrationTable& table);

/// What became of all: "6 of 8 scans registered, in 2 clusters; 2 ambiguous; scans of objects that differ in a hole
/// were put apart". Clusters of one scan, or of one and its copies, do not count.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string OutcomeWords(const RegistrationTable& table);

/// Whether all scans came in and lie in one cluster, after a run that was not stopped.
[[nodiscard]] ZORVAN_WORKFLOW_API bool IsWhole(const RegistrationTable& table);

/// What a run that was stopped means for its result.
inline constexpr const char* sStoppedWords =
    "stopped; this is what was found so far: checks at the end may not have been made, so scans may still lie apart, "
    "or in a wrong place, and scans of objects that differ may still lie in one cluster";

/// What else there is to know of the whole: that it was stopped, and what was left out. A sentence each.
[[nodiscard]] ZORVAN_WORKFLOW_API std::vector<std::string> OutcomeNotes(const RegistrationTable& table);

/// A line a scan, by cluster, and OutcomeWords below; lengths in the unit of the files.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const RegistrationTable& table);

/// "b1.ply, b2.ply show a hole about 6 mm wide where a1.ply, a2.ply show surface: they are of objects that differ, and
/// were put apart", where that is, and of how many samples each side says so.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const DisputeRow& dispute, const RegistrationTable& table);

/// The one that merged.ply holds: the largest cluster, exact copies not counted, the primary one of several. Empty
/// without scans.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string MainCluster(const RegistrationTable& table);

} // namespace prereg
