// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/util/universaluniqueid.h"
#include "zorvan/workflow/export.h"
#include "zorvan/workflow/pairfinding.h"

#include <map>
#include <utility>

namespace prereg {

/// What a search has found for two scans that a session keeps.
struct KnownPair
{
    PairFinding finding;
    bool isSettled = false; ///< no search would say more of it
};

/// By the identifiers of the scans; poses map the second into the frame of the first. A search needs nothing but the
/// two scans and the settings of their session, so what it has found holds for as long as both are there, wherever they
/// lie.
using KnownPairs = std::map<std::pair<UniversalUniqueID, UniversalUniqueID>, KnownPair>;

/// As a part of a saved session, each number to its last bit.
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object KnownPairsToObject(const KnownPairs& pairs);
/// None of what another version of the library has found: it may search otherwise.
/// @throws std::exception for another document, and for poses that are none
[[nodiscard]] ZORVAN_WORKFLOW_API KnownPairs ReadKnownPairs(const bson::object& document);

} // namespace prereg
