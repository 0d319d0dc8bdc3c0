// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/ctrafo.h"
#include "zorvan/core/ellipsoid.h"
#include "zorvan/core/icpresult.h"
#include "zorvan/documents/bson.h"
#include "zorvan/features/cfpfhpointset.h"
#include "zorvan/platform/export.h"
#include "zorvan/preregistration/cfpfhpreregistration.h"
#include "zorvan/preregistration/settingsserialization.h"

namespace bson {

/// Poses, results, point sets and whole searches as documents, beside the settings.
///
///     const bson::object saved = bson::to_object(search);
///     const auto again = bson::from_object<prereg::CFPFHPreRegistration>(saved);
///
/// A pose goes through a quaternion of single precision, so it comes back nearly but not bit by bit, and always as a
/// rotation; an invalid one stays invalid.
[[nodiscard]] ZORVAN_API object to_object(const prereg::CTrafo& trafo);
[[nodiscard]] ZORVAN_API object to_object(const prereg::Ellipsoid& ellipsoid);
[[nodiscard]] ZORVAN_API object to_object(const prereg::ICPResult& result);
/// Five packed arrays of 32-bit floats: three a point or normal, 33 a feature. Bit masks are not kept.
/// @throws std::length_error when an array takes 4 GiB or more
[[nodiscard]] ZORVAN_API object to_object(const prereg::CFPFHPointSet& set);
/// Both sets, the settings and all results, best first; without sets, empty ones. What the search remembers beside its
/// results is not kept.
[[nodiscard]] ZORVAN_API object to_object(const prereg::CFPFHPreRegistration& search);

/// Unlike the other types, a pose needs all its keys; they may lie deeper in the document (see `object::child`).
/// @throws std::bad_cast for a key that is missing or of another type
template <>
[[nodiscard]] ZORVAN_API prereg::CTrafo from_object(const object& document);
/// The third tip is not read and keeps its default.
template <>
[[nodiscard]] ZORVAN_API prereg::Ellipsoid from_object(const object& document);
/// The overlap ratio of the stop is read into the one of the start and keeps its default itself.
template <>
[[nodiscard]] ZORVAN_API prereg::ICPResult from_object(const object& document);
/// Bytes after the last whole record of an array do not count. Arrays whose lengths do not fit each other, and those
/// that make no point set otherwise, give an empty set, as in the constructor.
template <>
[[nodiscard]] ZORVAN_API prereg::CFPFHPointSet from_object(const object& document);
/// Throws what reading this document as a point set would throw, without the cost of it.
/// @throws std::bad_cast for an array of another type
ZORVAN_API void DemandPointSet(const object& document);
/// The search owns its sets. Its parts are looked up as those of a pose, and each of them is needed.
template <>
[[nodiscard]] ZORVAN_API prereg::CFPFHPreRegistration from_object(const object& document);

} // namespace bson
