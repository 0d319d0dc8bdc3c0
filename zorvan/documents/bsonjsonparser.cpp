// SPDX-License-Identifier: MIT
#include "zorvan/documents/bsonjson.h"

#include "zorvan/documents/bsonsink.h"
#include "zorvan/util/astreamparser.h"

#include <algorithm>
#include <limits>
#include <sstream>
#include <utility>

namespace bson {

namespace {

using Zorvan::AStreamParser;

/// Reads one object. What is open stands in the sink and not on the stack.
class json_parser : public AStreamParser
{
public:
    json_parser(std::wistream& stream, ETextRules rules)
        : AStreamParser(stream), m_isStrict(rules == ETextRules::Strict)
    {
    }

    void parse() override
    {
        open();
        while (m_document.depth() != 0) parseMemberOrEnd();
        if (m_isStrict && !peek(eEndOfText)) refuse(L"nothing may follow the last }");
    }

    [[nodiscard]] text_document take()
    {
        const std::uint64_t size = m_document.size();
        return {object::unfreeze(m_document.take(), size), std::move(m_names)};
    }

private:
    /// Takes the next token, for its place.
    [[noreturn]] void refuse(const std::wstring& why)
    {
        if (peek(eEndOfText)) throw CParseError(getLine(), 0, L"the text ends too early, " + why);
        match(eEndOfText, false);
        throw CParseError(getLine(), getColumn(), why);
    }

    /// @param otherwise  what strict rules say when another token comes
    void demand(ETokenType token, const wchar_t* otherwise)
    {
        if (m_isStrict && !peek(token)) refuse(otherwise);
        match(token, true);
    }

    void open()
    {
        if (m_document.depth() > uiMaxNesting) {
            if (m_isStrict) refuse(L"objects are nested too deeply");
            throw CParseError(getLine(), getColumn(), L"objects nested too deeply");
        }
        demand(eLeftBrace, L"{ is needed here");
        m_document.open();
    }

    void parseMemberOrEnd()
    {
        if (const ETokenType quote = nextQuote(); quote != eError) return parseMember(quote);
        demand(eRightBrace, L"a name in quotes or } is needed here");
        m_document.close();
        if (m_document.depth() != 0) accept(eComma);
    }

    void parseMember(ETokenType quote)
    {
        int column = 0;
        const std::string name = parseText(quote, column);
        m_names.push_back({getLine(), column});
        demand(eColon, L": is needed here, between a name and its value");
        if (peek(eLeftBrace)) {
            const element start = element::make_object(name, {});
            append(start.raw(), start.size() - start.size_of_value());
            return open();
        }
        const element e = parseValue(name);
        append(e.raw(), e.size());
        accept(eComma);
    }

    void append(const unsigned char* bytes, std::uint64_t size)
    {
        detail::storeBytes(m_document.grow(size), bytes, size);
    }

    /// eError when the next token is none.
    ETokenType nextQuote()
    {
        if (peek(eDoubleQuote)) return eDoubleQuote;
        return peek(eSingleQuote) ? eSingleQuote : eError;
    }

    /// An identifier between two equal quotes, the first of which is known to come. @param column  of it
    std::string parseText(ETokenType quote, int& column)
    {
        match(quote, true);
        column = getColumn();
        demand(eIdentifier, L"quotes hold one word of letters, digits and _, and no digit first");
        std::string text = convert(getString());
        demand(quote, L"quotes hold one word, and both are of one kind");
        return text;
    }

    // For lenient rules, anything unknown is a null that consumes nothing, so that the enclosing object reports what it
    // finds there.
    element parseValue(const std::string& name)
    {
        int column = 0;
        if (const ETokenType quote = nextQuote(); quote != eError) return {name, parseText(quote, column)};
        if (accept(eInteger)) return {name, integer()};
        if (accept(eFloat)) return {name, getDouble()};
        if (accept(L"true")) return {name, true};
        if (accept(L"false")) return {name, false};
        if (accept(L"null") || !m_isStrict) return {name};
        refuse(L"a value is needed here: a number, true, false, null or {");
    }

    int integer()
    {
        const int value = getInteger();
        if (!m_isStrict) return value;
        if (getString().front() == L'.') throw CParseError(getLine(), getColumn(), L"a digit must stand before the .");
        if (value == std::numeric_limits<int>::max() || value == std::numeric_limits<int>::min())
            throw CParseError(getLine(), getColumn(), L"too large for a whole number, write it with a .");
        return value;
    }

    /// Consumes the token only if it is of this kind, which a failed match does not promise.
    template <typename Token>
    bool accept(const Token& token)
    {
        return peek(token) && match(token, true);
    }

    bool m_isStrict;
    detail::CDocumentSink m_document;
    std::vector<text_place> m_names;
};

} // namespace

text_error::text_error(text_place place, const std::string& why) : std::runtime_error(why), m_place(place) {}

text_document read_text(const std::wstring& text, ETextRules rules)
{
    std::wistringstream stream(text);
    json_parser parser(stream, rules);
    try {
        parser.parse();
    } catch (const AStreamParser::CParseError& error) {
        throw text_error({error.GetLine(), std::max(error.GetColumn(), 0)}, convert(error.GetMessage()));
    }
    return parser.take();
}

object object::from_json(const std::string& utf8Text) { return from_json(convert(utf8Text)); }

object object::from_json(const std::wstring& text)
{
    try {
        return read_text(text, ETextRules::Lenient).document;
    } catch (const text_error& error) {
        throw std::string(error.what());
    }
}

} // namespace bson
