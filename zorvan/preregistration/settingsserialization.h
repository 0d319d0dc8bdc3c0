// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/configurationicp.h"
#include "zorvan/documents/bson.h"
#include "zorvan/features/configurationfpfh.h"
#include "zorvan/platform/export.h"
#include "zorvan/runtime/csharedflags.h"

namespace bson {

/// Settings as a document: one element a field, of its name and type and in its order; `icpConfig` is a nested one.
[[nodiscard]] ZORVAN_API object to_object(const prereg::ConfigurationICP& config);
[[nodiscard]] ZORVAN_API object to_object(const prereg::ConfigurationFPFH& config);

/// The way back, for every type that has a `to_object`. Keys may come in any order; a key that is absent keeps its
/// default, one that is not known is passed over, and of one that comes twice the last counts. Reading is strict: a
/// known key with a value of another type throws std::bad_cast("bad cast").
template <class T>
[[nodiscard]] T from_object(const object& document);
template <>
[[nodiscard]] ZORVAN_API prereg::ConfigurationICP from_object(const object& document);
template <>
[[nodiscard]] ZORVAN_API prereg::ConfigurationFPFH from_object(const object& document);

} // namespace bson

namespace prereg {

/// `base` with the settings that the document names, `icpConfig` key by key. A value of another type is converted to
/// the type of its setting, so text and whole numbers serve too; a key that no setting has does nothing. An empty
/// document logs a warning.
/// @throws what `bson::object::update` throws for text that is no number; std::bad_cast for a value that does not
///         convert
[[nodiscard]] ZORVAN_API ConfigurationICP OverrideSettings(const bson::object& overrides, const ConfigurationICP& base);
[[nodiscard]] ZORVAN_API ConfigurationFPFH OverrideSettings(const bson::object& overrides,
                                                            const ConfigurationFPFH& base);

/// `base` with what other processes have set as "ConfigurationFPFH" in the store; `base` when they have not, or the
/// store is closed.
[[nodiscard]] ConfigurationFPFH WithSharedSettings(const Zorvan::CSharedFlags& flags, const ConfigurationFPFH& base);

} // namespace prereg
