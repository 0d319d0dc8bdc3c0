#include "fuzz/law.h"

#include "zorvan/documents/bson.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace {

using bson::element;
using bson::object;

/// Written with so few digits that the text reads as a whole number, or not at all: the smallest ones round to
/// denormals.
bool isTiny(const element& e) { return e.type() == element::eDouble && std::fabs(e.as_double()) < 1e-300; }

bool anyTiny(const object& o)
{
    return std::any_of(o.begin(), o.end(), [](const element& e) { return isTiny(e) || anyTiny(e.children()); });
}

double number(const element& e) { return e.type() == element::eInt32 ? e.as_int32() : e.as_double(); }

bool sameValue(const element& a, const element& b);

bool sameContent(const object& a, const object& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameValue);
}

/// Doubles keep 6 digits, and one without decimals comes back as a whole number; all others are equal.
bool sameValue(const element& a, const element& b)
{
    if (a.type() == element::eObject && b.type() == element::eObject)
        return a.name_string() == b.name() && sameContent(a.children(), b.children());
    if (a.type() != element::eDouble) return a == b;
    constexpr double dSixDigits = 5.1e-6;
    return a.name_string() == b.name() && std::fabs(number(a) - number(b)) <= dSixDigits * std::fabs(number(a));
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

} // namespace

/// What was read and is written reads the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const object document = parsed(std::string(data, data + size));
    if (anyTiny(document)) return 0;
    for (const unsigned int indent : {0U, 2U}) {
        const object again = parsed(document.to_json(indent, 1));
        Law(sameContent(document, again), "the text of a document reads back the same");
    }
    return 0;
}
