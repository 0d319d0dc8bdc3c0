// SPDX-License-Identifier: MIT
#include "fuzz/law.h"
#include "tests/support/temporaryfolder.h"

#include "zorvan/exchange/cobjparser.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Zorvan::COBJParser;
using Materials = std::vector<COBJParser::Material>;

const TemporaryFolder& folder()
{
    static const TemporaryFolder instance;
    return instance;
}

/// The materials of a library; none when it does not fit.
Materials read(const std::string& library)
{
    std::ofstream(folder() / "m.mtl", std::ios::binary | std::ios::trunc) << library;
    std::wistringstream text(L"mtllib m.mtl");
    COBJParser parser(text);
    parser.SetBaseDir(folder().Path().string());
    try {
        parser.Parse();
    } catch (const Zorvan::AStreamParser::CParseError& error) {
        Law(error.GetMessage().starts_with(L"Error parsing MTL file 'm.mtl': "), "an error names the library");
        return {};
    }
    return parser.GetMaterials();
}

/// A library with the same materials.
std::string textOf(const Materials& materials)
{
    const std::size_t prefix = folder().Path().string().size() + 1;
    std::ostringstream text;
    text.precision(9);
    text << std::showpoint;
    for (const auto& m : materials) {
        text << "newmtl " << m.name << '\n';
        for (const auto& [keyword, c] : {std::pair("Ka ", &m.Ka), {"Kd ", &m.Kd}, {"Ks ", &m.Ks}})
            text << keyword << c->x << ' ' << c->y << ' ' << c->z << '\n';
        for (const auto& [keyword, map] :
             {std::pair("map_Ka ", &m.map_Ka), {"map_Kd ", &m.map_Kd}, {"map_Ks ", &m.map_Ks}})
            if (!map->empty()) text << keyword << map->substr(prefix) << '\n';
    }
    return text.str();
}

bool isFinite(const COBJParser::Vector& v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

bool isSame(const COBJParser::Material& a, const COBJParser::Material& b)
{
    return a.name == b.name && a.Ka == b.Ka && a.Kd == b.Kd && a.Ks == b.Ks && a.map_Ka == b.map_Ka &&
           a.map_Kd == b.map_Kd && a.map_Ks == b.map_Ks;
}

} // namespace

/// What was read and is written reads the same again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Materials materials = read(std::string(data, data + size));
    const bool isWritable = std::ranges::all_of(
        materials, [](const auto& m) { return isFinite(m.Ka) && isFinite(m.Kd) && isFinite(m.Ks); });
    if (isWritable) Law(std::ranges::equal(materials, read(textOf(materials)), isSame), "materials read back the same");
    return 0;
}
