#include "zorvan/documents/bson.h"
#include "zorvan/documents/bsonsink.h"
#include "zorvan/util/astreamparser.h"

#include <sstream>

namespace bson {

namespace {

using Zorvan::AStreamParser;

/// Reads one object; what follows it is not looked at. What is open stands in the sink and not on the stack.
class json_parser : public AStreamParser
{
public:
    using AStreamParser::AStreamParser;

    void parse() override
    {
        open();
        while (m_document.depth() != 0) parseMemberOrEnd();
    }

    [[nodiscard]] object take()
    {
        const std::uint64_t size = m_document.size();
        return object::unfreeze(m_document.take(), size);
    }

private:
    void open()
    {
        if (m_document.depth() > uiMaxNesting) throw CParseError(getLine(), getColumn(), L"objects nested too deeply");
        match(eLeftBrace, true);
        m_document.open();
    }

    void parseMemberOrEnd()
    {
        if (peek(eDoubleQuote) || peek(eSingleQuote)) return parseMember();
        match(eRightBrace, true);
        m_document.close();
        if (m_document.depth() != 0) accept(eComma);
    }

    void parseMember()
    {
        const std::string name = parseText();
        match(eColon, true);
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
    element parseValue(const std::string& name)
    {
        if (peek(eDoubleQuote) || peek(eSingleQuote)) return {name, parseText()};
        if (accept(eInteger)) return {name, getInteger()};
        if (accept(eFloat)) return {name, getDouble()};
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

    detail::CDocumentSink m_document;
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
