// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/clusterregistration/cclusterregistration.h"
#include "zorvan/persistence/bsonserialization.h"
#include "zorvan/platform/export.h"

namespace bson {

/// The whole state of a registration: settings, clusters with all poses, the point sets, and the journal of calls,
/// which is a record for people and never read back.
///
///     const auto [bytes, size] = bson::to_object(registration).freeze();
///     auto again = bson::from_object<prereg::CClusterRegistration>(bson::object::unfreeze(bytes.get(), size));
///     again.Run();                // goes on where it stopped; pairs that have failed get another chance
///
/// Poses go through single precision. The new object has an engine and a scheduler of its own; what `GetChanges` had
/// still to report is not kept.
[[nodiscard]] ZORVAN_API object to_object(const prereg::CClusterRegistration& registration);
/// Point sets are checked at once and unpacked when they are needed; until then they keep their part of the document.
/// Read it from a shared pointer (`object::unfreeze`), and loading copies no array.
/// Clusters that repeat an identifier are left out (logged).
/// @throws std::bad_cast for a part that is missing or of another type; std::out_of_range "invalid map<K, T> key" for
///         an entity without a point set
template <>
[[nodiscard]] ZORVAN_API prereg::CClusterRegistration from_object(const object& document);

} // namespace bson
