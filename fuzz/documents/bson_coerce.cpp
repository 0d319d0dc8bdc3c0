// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/documents/bson.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <typeinfo>

namespace {

using bson::element;
using bson::object;

bool equal(const object& a, const object& b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

bool hasTypeOf(const element& e, const object& pattern)
{
    const auto* const wanted = std::find_if(
        pattern.begin(), pattern.end(), [&](const element& candidate) { return candidate.name_string() == e.name(); });
    return wanted != pattern.end() && (e.type() == wanted->type() || e.type() == element::eNull);
}

/// As it comes back from a file: a regular expression grows by two bytes when it is read, once and for all.
object readBack(const object& document)
{
    const auto [bytes, size] = document.freeze();
    return object::unfreeze(bytes.get(), size);
}

void checkCoercion(const object& pattern, const object& input)
{
    object errors;
    const object result = pattern.coerce(input, &errors);
    Law(result.num_elements() <= input.num_elements(), "nothing is added");
    // The empty element that ends a document cut short is no loss.
    const auto values =
        std::count_if(input.begin(), input.end(), [](const element& e) { return static_cast<bool>(e); });
    Law(result.num_elements() + errors.num_elements() >= static_cast<std::size_t>(values), "losses are reported");
    for (const element& e : result) Law(hasTypeOf(e, pattern), "results have the type that was asked for");
    Law(equal(pattern.coerce(input, nullptr), result), "errors are optional");

    if (errors) return;
    const object fitting = readBack(result);
    object second;
    Law(equal(pattern.coerce(fitting, &second), fitting) && !second, "what fits is not changed again");
}

} // namespace

/// Two frozen documents, the first of the given number of bytes: the pattern, then the input that takes its types.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const std::size_t split = std::min<std::size_t>(data[0], size - 1);
    try {
        const object pattern = object::unfreeze(data + 1, split);
        const object input = object::unfreeze(data + 1 + split, size - 1 - split);
        checkCoercion(pattern, input);
        const object merged = pattern.update(input);
        Law(merged.num_elements() >= pattern.num_elements(), "an update removes nothing");
    } catch (const std::logic_error&) {
        // Unknown types, and text that is no number.
    } catch (const std::bad_cast&) {
        // A uint16 where a floating-point number is wanted.
    }
    return 0;
}
