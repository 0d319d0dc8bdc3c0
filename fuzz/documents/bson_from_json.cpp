// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/documents/bsonjson.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using bson::element;
using bson::object;

/// Written with so few digits that the text reads as a whole number, or not at all: the smallest ones round to
/// denormals.
bool isTiny(const element& e) { return e.type() == element::eDouble && std::fabs(e.as_double()) < 1e-300; }

/// Without recursion over what comes from outside, here and below.
bool anyTiny(const object& document)
{
    std::vector<object> open{document};
    while (!open.empty()) {
        const object next = std::move(open.back());
        open.pop_back();
        if (std::any_of(next.begin(), next.end(), isTiny)) return true;
        for (const element& e : next)
            if (e.type() == element::eObject) open.push_back(e.as_object());
    }
    return false;
}

double number(const element& e) { return e.type() == element::eInt32 ? e.as_int32() : e.as_double(); }

bool areObjects(const element& a, const element& b)
{
    return a.type() == element::eObject && b.type() == element::eObject;
}

/// Doubles keep 6 digits, and one without decimals comes back as a whole number; all others are equal. Of documents the
/// name only.
bool sameValue(const element& a, const element& b)
{
    if (areObjects(a, b)) return a.name_string() == b.name();
    if (a.type() != element::eDouble) return a == b;
    constexpr double dSixDigits = 5.1e-6;
    return a.name_string() == b.name() && std::fabs(number(a) - number(b)) <= dSixDigits * std::fabs(number(a));
}

bool sameContent(const object& first, const object& second)
{
    std::vector<std::pair<object, object>> open{{first, second}};
    while (!open.empty()) {
        const auto [a, b] = std::move(open.back());
        open.pop_back();
        if (!std::equal(a.begin(), a.end(), b.begin(), b.end(), sameValue)) return false;
        for (std::size_t i = 0; i < a.num_elements(); ++i)
            if (areObjects(a.begin()[i], b.begin()[i]))
                open.emplace_back(a.begin()[i].as_object(), b.begin()[i].as_object());
    }
    return true;
}

object parsed(const std::string& text)
{
    try {
        return object::from_json(text);
    } catch (const std::string& message) {
        Law(!message.empty(), "an error says something");
    } catch (const std::range_error&) {
        // Not UTF-8.
    }
    return {};
}

/// Strict rules refuse more, and never read anything else.
void checkStrictRules(const std::string& text, const object& lenient)
{
    try {
        const bson::text_document strict = bson::read_text(bson::convert(text), bson::ETextRules::Strict);
        Law(strict.document.num_elements() <= strict.names.size(), "every name has its place");
        Law(std::equal(strict.document.begin(), strict.document.end(), lenient.begin(), lenient.end()),
            "strict rules read the same document");
    } catch (const bson::text_error& error) {
        Law(error.place().iLine >= 0 && error.place().iColumn >= 0, "an error has a place");
    } catch (const std::range_error&) {
        // Not UTF-8.
    }
}

} // namespace

/// What was read and is written reads the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    const object document = parsed(text);
    checkStrictRules(text, document);
    if (anyTiny(document)) return 0;
    for (const unsigned int indent : {0U, 2U}) {
        const object again = parsed(document.to_json(indent, 1));
        Law(sameContent(document, again), "the text of a document reads back the same");
    }
    return 0;
}
