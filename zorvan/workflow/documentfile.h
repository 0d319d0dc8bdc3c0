// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/workflow/export.h"

#include <filesystem>

namespace prereg {

/// A saved document, whole: its length fits, every element ends, nothing stands behind it.
/// @throws CInputError that says what is wrong with the file, and before which byte
[[nodiscard]] ZORVAN_WORKFLOW_API bson::object ReadDocumentFile(const std::filesystem::path& file);

/// Whole or not at all. @throws CInputError
ZORVAN_WORKFLOW_API void WriteDocumentFile(const std::filesystem::path& file, const bson::object& document);

} // namespace prereg
