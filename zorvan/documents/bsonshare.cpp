// Documents that are read where they lie.

#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonwire.h"

#include <cstring>
#include <stdexcept>
#include <vector>

namespace bson {

namespace {

using detail::CElementBuilder;

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

/// Whether regular expressions have their two spare bytes, as all have that were read.
enum class EPadding
{
    Demanded,
    Optional
};

Place skipRegex(Place at, Place end, EPadding padding)
{
    at = skipText(at, end);
    if (at != nullptr) at = skipText(at, end);
    for (std::uint64_t i = 0; at != nullptr && i < detail::uiRegexPaddingBytes; ++i) {
        if (at != end && *at == detail::uiRegexPadding)
            ++at;
        else if (padding == EPadding::Demanded)
            at = nullptr;
    }
    return at;
}

/// Of any type but a document.
Place skipValue(element::Type type, Place at, Place end, EPadding padding)
{
    if (const auto size = detail::fixedValueSize(type)) return skip(at, end, *size);
    switch (type) {
    case element::eString:
        return skipCounted(at, end, 0);
    case element::eBinary:
        return skipCounted(at, end, 1);
    case element::eRegex:
        return skipRegex(at, end, padding);
    default:
        return nullptr;
    }
}

/// The closing byte of the document at this place.
Place findClose(Place at, Place end)
{
    const Place close = skipCounted(at, end, 0);
    return close != nullptr && close != end && *close == 0 ? close : nullptr;
}

/// Checks a document with all that is inside it, as deep as `maxNesting`. The nesting comes from outside, so what is
/// open stands in a vector and not on the stack.
class CChecker
{
public:
    CChecker(unsigned int maxNesting, EPadding padding) : m_maxNesting(maxNesting), m_padding(padding) {}

    /// @return the place behind the document, or null
    Place skipObject(Place at, Place end)
    {
        m_closes.clear();
        at = open(at, end);
        while (at != nullptr && !m_closes.empty()) at = at == m_closes.back() ? close() : skipElement(at);
        return at;
    }

private:
    Place open(Place at, Place end)
    {
        const Place close = findClose(at, end);
        if (close == nullptr || m_closes.size() > m_maxNesting) return nullptr;
        m_closes.push_back(close);
        return at + detail::uiLengthBytes;
    }

    Place close()
    {
        const Place close = m_closes.back();
        m_closes.pop_back();
        return close + 1;
    }

    Place skipElement(Place at)
    {
        const Place end = m_closes.back();
        const Place value = *at != 0 ? skipText(at + 1, end) : nullptr;
        if (value == nullptr) return nullptr;
        const auto type = static_cast<element::Type>(*at);
        return type == element::eObject ? open(value, end) : skipValue(type, value, end, m_padding);
    }

    std::size_t m_maxNesting;
    EPadding m_padding;
    std::vector<Place> m_closes; ///< of the open documents, the innermost last
};

/// The elements of the document at the start of these bytes; none when its own level is not as a reader would write it,
/// or `skipInner(at, end)` gives null for one inside it.
template <class Skip>
std::optional<object> split(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size, Skip skipInner)
{
    const std::uint64_t smallestShared = bytes.use_count() != 0 ? detail::uiSmallestShared : size + 1;
    const Place close = findClose(bytes.get(), bytes.get() + size);
    if (close == nullptr) return std::nullopt;

    object result;
    Place next = nullptr;
    for (Place at = bytes.get() + detail::uiLengthBytes; at != close; at = next) {
        const Place value = *at != 0 ? skipText(at + 1, close) : nullptr;
        if (value == nullptr) return std::nullopt;
        const auto type = static_cast<element::Type>(*at);
        next = type == element::eObject ? skipInner(value, close) : skipValue(type, value, close, EPadding::Demanded);
        if (next == nullptr) return std::nullopt;
        const auto length = static_cast<std::uint64_t>(next - at);
        const auto valueSize = static_cast<std::uint64_t>(next - value);
        CElementBuilder::elements(result).push_back(length < smallestShared
                                                        ? CElementBuilder::copyOf(at, length, valueSize)
                                                        : CElementBuilder::share({bytes, at}, length, valueSize));
    }
    return result;
}

} // namespace

namespace detail {

std::optional<object> shareObject(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    CChecker checker(uiMaxNesting - 1, EPadding::Demanded);
    return split(bytes, size, [&](Place at, Place end) { return checker.skipObject(at, end); });
}

object childrenOf(const std::shared_ptr<const unsigned char[]>& bytes, std::uint64_t size)
{
    auto children = split(bytes, size, [](Place at, Place end) {
        const Place close = findClose(at, end);
        return close != nullptr ? close + 1 : nullptr;
    });
    return children ? std::move(*children) : object();
}

void demandRoomAround(const object& o)
{
    // A level is seven bytes at least: type, an empty name, length and closing byte.
    constexpr std::uint64_t uiSmallestLevel = 7;
    CChecker checker(uiMaxNesting - 2, EPadding::Optional);
    for (const element& e : o) {
        if (e.type() != element::eObject || e.size() / uiSmallestLevel < uiMaxNesting) continue;
        const unsigned char* const value = e.raw_value();
        if (checker.skipObject(value, value + e.size_of_value()) == nullptr)
            throw std::length_error("documents nested too deeply");
    }
}

} // namespace detail

} // namespace bson
