// SPDX-License-Identifier: MIT
#include "zorvan/exchange/cobjparser.h"
#include "zorvan/exchange/widefile.h"

#include <stdexcept>
#include <utility>

namespace Zorvan {

namespace {

/// Of all libraries of one file. One that is named again is read again, so that a short file could ask for any amount.
constexpr std::size_t uiMaxLibraryBytes = std::size_t{64} << 20U;

/// UTF-8 as text, and what is none byte by byte.
std::wstring shown(const std::string& name)
{
    try {
        return AStreamParser::Convert(name);
    } catch (const std::range_error&) {
        std::wstring text;
        for (const char c : name) text.push_back(static_cast<unsigned char>(c));
        return text;
    }
}

} // namespace

/// Strict: the value of `illum` must be a word, and a statement that is not known ends the material, so that the next
/// one is expected there. Callers rely on a report of libraries that say more than is read.
class COBJParser::MTLParser : public AStreamParser
{
public:
    MTLParser(std::basic_istream<wchar_t>& stream, const std::string& baseDir, std::vector<Material>& materials)
        : AStreamParser(stream), m_baseDir(baseDir), m_materials(materials)
    {
    }

    void parse() override
    {
        while (peek(eIdentifier)) {
            match(L"newmtl", true);
            Material material;
            material.name = readRest();
            while (readStatement(material)) {
            }
            m_materials.push_back(std::move(material));
        }
    }

private:
    /// @return false when the next word is no statement of a material
    bool readStatement(Material& material)
    {
        return readColour(L"Ka", material.Ka) || readColour(L"Kd", material.Kd) || readColour(L"Ks", material.Ks) ||
               readMap(L"map_Ka", material.map_Ka) || readMap(L"map_Kd", material.map_Kd) ||
               readMap(L"map_Ks", material.map_Ks) || skip(L"Tr", eFloat) || skip(L"Ns", eFloat) ||
               skip(L"sharpness", eFloat) || skip(L"illum", eIdentifier);
    }

    bool readColour(const wchar_t* keyword, Vector& colour)
    {
        if (!take(keyword)) return false;
        for (float* channel : {&colour.x, &colour.y, &colour.z}) {
            match(eFloat, true);
            *channel = getFloat();
        }
        return true;
    }

    bool readMap(const wchar_t* keyword, std::string& map)
    {
        if (!take(keyword)) return false;
        map = m_baseDir + "/" + readRest();
        return true;
    }

    bool skip(const wchar_t* keyword, ETokenType value) { return take(keyword) && match(value, true); }

    bool take(const wchar_t* keyword) { return peek(keyword) && match(keyword, true); }

    std::string readRest()
    {
        match();
        return toName(getString());
    }

    const std::string& m_baseDir;
    std::vector<Material>& m_materials;
};

void COBJParser::parseMTLLIB(const std::string& fileName)
{
    CWideFile library(m_baseDir + "/" + fileName, m_ciBufferSize);
    if (!library.IsOpen()) fail(L"Failed to open MTL file " + shown(fileName));
    const auto failInside = [&](const std::wstring& why) {
        fail(L"Error parsing MTL file '" + shown(fileName) + L"': " + why);
    };
    if (m_libraryBytes > uiMaxLibraryBytes) failInside(L"the libraries of one file hold more than 64 MiB");
    const std::size_t before = m_materials.size();
    try {
        MTLParser(library, m_baseDir, m_materials).parse();
    } catch (const CParseError& error) {
        failInside(L"line " + std::to_wstring(error.GetLine()) + L", column " + std::to_wstring(error.GetColumn()) +
                   L": " + error.GetMessage());
    }
    if (library.HasFailed()) failInside(L"it cannot be read to its end");
    m_libraryBytes += library.GetBytesRead();
    for (std::size_t i = before; i < m_materials.size(); ++i)
        m_materialsByName.emplace(m_materials[i].name, static_cast<unsigned int>(i));
}

} // namespace Zorvan
