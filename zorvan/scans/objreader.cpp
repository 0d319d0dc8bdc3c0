// SPDX-License-Identifier: MIT
#include "zorvan/scans/objreader.h"

#include "zorvan/scans/farcoordinates.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/objtext.h"
#include "zorvan/scans/vectors.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Zorvan {

namespace {

using Zorvan::COBJParser;

Vector3 toVector(const COBJParser::Vector& v) { return {v.x, v.y, v.z}; }

bool hasNormals(const COBJParser::Face& face)
{
    return std::ranges::none_of(face.corners, [](const auto& c) { return c.normal == COBJParser::uiAbsent; });
}

void appendFace(Scan& scan, const COBJParser& parser, const COBJParser::Face& face, bool withNormals)
{
    const auto first = static_cast<std::uint32_t>(scan.points.size());
    for (const COBJParser::Corner& corner : face.corners) {
        scan.points.push_back(toVector(parser.GetVertices()[corner.vertex]));
        if (withNormals) scan.normals.push_back(toVector(parser.GetNormals()[corner.normal]));
    }
    for (std::uint32_t i = 2; i < face.corners.size(); ++i) scan.faces.push_back({first, first + i - 1, first + i});
}

} // namespace

Scan ReadObj(std::string_view bytes, const std::filesystem::path& file)
{
    CObjText text(bytes, CObjText::EMaterials::PassOver);
    COBJParser parser(text);
    text.Parse(parser, file);

    Scan scan;
    const auto isSurface = [](const COBJParser::Face& face) { return face.corners.size() >= 3; };
    const bool withNormals = std::ranges::all_of(
        parser.GetFaces(), [&](const COBJParser::Face& face) { return !isSurface(face) || hasNormals(face); });
    for (const COBJParser::Face& face : parser.GetFaces())
        if (isSurface(face)) appendFace(scan, parser, face, withNormals);
    if (scan.faces.empty())
        for (const auto& v : parser.GetVertices()) scan.points.push_back(toVector(v));
    if (scan.points.empty()) throw CInputError(file, "holds no point", "export points or a mesh");
    ShiftFarPoints(scan);
    return scan;
}

} // namespace Zorvan
