#include "zorvan/documents/bson.h"
#include "zorvan/util/astreamparser.h"

#include <sstream>

namespace bson {

namespace {

using Zorvan::AStreamParser;

/// Reads one object; what follows it is not looked at.
class json_parser : public AStreamParser
{
public:
    using AStreamParser::AStreamParser;

    void parse() override { m_result = parseObject(0); }

    [[nodiscard]] object take() { return std::move(m_result); }

private:
    object parseObject(unsigned int depth)
    {
        if (depth > uiMaxNesting) throw CParseError(getLine(), getColumn(), L"objects nested too deeply");
        match(eLeftBrace, true);
        object result;
        while (peek(eDoubleQuote) || peek(eSingleQuote)) {
            const std::string name = parseText();
            match(eColon, true);
            result += parseValue(name, depth);
            accept(eComma);
        }
        match(eRightBrace, true);
        return result;
    }

    /// An identifier between two equal quotes.
    std::string parseText()
    {
        const ETokenType quote = peek(eDoubleQuote) ? eDoubleQuote : eSingleQuote;
        match(quote, true);
        match(eIdentifier, true);
        std::string text = convert(getString());
        match(quote, true);
        return text;
    }

    // Anything unknown is a null that consumes nothing, so that the enclosing object reports what it finds there.
    element parseValue(const std::string& name, unsigned int depth)
    {
        if (peek(eDoubleQuote) || peek(eSingleQuote)) return {name, parseText()};
        if (accept(eInteger)) return {name, getInteger()};
        if (accept(eFloat)) return {name, getDouble()};
        if (peek(eLeftBrace)) return {name, parseObject(depth + 1)};
        if (accept(L"true")) return {name, true};
        if (accept(L"false")) return {name, false};
        accept(L"null");
        return {name};
    }

    /// Consumes the token only if it is of this kind, which a failed match does not promise.
    template <typename Token>
    bool accept(const Token& token)
    {
        return peek(token) && match(token, true);
    }

    object m_result;
};

} // namespace

object object::from_json(const std::string& utf8Text) { return from_json(convert(utf8Text)); }

object object::from_json(const std::wstring& text)
{
    std::wistringstream stream(text);
    json_parser parser(stream);
    try {
        parser.parse();
    } catch (const AStreamParser::CParseError& error) {
        throw convert(error.GetMessage());
    }
    return parser.take();
}

} // namespace bson
