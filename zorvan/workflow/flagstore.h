// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/runtime/csharedflags.h"
#include "zorvan/workflow/export.h"

#include <functional>
#include <string>

namespace prereg {

/// The store that `zorvan flags` uses unless another is named, and hosts that want to be steered from outside.
inline constexpr const char* sDefaultStore = "zorvan.flags";
/// The flag whose settings running registrations take over.
inline constexpr const char* sSettingsFlag = "ConfigurationFPFH";

/// Whether some process holds the store now. When none does, it has no content.
[[nodiscard]] ZORVAN_WORKFLOW_API bool IsStoreHeld(const std::string& store);

/// Opens the store, or makes it; a memory file system that is full or read-only is tried again until `isAborted`.
/// @throws CInputError, also for a block larger than ours, which is then not read
[[nodiscard]] ZORVAN_WORKFLOW_API Zorvan::CSharedFlags OpenStore(
    const std::string& store, const std::function<bool()>& isAborted = [] { return false; });

/// The settings that other processes want, empty when there are none or `store` is empty. A store that nobody holds is
/// not made. @throws CInputError when what lies there is no document, or has values that are no settings
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object ReadStoredSettings(const std::string& store);

/// A flag as a user writes its value: a number, true, false, null, a string in quotes or a document. What the library
/// would pass over silently is refused here, in settings for running registrations. @throws CInputError
[[nodiscard]] ZORVAN_WORKFLOW_API bson::element ReadFlag(const std::string& name, const std::string& value);
/// The value of a flag for people; numbers keep all digits.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string FlagText(const bson::element& flag);

} // namespace prereg
