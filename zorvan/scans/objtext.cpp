// SPDX-License-Identifier: MIT
#include "zorvan/scans/objtext.h"

#include "zorvan/scans/inputerror.h"

#include <algorithm>
#include <cctype>

namespace Zorvan {

namespace {

/// Behind the last line, so that a parser that stops in that one is seen to stop before the end.
constexpr std::string_view lastLine = "\no\n";

bool isBreak(char c) { return c == '\n' || c == '\r'; }

/// Whether the first word of a line is this one, in any case of letters.
bool beginsWith(std::string_view line, std::string_view word)
{
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const bool isLonger = line.size() > word.size() && std::isalnum(static_cast<unsigned char>(line[word.size()])) != 0;
    return line.size() >= word.size() && !isLonger &&
           std::equal(word.begin(), word.end(), line.begin(),
                      [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

} // namespace

CObjText::CObjText(std::string_view bytes, EMaterials eMaterials)
    : std::wistream(static_cast<std::wstreambuf*>(this)), m_rest(bytes), m_eMaterials(eMaterials)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (m_rest.starts_with(byteOrderMark)) m_rest.remove_prefix(byteOrderMark.size());
}

std::wstreambuf::int_type CObjText::underflow()
{
    if (m_rest.empty() && !m_isLastGiven) {
        m_rest = lastLine;
        m_isLastGiven = true;
    }
    m_isAtEnd = m_rest.empty();
    if (m_isAtEnd) return std::wstreambuf::traits_type::eof();

    const auto* const lineBreak = std::find_if(m_rest.begin(), m_rest.end(), isBreak);
    const auto length = std::min<std::size_t>(static_cast<std::size_t>(lineBreak - m_rest.begin()) + 1, m_rest.size());
    const std::string_view line = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    m_lineNumber = m_numBreaks + 1;
    if (line.back() == '\n') ++m_numBreaks;

    m_line.resize(length);
    std::transform(line.begin(), line.end(), m_line.begin(), [](unsigned char c) { return static_cast<wchar_t>(c); });
    const bool isPassedOver =
        m_eMaterials == EMaterials::PassOver && (beginsWith(line, "mtllib") || beginsWith(line, "usemtl"));
    if (isPassedOver) m_line.front() = L'#';
    setg(m_line.data(), m_line.data(), m_line.data() + m_line.size());
    return std::wstreambuf::traits_type::to_int_type(m_line.front());
}

void CObjText::Parse(Zorvan::COBJParser& parser, const std::filesystem::path& file) const
{
    const auto refuse = [&](const std::string& why) {
        throw CInputError(file, "line " + std::to_string(m_lineNumber) + ": " + why, "export it again");
    };
    try {
        parser.Parse();
    } catch (const Zorvan::AStreamParser::CParseError& error) {
        refuse(Zorvan::AStreamParser::Convert(error.GetMessage()));
    }
    if (!m_isAtEnd) refuse("begins with no word");
}

} // namespace Zorvan
