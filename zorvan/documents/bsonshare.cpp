// Documents that are read where they lie.

#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"

#include <cstring>

namespace bson {

namespace {

/// A position in the bytes; null once they have turned out not to be as a reader would write them.
using Place = const unsigned char*;

Place skip(Place at, Place end, std::uint64_t size)
{
    return size <= static_cast<std::uint64_t>(end - at) ? at + size : nullptr;
}

Place skipText(Place at, Place end)
{
    const void* const nul = std::memchr(at, 0, static_cast<std::size_t>(end - at));
    return nul != nullptr ? static_cast<Place>(nul) + 1 : nullptr;
}

/// A length, bytes that it does not count, and the bytes that it counts.
Place skipCounted(Place at, Place end, std::uint64_t uncounted)
{
    const Place counted = skip(at, end, sizeof(std::uint32_t));
    return counted != nullptr ? skip(counted, end, uncounted + detail::load<std::uint32_t>(at)) : nullptr;
}

Place skipRegex(Place at, Place end)
{
    at = skipText(at, end);
    if (at != nullptr) at = skipText(at, end);
    for (std::uint64_t i = 0; at != nullptr && i < detail::uiRegexPaddingBytes; ++i)
        at = at != end && *at == detail::uiRegexPadding ? at + 1 : nullptr;
    return at;
}

/// Calls `visit(at, value, end)` for each element.
template <class Visitor>
Place skipObject(Place at, Place end, unsigned int depth, const Visitor& visit);

Place skipValue(element::Type type, Place at, Place end, unsigned int depth)
{
    if (const auto size = detail::fixedValueSize(type)) return skip(at, end, *size);
    switch (type) {
    case element::eString:
        return skipCounted(at, end, 0);
    case element::eBinary:
        return skipCounted(at, end, 1);
    case element::eRegex:
        return skipRegex(at, end);
    case element::eObject:
        return skipObject(at, end, depth + 1, [](Place, Place, Place) {});
    default:
        return nullptr;
    }
}

template <class Visitor>
Place skipObject(Place at, Place end, unsigned int depth, const Visitor& visit)
{
    const Place close = skipCounted(at, end, 0);
    if (depth > uiMaxNesting || close == nullptr || close == end || *close != 0) return nullptr;
    at += detail::uiLengthBytes;
    while (at != close) {
        if (*at == 0) return nullptr;
        const Place value = skipText(at + 1, close);
        if (value == nullptr) return nullptr;
        const Place next = skipValue(static_cast<element::Type>(*at), value, close, depth);
        if (next == nullptr) return nullptr;
        visit(at, value, next);
        at = next;
    }
    return close + 1;
}

} // namespace

namespace detail {

std::optional<object> shareObject(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    object result;
    const std::uint64_t smallestShared = bytes.use_count() != 0 ? uiSmallestShared : size + 1;
    const auto append = [&](Place at, Place value, Place end) {
        const auto length = static_cast<std::uint64_t>(end - at);
        const auto valueSize = static_cast<std::uint64_t>(end - value);
        CElementBuilder::elements(result).push_back(length < smallestShared
                                                        ? CElementBuilder::copyOf(at, length, valueSize)
                                                        : CElementBuilder::share({bytes, at}, length, valueSize));
    };
    if (skipObject(bytes.get(), bytes.get() + size, 0, append) == nullptr) return std::nullopt;
    return result;
}

} // namespace detail

} // namespace bson
