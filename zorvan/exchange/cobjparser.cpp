// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjparser.h"

#include "zorvan/exchange/widefile.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Zorvan {

namespace {

const Logging::CLogger logger(L"QAV2.COBJParser");

std::unique_ptr<CWideFile> openFile(const std::string& fileName)
{
    auto file = std::make_unique<CWideFile>(fileName, COBJParser::m_ciBufferSize);
    if (!file->IsOpen()) throw AStreamParser::CParseError(-1, -1, L"file not found");
    return file;
}

} // namespace

struct COBJParser::Statement
{
    std::wstring keyword;
    void (COBJParser::*read)();
};

COBJParser::COBJParser(std::basic_istream<wchar_t>& stream) : AStreamParser(stream) {}

COBJParser::COBJParser(const std::string& fileName) : COBJParser(openFile(fileName))
{
    const std::size_t end = fileName.find_last_of("/\\");
    if (end != std::string::npos) m_baseDir = fileName.substr(0, end);
}

COBJParser::COBJParser(std::unique_ptr<CWideFile> file) : AStreamParser(*file), m_file(std::move(file)) {}

COBJParser::~COBJParser() = default;

void COBJParser::Parse()
{
    while (peek(eIdentifier)) readStatement();
    if (m_file && m_file->HasFailed()) fail(L"the file cannot be read to its end");
}

void COBJParser::readStatement()
{
    // The most frequent first.
    static const std::array<Statement, 9> statements{{{L"v", &COBJParser::readVertex},
                                                      {L"f", &COBJParser::readFace},
                                                      {L"vt", &COBJParser::readTextureCoords},
                                                      {L"vn", &COBJParser::readNormal},
                                                      {L"usemtl", &COBJParser::readUsedMaterial},
                                                      {L"o", &COBJParser::skipRest},
                                                      {L"g", &COBJParser::skipRest},
                                                      {L"s", &COBJParser::skipRest},
                                                      {L"mtllib", &COBJParser::readLibrary}}};
    match(eIdentifier, true);
    const std::wstring word = getString();
    const auto* const found =
        std::ranges::find_if(statements, [&](const Statement& s) { return iequal(word, s.keyword); });
    if (found != statements.end()) return (this->*found->read)();
    logger.Warn(L"unsupported token \"%s\"", word);
    skipRest();
}

void COBJParser::readVertex()
{
    m_vertices.push_back(readVector());
    skipRest();
}

void COBJParser::readTextureCoords()
{
    TexCoords coords;
    coords.u = readFloat();
    coords.v = readFloat();
    m_textureCoords.push_back(coords);
    skipRest();
}

void COBJParser::readNormal() { m_normals.push_back(readVector()); }

void COBJParser::readFace()
{
    m_corners.clear();
    while (peek(eInteger)) m_corners.push_back(readCorner());
    if (!m_corners.empty()) m_faces.push_back({m_material, m_corners});
}

void COBJParser::readLibrary() { parseMTLLIB(readName()); }

void COBJParser::readUsedMaterial()
{
    const auto found = m_materialsByName.find(readName());
    if (found == m_materialsByName.end()) fail(L"usemtl: unknown material");
    m_material = found->second;
}

void COBJParser::skipRest() { match(); }

COBJParser::Vector COBJParser::readVector()
{
    Vector vector;
    for (float* number : {&vector.x, &vector.y, &vector.z}) *number = readFloat();
    return vector;
}

float COBJParser::readFloat()
{
    match(eFloat, true);
    return getFloat();
}

COBJParser::Corner COBJParser::readCorner()
{
    Corner corner;
    corner.vertex = readIndex(m_vertices.size(), L"invalid vertex index");
    if (!takeSlash()) return corner;
    if (peek(eInteger)) corner.textureCoords = readIndex(m_textureCoords.size(), L"invalid texture coordinate index");
    if (!takeSlash()) return corner;
    if (peek(eInteger)) corner.normal = readIndex(m_normals.size(), L"invalid normal index");
    return corner;
}

unsigned int COBJParser::readIndex(std::size_t count, const wchar_t* message)
{
    match(eInteger, true);
    const int number = getInteger();
    if (number < 1 || static_cast<std::size_t>(number) > count) fail(message);
    return static_cast<unsigned int>(number) - 1;
}

bool COBJParser::takeSlash() { return peek(eSlash) && match(eSlash, false); }

std::string COBJParser::readName()
{
    match();
    return toName(getString());
}

/// Text of bytes is trimmed as such: a byte within UTF-8 may look like a blank of another alphabet.
std::string COBJParser::toName(std::wstring text)
{
    constexpr std::string_view blanks = " \t\v\f";
    const bool isBytes = std::ranges::all_of(text, [](wchar_t c) { return c >= 0 && c <= 0xFF; });
    if (!isBytes) {
        trim(text);
        return Convert(text);
    }
    std::string name(text.size(), '\0');
    std::ranges::transform(text, name.begin(), [](wchar_t c) { return static_cast<char>(c); });
    name.erase(name.find_last_not_of(blanks) + 1);
    return name.erase(0, std::min(name.find_first_not_of(blanks), name.size()));
}

void COBJParser::fail(const std::wstring& message) const { throw CParseError(getLine(), getColumn(), message); }

} // namespace Zorvan
