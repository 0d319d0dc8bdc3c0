// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/runtime/csharedflags.h"

#include <functional>
#include <string>

namespace tools {

/// The store that `zorvan flags` uses unless told otherwise, and hosts that want to be steered from outside.
inline constexpr const char* sDefaultStore = "zorvan.flags";
/// The flag whose settings running registrations take over.
inline constexpr const char* sSettingsFlag = "ConfigurationFPFH";

/// Whether some process holds the store now. When none does, it has no content.
[[nodiscard]] bool IsStoreHeld(const std::string& store);

/// Opens the store, or makes it; a memory file system that is full or read-only is tried again until `isAborted`.
/// @throws CInputError, also for a block larger than ours, which is then not read
[[nodiscard]] Zorvan::CSharedFlags OpenStore(
    const std::string& store, const std::function<bool()>& isAborted = [] { return false; });

/// The settings that other processes want, empty when there are none or `store` is empty. A store that nobody holds is
/// not made. @throws CInputError when what lies there is no document, or has values that are no settings
[[nodiscard]] bson::object ReadStoredSettings(const std::string& store);

} // namespace tools
