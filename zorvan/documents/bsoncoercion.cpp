// SPDX-License-Identifier: MIT
#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonnumbers.h"
#include "zorvan/documents/bsonwire.h"

#include <optional>
#include <stack>
#include <string_view>
#include <unordered_map>

namespace bson {

using detail::CElementBuilder;

namespace {

template <typename T, typename... Others>
inline constexpr bool isAnyOf = (std::is_same_v<T, Others> || ...);

template <typename T>
T parse(const std::string& text)
{
    if constexpr (std::is_same_v<T, double>)
        return detail::stod(text);
    else if constexpr (std::is_same_v<T, float>)
        return detail::stof(text);
    else if constexpr (std::is_same_v<T, std::int64_t>)
        return detail::stoll(text);
    else if constexpr (std::is_same_v<T, std::uint64_t>)
        return detail::stoull(text);
    else if constexpr (std::is_signed_v<T>)
        return static_cast<T>(detail::stoi(text));
    else
        return static_cast<T>(detail::stoul(text));
}

/// The first bytes of the whole value, header included, if it is as wide as the number; callers store 8-byte values so.
template <typename T>
std::optional<T> rawBytes(const element& input)
{
    if (input.size_of_value() != sizeof(T)) return std::nullopt;
    return detail::load<T>(input.raw_value());
}

/// The value of `input` as a number, none if the types do not convert. Four pairs that look forgotten are settled:
/// int32 to 64 bits and int64 to uint32 or int16 do not convert, and stored settings rely on the null that they give.
template <typename T>
std::optional<T> toNumber(const element& input)
{
    using detail::truncate;
    switch (input.type()) {
    case element::eDouble:
        return truncate<T>(input.as_double());
    case element::eFloat:
        return truncate<T>(input.as_float());
    case element::eString:
        return parse<T>(input.as_string());
    case element::eBinary:
        return rawBytes<T>(input);
    case element::eBoolean:
        return static_cast<T>(input.as_boolean() ? 1 : 0);
    case element::eInt32:
        if constexpr (isAnyOf<T, std::int64_t, std::uint64_t>)
            return std::nullopt;
        else
            return truncate<T>(input.as_int32());
    case element::eInt64:
        if constexpr (isAnyOf<T, std::uint32_t, std::int16_t>)
            return std::nullopt;
        else
            return truncate<T>(input.as_int64());
    case element::eUInt64:
        return truncate<T>(input.as_uint64());
    case element::eUInt32:
        return truncate<T>(input.as_uint32());
    case element::eInt16:
        return truncate<T>(input.as_int16());
    case element::eUInt16:
        // Floating-point targets read the wrong width here, and callers expect the exception.
        if constexpr (std::is_floating_point_v<T>)
            return static_cast<T>(input.as_uint64());
        else
            return truncate<T>(input.as_uint16());
    case element::eUInt8:
        return truncate<T>(input.as_uint8());
    case element::eInt8:
        return truncate<T>(input.as_int8());
    case element::eDateTime:
        if constexpr (std::is_same_v<T, std::uint64_t>)
            return static_cast<T>(input.as_datetime().count());
        else
            return std::nullopt;
    default:
        return std::nullopt;
    }
}

template <typename T>
std::optional<element> numberElement(element::Type target, const element& input)
{
    const std::optional<T> value = toNumber<T>(input);
    if (!value) return std::nullopt;
    return CElementBuilder::number(target, input.name(), *value);
}

/// All of the value as text, so that the header of a binary comes first and NUL characters are kept.
std::string valueBytes(const element& input)
{
    return {reinterpret_cast<const char*>(input.raw_value()), input.size_of_value()};
}

std::optional<std::string> toText(const element& input)
{
    switch (input.type()) {
    case element::eDouble:
        return detail::toShortText(input.as_double());
    case element::eFloat:
        return detail::toFixedText(input.as_float());
    case element::eInt32:
        return std::to_string(input.as_int32());
    case element::eUInt64:
        return std::to_string(input.as_uint64());
    case element::eInt64:
        return std::to_string(input.as_int64());
    case element::eUInt32:
        return std::to_string(input.as_uint32());
    case element::eInt16:
        return std::to_string(input.as_int16());
    case element::eUInt16:
        return std::to_string(input.as_uint16());
    case element::eUInt8:
        return std::to_string(input.as_uint8());
    case element::eInt8:
        return std::to_string(input.as_int8());
    case element::eBoolean:
        return input.as_boolean() ? "true" : "false";
    case element::eDateTime:
        return std::to_string(input.as_datetime().count());
    case element::eNull:
        return "";
    case element::eBinary:
        return valueBytes(input);
    default:
        return std::nullopt;
    }
}

std::optional<element> stringElement(const element& input)
{
    const auto text = toText(input);
    if (!text) return std::nullopt;
    return element::make_string(input.name(), *text);
}

bool isTrue(double value) { return std::isfinite(value) && value != 0; }

std::optional<bool> toBoolean(const element& input)
{
    switch (input.type()) {
    case element::eDouble:
        return isTrue(input.as_double());
    case element::eFloat:
        return isTrue(input.as_float());
    case element::eString:
        return !input.as_string().empty();
    case element::eBinary:
        return std::get<1>(input.as_binary()) != 0;
    case element::eNull:
        return false;
    case element::eInt32:
        return input.as_int32() != 0;
    case element::eUInt64:
        return input.as_uint64() != 0;
    case element::eInt64:
        return input.as_int64() != 0;
    case element::eUInt32:
        return input.as_uint32() != 0;
    case element::eInt16:
        return input.as_int16() != 0;
    case element::eUInt16:
        return input.as_uint16() != 0;
    case element::eUInt8:
        return input.as_uint8() != 0;
    case element::eInt8:
        return input.as_int8() != 0;
    default:
        return std::nullopt;
    }
}

std::optional<element> booleanElement(const element& input)
{
    const auto value = toBoolean(input);
    if (!value) return std::nullopt;
    return element::make_boolean(input.name(), *value);
}

std::optional<element> dateTimeElement(const element& input)
{
    // Stored directly, since make_datetime takes one of the values for "now".
    const auto stored = [&](std::int64_t value) {
        return CElementBuilder::number(element::eDateTime, input.name(), value);
    };
    if (input.type() == element::eUInt64) return stored(static_cast<std::int64_t>(input.as_uint64()));
    if (input.type() == element::eInt64) return stored(std::max<std::int64_t>(input.as_int64(), 0));
    return std::nullopt;
}

std::optional<element> regexElement(const element& input)
{
    if (input.type() != element::eString) return std::nullopt;
    return element::make_regex(input.name(), input.as_string(), "");
}

/// None if a value of this type does not convert to the target.
std::optional<element> converted(element::Type target, const element& input)
{
    switch (target) {
    case element::eDouble:
        return numberElement<double>(target, input);
    case element::eFloat:
        return numberElement<float>(target, input);
    case element::eInt32:
        return numberElement<std::int32_t>(target, input);
    case element::eUInt32:
        return numberElement<std::uint32_t>(target, input);
    case element::eInt16:
        return numberElement<std::int16_t>(target, input);
    case element::eUInt16:
        return numberElement<std::uint16_t>(target, input);
    case element::eUInt8:
        return numberElement<std::uint8_t>(target, input);
    case element::eInt8:
        return numberElement<std::int8_t>(target, input);
    case element::eInt64:
        return numberElement<std::int64_t>(target, input);
    case element::eUInt64:
        return numberElement<std::uint64_t>(target, input);
    case element::eString:
        return stringElement(input);
    case element::eBinary:
        return element::make_binary(input.name(), input.raw_value(), input.size_of_value(), element::eGeneric);
    case element::eBoolean:
        return booleanElement(input);
    case element::eDateTime:
        return dateTimeElement(input);
    case element::eNull:
        return element::make_null(input.name());
    case element::eRegex:
        return regexElement(input);
    default:
        return std::nullopt;
    }
}

void report(object* errors, const element& e)
{
    if (errors != nullptr) *errors += e;
}

element coercedObject(const element& target, const element& input, object* errors)
{
    object unused;
    const object result = target.as_object().coerce(input.as_object(), errors != nullptr ? &unused : nullptr);
    if (unused) report(errors, element(input.name(), unused));
    return {input.name(), result};
}

/// Coerces documents with all that is inside them; those that are not done stand in a container and not on the stack.
class CCoercion
{
public:
    explicit CCoercion(object* errors) : m_errors(errors) {}

    object run(const object& target, const object& input)
    {
        enter("", target, input, m_errors);
        while (true) {
            Level& level = m_levels.top();
            if (level.next != level.input.end()) {
                step(level, *level.next++);
                continue;
            }
            Level done = std::move(level);
            m_levels.pop();
            if (m_levels.empty()) return done.result;
            finish(done, m_levels.top());
        }
    }

private:
    struct Level
    {
        std::string name;
        object target;
        object input;
        const element* next = nullptr;
        std::unordered_map<std::string_view, const element*> firstOfName;
        object result;
        object ownErrors;
        object* errors = nullptr; ///< the caller's or those of this level, or null
    };

    void enter(const std::string& name, const object& target, const object& input, object* errors)
    {
        Level& level = m_levels.emplace();
        level.name = name;
        level.target = target;
        level.input = input;
        level.next = level.input.begin();
        level.errors = errors;
        for (const element& e : level.target) level.firstOfName.emplace(e.name(), &e);
    }

    void step(Level& level, const element& e)
    {
        const auto found = level.firstOfName.find(e.name());
        if (found == level.firstOfName.end()) return report(level.errors, e);
        const element& target = *found->second;
        if (target.type() == element::eObject && e.type() == element::eObject)
            enterInner(target, e);
        else if (element outcome = target.coerce(e, level.errors))
            level.result += std::move(outcome);
    }

    void enterInner(const element& target, const element& input)
    {
        enter(input.name(), target.as_object(), input.as_object(), nullptr);
        if (m_errors != nullptr) m_levels.top().errors = &m_levels.top().ownErrors;
    }

    static void finish(const Level& inner, Level& outer)
    {
        if (inner.ownErrors) report(outer.errors, element(inner.name, inner.ownErrors));
        outer.result += element(inner.name, inner.result);
    }

    object* m_errors;
    std::stack<Level> m_levels; ///< of a deque, so that levels stay where they are
};

} // namespace

element element::coerce(const element& input, object* errors) const
{
    const bool fits = std::string_view(name()) == input.name();
    if (!fits || (type() == eObject && input.type() != eObject)) {
        report(errors, input);
        return {};
    }
    if (type() == eObject) return coercedObject(*this, input, errors);
    if (type() == input.type()) return input;
    if (auto result = converted(type(), input)) return std::move(*result);
    report(errors, input);
    return make_null(input.name());
}

object object::coerce(const object& input, object* errors) const { return CCoercion(errors).run(*this, input); }

} // namespace bson
