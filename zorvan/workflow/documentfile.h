// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/core/hooks.h"
#include "zorvan/documents/bson.h"
#include "zorvan/workflow/export.h"

#include <filesystem>

namespace prereg {

/// A saved document, whole: its length fits, every element ends, nothing stands behind it.
/// @throws CInputError that says what is wrong with the file, and before which byte
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object ReadDocumentFile(const std::filesystem::path& file);

/// Whole or not at all. @throws CInputError
ZORVAN_WORKFLOW_API void WriteDocumentFile(const std::filesystem::path& file, const bson::object& document);
/// @return  false when the hooks stop it: nothing is written then
ZORVAN_WORKFLOW_API bool WriteDocumentFile(const std::filesystem::path& file, const bson::object& document,
                                           const Zorvan::Hooks& hooks);

} // namespace prereg
