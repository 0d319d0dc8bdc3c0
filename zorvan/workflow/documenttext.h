#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/workflow/export.h"

#include <string>
#include <vector>

namespace prereg {

/// Where a name stands in a text, from 1.
struct TextPlace
{
    int iLine = 0;
    int iColumn = 0;
};

/// A document that was written by hand.
struct DocumentText
{
    bson::object document;
    std::vector<TextPlace> names; ///< of all elements, a nested one behind the element that holds it
};

/// Reads text as `bson::object::from_json` does, with a place for every name. What that reader takes silently for
/// something else is refused too: text behind the last brace, ".5" (it would be 0), whole numbers beyond an int.
/// @param source  what messages name, a file mostly
/// @throws CInputError "source: line 3, column 5: why; what to do"
[[nodiscard]] ZORVAN_WORKFLOW_API DocumentText ReadDocumentText(const std::string& handWritten,
                                                                const std::string& source);

/// The same for the text of a single value: "true", "2.5", "{...}", "'word'". It gets `name`.
[[nodiscard]] ZORVAN_WORKFLOW_API bson::element ReadValueText(const std::string& text, const std::string& name);

/// The one line for a fault at a place. @throws CInputError
[[noreturn]] ZORVAN_WORKFLOW_API void RefuseAt(const std::string& source, TextPlace place, const std::string& why,
                                               const std::string& advice);

/// Lines as a terminal may see them, see `ToShown`.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToPrintable(const std::string& text);
/// The document as `bson::object::dump` writes it with indentation, but 8-bit integers as numbers, names and texts as
/// `ToShown` gives them, and a document nested more than 50 deep no further to the right.
[[nodiscard]] ZORVAN_WORKFLOW_API std::string ToPrintable(const bson::object& document);

} // namespace prereg
