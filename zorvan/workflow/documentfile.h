#pragma once

#include "zorvan/documents/bson.h"

#include <filesystem>

namespace prereg {

/// A saved document, whole: its length fits, every element ends, nothing stands behind it.
/// @throws CInputError that says what is wrong with the file, and before which byte
[[nodiscard]] bson::object ReadDocumentFile(const std::filesystem::path& file);

/// Whole or not at all. @throws CInputError
void WriteDocumentFile(const std::filesystem::path& file, const bson::object& document);

} // namespace prereg
