// SPDX-License-Identifier: MIT
#include "fuzz/law.h"

#include "zorvan/exchange/cobjparser.h"
#include "zorvan/platform/clogger.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

using graphene::Surface_mesh;
using Zorvan::COBJParser;

bool isFinite(const COBJParser::Vector& v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

bool isFinite(const COBJParser::TexCoords& t) { return std::isfinite(t.u) && std::isfinite(t.v); }

/// An OBJ text with the same arrays; nine digits give every float back.
std::wstring textOf(const COBJParser& parser)
{
    std::wostringstream text;
    text.precision(9);
    text << std::showpoint; // ".5" and "5" are read alike, but not "5e10" without a point
    for (const auto& v : parser.GetVertices()) text << "v " << v.x << ' ' << v.y << ' ' << v.z << '\n';
    for (const auto& t : parser.GetTextureCoords()) text << "vt " << t.u << ' ' << t.v << '\n';
    for (const auto& n : parser.GetNormals()) text << "vn " << n.x << ' ' << n.y << ' ' << n.z << '\n';
    for (const auto& face : parser.GetFaces()) {
        text << 'f';
        for (const auto& c : face.corners) {
            text << ' ' << c.vertex + 1; // a slash behind the last index would take the next corner along
            if (c.textureCoords != COBJParser::uiAbsent) text << '/' << c.textureCoords + 1;
            if (c.normal == COBJParser::uiAbsent) continue;
            text << (c.textureCoords == COBJParser::uiAbsent ? L"//" : L"/") << c.normal + 1;
        }
        text << '\n';
    }
    return text.str();
}

void checkMesh(const COBJParser& parser, bool mirrored)
{
    const Surface_mesh& mesh = parser.GetGrapheneMesh(mirrored);
    Law(mesh.GetNumVertices() == parser.GetVertices().size(), "every vertex is in the mesh");
    Law(mesh.GetNumFaces() <= parser.GetFaces().size(), "no face is made up");
    std::size_t corners = 0;
    for (const auto face : mesh.GetFaces())
        mesh.ForEachHalfedge(face, [&](auto h) {
            Law(mesh.GetFace(h) == face, "the halfedges of a face belong to it");
            Law(mesh.GetFromVertex(mesh.GetNext(h)) == mesh.GetToVertex(h), "halfedges follow one another");
            ++corners;
        });
    Law(corners <= mesh.GetNumHalfedges(), "a halfedge has one face at most");
    const Surface_mesh part = parser.GetGrapheneMesh(COBJParser::uiAbsent, mirrored);
    Law(part.GetNumFaces() == mesh.GetNumFaces(), "without materials, all faces are of none");
}

} // namespace

/// What was read and is written reads the same again, and makes a sound mesh.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Logging::SetLogLevel(Logging::ELogLevel::Fatal);
    std::wistringstream text(std::wstring(data, data + size));
    COBJParser parser(text);
    parser.SetBaseDir("/dev/null"); // no library is there
    try {
        parser.Parse();
    } catch (const Zorvan::AStreamParser::CParseError& error) {
        Law(!error.GetMessage().empty(), "an error says something");
    }
    checkMesh(parser, size % 2 == 0);

    const auto finite = [](const auto& values) {
        return std::ranges::all_of(values, [](const auto& v) { return isFinite(v); });
    };
    if (!finite(parser.GetVertices()) || !finite(parser.GetNormals()) || !finite(parser.GetTextureCoords())) return 0;
    std::wistringstream written(textOf(parser));
    COBJParser again(written);
    again.Parse();
    Law(again.GetVertices() == parser.GetVertices(), "vertices read back the same");
    Law(again.GetNormals() == parser.GetNormals(), "normals read back the same");
    Law(again.GetTextureCoords() == parser.GetTextureCoords(), "texture coordinates read back the same");
    Law(again.GetFaces() == parser.GetFaces(), "faces read back the same");
    return 0;
}
