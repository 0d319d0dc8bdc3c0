// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/registrationtable.h"

#include <map>
#include <string>
#include <vector>

namespace prereg {

/// Who works on a session, and when. What is empty is not recorded.
struct JournalStamp
{
    std::string by;   ///< the program or host, with its version
    std::string when; ///< UTC, "2026-11-26T07:12:03Z"
};

/// One thing that was done to a session.
struct JournalEntry
{
    JournalStamp stamp;
    std::string what;               ///< "added", "merged", "left its cluster", "optimized", "removed", ...
    std::vector<std::string> scans; ///< by their names
    std::string why;                ///< for people; may be empty
};

using SessionJournal = std::vector<JournalEntry>;

/// Now. The variable SOURCE_DATE_EPOCH, seconds since 1970, stands in for the clock where it is set, so that the same
/// inputs give the same session.
[[nodiscard]] ZORVAN_WORKFLOW_API JournalStamp StampNow(const std::string& by);

/// What a registration did: scans that came, clusters that were merged, and by which pair, scans that left theirs.
/// @param before  the cluster of each scan that was there, by name
/// @param after   of all of them
[[nodiscard]] ZORVAN_WORKFLOW_API SessionJournal JournalOfRun(const std::map<std::string, std::string>& before,
                                                              const RegistrationTable& after, bool isOptimized,
                                                              const JournalStamp& stamp);

/// A line an entry.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToText(const SessionJournal& journal);

/// As a part of a saved session, and back. @throws std::bad_cast for another document
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object JournalToObject(const SessionJournal& journal);
[[nodiscard]] ZORVAN_WORKFLOW_API SessionJournal ReadJournal(const bson::object& document);

} // namespace prereg
