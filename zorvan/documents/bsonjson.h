// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/documents/bson.h"
#include "zorvan/platform/export.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace bson {

/// What a text written by hand may get away with.
enum class ETextRules
{
    Lenient, ///< those of `object::from_json`
    Strict   ///< what these rules silently take for something else is refused: text behind the last brace, ".5" (it
             ///< would be 0), whole numbers beyond an int
};

/// A place in a text, from 1. The column is 0 where there is none, as when the text ends too early.
struct text_place
{
    int iLine = 0;
    int iColumn = 0;
};

/// Where a text is no document; `what()` says why, without the place.
class ZORVAN_API text_error : public std::runtime_error
{
public:
    text_error(text_place place, const std::string& why);

    [[nodiscard]] text_place place() const noexcept { return m_place; }

private:
    text_place m_place;
};

/// A document that was written by hand.
struct text_document
{
    object document;
    std::vector<text_place> names; ///< of all elements, a nested one behind the element that holds it
};

/// Reads what `object::from_json` describes, and says where the names stand. The reasons of strict rules are worded for
/// who wrote the text, those of lenient ones name tokens.
/// @throws text_error; std::range_error for text that is not UTF-16
[[nodiscard]] ZORVAN_API text_document read_text(const std::wstring& text, ETextRules rules);

} // namespace bson
