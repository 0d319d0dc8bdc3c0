// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/platform/export.h"

#include <istream>
#include <limits>
#include <sstream>
#include <string>

namespace Zorvan {

/// Base of the text readers: cuts a wide character stream into lines and these into tokens, with one token of
/// lookahead.
///
///     class CPairReader : public AStreamParser
///     {
///         void parse() override
///         {
///             while (peek(L"pair")) {
///                 match(L"pair", true);
///                 match(eFloat, true);        // takes integers too
///                 const double x = getDouble();
///             }
///             match(eEndOfText, true);
///         }
///     };
///
/// All grammars share the tokens: `#` begins a comment anywhere, also between quotes; no token spans lines; words are
/// those of C; numbers are C-like. A CR LF counts as two lines, the second one empty. Letters are those of Unicode and
/// numbers those of the classic locale, whatever locale the host has set. A parser belongs to one thread at a time.
class ZORVAN_API AStreamParser
{
public:
    enum ETokenType : int
    {
        eError = -1,
        eEndOfText = 0,
        eEndOfLine,
        eLeftParenthesis,
        eRightParenthesis,
        eLeftBracket,
        eRightBracket,
        eLeftBrace,
        eRightBrace,
        eLess,
        eGreater,
        eComma,
        eColon,
        eSemicolon,
        ePlus,
        eMinus,
        eAt,
        eEquals,
        eHash,
        eSlash,
        eInteger,
        eFloat,
        eIdentifier,
        eDoubleQuote,
        eSingleQuote
    };

    /// Where and why a text does not fit; thrown by value.
    class ZORVAN_API CParseError
    {
    public:
        CParseError(int line, int column, const std::wstring& message);

        [[nodiscard]] int GetLine() const { return m_line; }
        /// From 1; 0 when no token had been read, -1 at the end of the text.
        [[nodiscard]] int GetColumn() const { return m_column; }
        [[nodiscard]] const std::wstring& GetMessage() const { return m_message; }

    private:
        int m_line;
        int m_column;
        std::wstring m_message;
    };

    /// @param stream  read as far as tokens are asked for; must outlive the parser
    explicit AStreamParser(std::basic_istream<wchar_t>& stream);
    AStreamParser(const AStreamParser&) = delete;
    AStreamParser& operator=(const AStreamParser&) = delete;
    virtual ~AStreamParser();

    /// UTF-16 to UTF-8, and back. @throws std::range_error "bad conversion"
    [[nodiscard]] static std::string Convert(const std::wstring& text);
    [[nodiscard]] static std::wstring Convert(const std::string& text);

    /// Appends a file, each byte widened to one character, to `out`.
    /// @return false only when the file cannot be opened; an empty file is fine
    static bool Slurp(const std::string& fileName, std::basic_stringstream<wchar_t>& out);

protected:
    /// Reads the whole text, or throws CParseError.
    virtual void parse() = 0;

    /// Whether the next token is of this type; `eFloat` stands for integers too, `eError` for none. Nothing is taken.
    bool peek(ETokenType type);
    /// Whether the next token is this word, in any case of letters.
    bool peek(const std::wstring& identifier);

    /// Takes the next token. Another type gives false or, when asked for, a CParseError; it is taken all the same.
    bool match(ETokenType type, bool throwOnMismatch);
    /// Takes the next token. Another word gives false or a CParseError; a token that is no word always throws. It is
    /// taken all the same.
    bool match(const std::wstring& identifier, bool throwOnMismatch);
    /// Takes the rest of the line, leading blanks included, as one token. @return false at the end of the text
    bool match();

    /// Of the token taken last.
    [[nodiscard]] std::wstring getString() const;
    /// In base 10, held at the limits of an int; 0 for a token that is no number.
    [[nodiscard]] int getInteger() const;
    /// NaN when the number lies outside the range of doubles, 0 for a token that is no number.
    [[nodiscard]] double getDouble();
    [[nodiscard]] float getFloat();

    /// Lines read so far.
    [[nodiscard]] int getLine() const { return m_lineNumber; }
    /// Of the token taken last, from 1; 0 when there is none.
    [[nodiscard]] int getColumn() const;
    /// As messages show it.
    [[nodiscard]] std::wstring tokenTypeToStr(ETokenType type) const;

    /// Equal but for the case of letters.
    static bool iequal(const std::wstring& a, const std::wstring& b);
    static bool iequal(const wchar_t* begin, const wchar_t* end, const std::wstring& other);

    static void ltrim(std::wstring& text); ///< blanks of every kind at the left end
    static void rtrim(std::wstring& text); ///< at the right end
    static void trim(std::wstring& text);  ///< at both ends
    /// Only at the right end: all trailing characters of this set.
    static void trim(std::wstring& text, const wchar_t* characters);

private:
    struct SToken
    {
        const wchar_t* from = nullptr; ///< where looking began; null: nothing was looked at
        const wchar_t* start = nullptr;
        const wchar_t* end = nullptr;
        ETokenType type = eError;
    };

    bool nextLine();
    void readLine();
    bool ensureLine();
    const SToken& lookAhead();
    ETokenType tokenize(const wchar_t*& start, const wchar_t*& end);
    ETokenType tokenizeNumber(const wchar_t* start, const wchar_t*& end);
    [[nodiscard]] int columnOf(const wchar_t* place) const;
    [[noreturn]] void fail(const std::wstring& message) const;

    std::basic_istream<wchar_t>& m_stream;
    std::wstring m_line; ///< the pointers below look into it
    int m_lineNumber = 0;
    const wchar_t* m_tokenStart = nullptr;
    const wchar_t* m_position = nullptr;    ///< end of the current token
    SToken m_ahead;                         ///< the token behind that
    const wchar_t* m_numberStart = nullptr; ///< start of the text that has the value below
    double m_numberValue = std::numeric_limits<double>::quiet_NaN();
};

} // namespace Zorvan
