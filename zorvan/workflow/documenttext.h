// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bsonjson.h"
#include "zorvan/workflow/export.h"

#include <string>

namespace prereg {

using TextPlace = bson::text_place;
using DocumentText = bson::text_document;

/// Reads text by the strict rules of documents, with a place for every name. Line ends and a mark at the start may be
/// those of other systems.
/// @param source  what messages name, a file mostly
/// @throws CInputError "source: line 3, column 5: why; what to do"
[[nodiscard]] ZORVAN_WORKFLOW_API DocumentText ReadDocumentText(const std::string& handWritten,
                                                                const std::string& source);

/// The same for the text of a single value: "true", "2.5", "{...}", "'word'". It gets `name`.
[[nodiscard]] ZORVAN_WORKFLOW_API bson::element ReadValueText(const std::string& text, const std::string& name);

/// The one line for a fault at a place; without the place when its line is 0. @throws CInputError
[[noreturn]] ZORVAN_WORKFLOW_API void RefuseAt(const std::string& source, TextPlace place, const std::string& why,
                                               const std::string& advice);

/// Lines as a terminal may see them, see `ToShown`.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToPrintable(const std::string& text);
/// The document as `bson::object::dump` writes it with indentation, but 8-bit integers as numbers, names and texts as
/// `ToShown` gives them, and a document nested more than 50 deep no further to the right.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToPrintable(const bson::object& document);

} // namespace prereg
