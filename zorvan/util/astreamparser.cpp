// SPDX-License-Identifier: MIT
#include "zorvan/util/astreamparser.h"

#include "zorvan/platform/unicode.h"
#include "zorvan/util/direntries.h"
#include "zorvan/util/widetext.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <fstream>
#include <streambuf>
#include <string_view>
#include <utility>
#include <vector>

namespace Zorvan {

namespace {

/// The types of tokens of one character.
constexpr auto symbolTypes = [] {
    // In the order of their types from `eLeftParenthesis` on.
    constexpr std::string_view symbols = "()[]{}<>,:;+-@=#/";
    std::array<AStreamParser::ETokenType, 128> types;
    types.fill(AStreamParser::eError);
    for (std::size_t i = 0; i < symbols.size(); ++i)
        types[static_cast<unsigned char>(symbols[i])] =
            static_cast<AStreamParser::ETokenType>(AStreamParser::eLeftParenthesis + static_cast<int>(i));
    types['"'] = AStreamParser::eDoubleQuote;
    types['\''] = AStreamParser::eSingleQuote;
    return types;
}();

constexpr std::array<const wchar_t*, 24> tokenTexts{
    L"[EOF]", L"[EOL]", L"'('", L"')'",       L"'['",          L"']'",          L"'{'",  L"'}'",
    L"'<'",   L"'>'",   L"','", L"':'",       L"';'",          L"'+'",          L"'-'",  L"'@'",
    L"'='",   L"'#'",   L"'/'", L"[integer]", L"[fp. number]", L"[identifier]", L"'\"'", L"'\\''"};

AStreamParser::ETokenType symbolType(wchar_t c)
{
    // Negative ones lie far behind the end.
    const auto place = static_cast<std::size_t>(c); // NOLINT(bugprone-signed-char-misuse)
    return place < symbolTypes.size() ? symbolTypes[place] : AStreamParser::eError;
}

bool isSign(wchar_t c) { return c == L'+' || c == L'-'; }

bool opensNumber(const wchar_t* text)
{
    return *text == L'.' || WideText::IsDigit(*text) || (isSign(*text) && WideText::IsDigit(text[1]));
}

bool isWordCharacter(wchar_t c) { return c == L'_' || WideText::IsAlnum(c); }

bool fits(AStreamParser::ETokenType found, AStreamParser::ETokenType wanted)
{
    return found == wanted || (wanted == AStreamParser::eFloat && found == AStreamParser::eInteger);
}

} // namespace

AStreamParser::CParseError::CParseError(int line, int column, const std::wstring& message)
    : m_line(line), m_column(column), m_message(message)
{
}

AStreamParser::AStreamParser(std::basic_istream<wchar_t>& stream) : m_stream(stream) { m_line.reserve(512); }

AStreamParser::~AStreamParser() = default;

std::string AStreamParser::Convert(const std::wstring& text) { return Narrow(text); }

std::wstring AStreamParser::Convert(const std::string& text) { return Widen(text); }

bool AStreamParser::Slurp(const std::string& fileName, std::basic_stringstream<wchar_t>& out)
{
    if (IsFolder(fileName)) return false; // opens on some systems, and then fails to read
    std::ifstream in(fileName, std::ios::binary);
    if (!in) return false;

    std::vector<char> bytes(1 << 16);
    std::wstring text;
    while (in.read(bytes.data(), static_cast<std::streamsize>(bytes.size())) || in.gcount() > 0) {
        text.resize(static_cast<std::size_t>(in.gcount()));
        std::transform(bytes.begin(), bytes.begin() + in.gcount(), text.begin(),
                       [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
        out.write(text.data(), in.gcount());
    }
    return true;
}

bool AStreamParser::peek(ETokenType type)
{
    if (!ensureLine()) return type == eEndOfText;
    const ETokenType found = lookAhead().type;
    return found != eError && fits(found, type);
}

bool AStreamParser::peek(const std::wstring& identifier)
{
    if (!ensureLine()) return false;
    const SToken& found = lookAhead();
    return found.type == eIdentifier && iequal(found.start, found.end, identifier);
}

bool AStreamParser::match(ETokenType type, bool throwOnMismatch)
{
    if (!ensureLine()) {
        if (type == eEndOfText) return true;
        if (!throwOnMismatch) return false;
        throw CParseError(m_lineNumber, m_position ? columnOf(m_position) : -1, L"unexpected end of text");
    }

    const ETokenType found = lookAhead().type;
    m_tokenStart = m_ahead.start;
    m_position = m_ahead.end;
    if (fits(found, type)) return true;
    if (throwOnMismatch) fail(L"expected token " + tokenTypeToStr(type) + L", found " + tokenTypeToStr(found) + L".");
    return false;
}

bool AStreamParser::match(const std::wstring& identifier, bool throwOnMismatch)
{
    match(eIdentifier, true);
    if (iequal(m_tokenStart, m_position, identifier)) return true;
    if (throwOnMismatch) fail(L"expected identifier \"" + identifier + L"\" (found \"" + getString() + L"\")");
    return false;
}

bool AStreamParser::match()
{
    if (!m_position && !nextLine()) return false;
    m_tokenStart = m_position;
    m_position = m_line.data() + m_line.size();
    return true;
}

std::wstring AStreamParser::getString() const
{
    return m_tokenStart ? std::wstring(m_tokenStart, m_position) : std::wstring();
}

int AStreamParser::getInteger() const { return m_tokenStart ? WideText::ReadInteger(m_tokenStart) : 0; }

double AStreamParser::getDouble()
{
    if (m_numberStart == m_tokenStart) return m_numberValue;
    m_numberStart = m_tokenStart;
    const wchar_t* end = nullptr;
    if (m_tokenStart && !WideText::ReadDouble(m_tokenStart, end, m_numberValue)) {
        m_numberStart = nullptr;
        m_numberValue = std::numeric_limits<double>::quiet_NaN();
    }
    return m_numberValue;
}

float AStreamParser::getFloat() { return static_cast<float>(getDouble()); }

int AStreamParser::getColumn() const { return m_tokenStart ? columnOf(m_tokenStart) : 0; }

std::wstring AStreamParser::tokenTypeToStr(ETokenType type) const
{
    const int number = type;
    if (number == eError) return L"[error]";
    if (number < 0 || number >= static_cast<int>(tokenTexts.size())) return L"[#" + std::to_wstring(number) + L"]";
    return tokenTexts[static_cast<std::size_t>(number)];
}

bool AStreamParser::iequal(const std::wstring& a, const std::wstring& b)
{
    return iequal(a.data(), a.data() + a.size(), b);
}

bool AStreamParser::iequal(const wchar_t* begin, const wchar_t* end, const std::wstring& other)
{
    return std::equal(begin, end, other.begin(), other.end(),
                      [](wchar_t a, wchar_t b) { return a == b || WideText::ToLower(a) == WideText::ToLower(b); });
}

void AStreamParser::ltrim(std::wstring& text)
{
    text.erase(text.begin(), std::ranges::find_if_not(text, WideText::IsSpace));
}

void AStreamParser::rtrim(std::wstring& text)
{
    const auto last = std::find_if_not(text.rbegin(), text.rend(), WideText::IsSpace);
    text.erase(last.base(), text.end());
}

void AStreamParser::trim(std::wstring& text)
{
    rtrim(text);
    ltrim(text);
}

void AStreamParser::trim(std::wstring& text, const wchar_t* characters)
{
    text.resize(text.find_last_not_of(characters) + 1); // npos + 1 is 0: nothing is left
}

bool AStreamParser::nextLine()
{
    m_tokenStart = nullptr;
    m_position = nullptr;
    m_numberStart = nullptr; // the same places will hold another text
    m_ahead = {};
    while (m_stream.good()) {
        readLine();
        if (m_lineNumber < std::numeric_limits<int>::max()) ++m_lineNumber;
        m_line.resize(std::min(m_line.find(L'#'), m_line.size()));
        trim(m_line, L" \t");
        if (m_line.empty()) continue;
        m_position = m_line.data();
        return true;
    }
    return false;
}

/// Straight from the buffer: asking the stream for every character takes three times as long.
void AStreamParser::readLine()
{
    m_line.clear();
    std::array<wchar_t, 256> chunk;
    std::size_t length = 0;
    std::wstreambuf& buffer = *m_stream.rdbuf();
    try {
        auto c = buffer.sbumpc();
        for (; c != L'\n' && c != L'\r' && c != WEOF; c = buffer.sbumpc()) {
            chunk[length++] = static_cast<wchar_t>(c);
            if (length == chunk.size()) m_line.append(chunk.data(), std::exchange(length, 0));
        }
        if (c == WEOF) m_stream.setstate(std::ios::eofbit | std::ios::failbit);
    } catch (const std::ios::failure&) { // a file that cannot be read on
        m_stream.setstate(std::ios::badbit);
    }
    m_line.append(chunk.data(), length);
}

bool AStreamParser::ensureLine() { return (m_position && *m_position != L'\0') || nextLine(); }

/// Several questions about the next token, and then taking it, cost one reading.
const AStreamParser::SToken& AStreamParser::lookAhead()
{
    if (m_ahead.from == m_position) return m_ahead;
    m_ahead = {m_position, m_position, m_position, eError};
    m_ahead.type = tokenize(m_ahead.start, m_ahead.end);
    return m_ahead;
}

AStreamParser::ETokenType AStreamParser::tokenize(const wchar_t*& start, const wchar_t*& end)
{
    while (*start == L'\t' || *start == L'\n' || *start == L'\r' || *start == L' ') ++start;
    end = start;
    if (*start == L'\0') return eEndOfText;
    ++end;

    if (opensNumber(start)) return tokenizeNumber(start, end);
    if (const ETokenType symbol = symbolType(*start); symbol != eError) return symbol;
    if (*start != L'_' && !WideText::IsAlpha(*start)) return eError;
    while (isWordCharacter(*end)) ++end;
    return eIdentifier;
}

/// The first character is known to open a number and is not looked at again: `.5` without an exponent is an integer.
AStreamParser::ETokenType AStreamParser::tokenizeNumber(const wchar_t* start, const wchar_t*& end)
{
    while (WideText::IsDigit(*end)) ++end;
    const bool isExponent = *end == L'e' || *end == L'E';
    if (*end != L'.' && !isExponent) return eInteger;
    if (isExponent && !WideText::IsDigit(end[1]) && !isSign(end[1])) return eInteger;

    const wchar_t* behind = nullptr;
    double value = 0.0;
    m_numberStart = nullptr;
    if (!WideText::ReadDouble(start, behind, value) || behind == start) return eError;
    m_numberStart = start;
    m_numberValue = value;
    end = behind;
    return eFloat;
}

int AStreamParser::columnOf(const wchar_t* place) const { return static_cast<int>(place - m_line.data()) + 1; }

void AStreamParser::fail(const std::wstring& message) const { throw CParseError(m_lineNumber, getColumn(), message); }

} // namespace Zorvan
