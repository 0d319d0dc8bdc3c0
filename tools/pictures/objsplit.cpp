// SPDX-License-Identifier: MIT
#include "objsplit.h"

#include "picture.h"

#include "zorvan/exchange/cobjwriter.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/objtext.h"
#include "zorvan/scans/stagingfolder.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace tools {

namespace {

using graphene::Surface_mesh;
using Zorvan::COBJParser;
using Zorvan::COBJWriter;
using Atlas = Zorvan::TImage<unsigned int>;
using TextureCoords = graphene::Vector<float, 2>;

constexpr std::size_t uiMostMaterials = 1000; // each costs a walk over the whole mesh, and three files

/// What other programs take for a name of a file and of a material.
std::string safeName(std::string name)
{
    for (char& c : name)
        if (static_cast<unsigned char>(c) < 0x20 ||
            std::string_view("/\\#:*?\"<>|\x7F").find(c) != std::string_view::npos)
            c = '_';
    return name.empty() ? "unnamed" : name;
}

std::string nameOf(const COBJParser& parser, unsigned int material)
{
    return material == COBJParser::uiAbsent ? "none" : safeName(parser.GetMaterials()[material].name);
}

/// That have faces; those without a material last.
std::set<unsigned int> usedMaterials(const COBJParser& parser)
{
    std::set<unsigned int> used;
    for (const COBJParser::Face& face : parser.GetFaces()) used.insert(face.material);
    return used;
}

void requireConvertible(const COBJParser& parser, const std::filesystem::path& file)
{
    if (parser.GetFaces().empty()) throw Zorvan::CInputError(file, "holds no face", "give a mesh");
    const bool isFinite = std::ranges::all_of(parser.GetVertices(), [](const COBJParser::Vector& v) {
        return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
    });
    if (!isFinite) throw Zorvan::CInputError(file, "holds coordinates that are not finite", "mend the mesh");
    if (usedMaterials(parser).size() > uiMostMaterials)
        throw Zorvan::CInputError(file, "uses more than " + std::to_string(uiMostMaterials) + " materials",
                                  "join some: each becomes files of its own");
}

/// What the texture of a material shows; nothing, and why among the losses, when it cannot be read.
std::optional<Atlas> readTexture(const std::string& map, std::vector<std::string>& losses)
{
    if (map.empty()) return std::nullopt;
    try {
        return ToImage(ReadPng(map));
    } catch (const Zorvan::CInputError& error) {
        losses.push_back(std::string(error.what()) + "; its faces get the colour of their material instead");
        return std::nullopt;
    }
}

void setColours(COBJWriter::SMaterial& to, const COBJParser::Material& from)
{
    const auto scaled = [](const COBJParser::Vector& c) {
        return Zorvan::cs::RGB(255.0 * c.x, 255.0 * c.y, 255.0 * c.z);
    };
    to.ambient = scaled(from.Ka);
    to.diffuse = scaled(from.Kd);
    to.specular = scaled(from.Ks);
}

/// Writes the parts of one file, one after another.
class CConversion
{
public:
    CConversion(std::filesystem::path folder, const COBJParser& parser)
        : m_folder(std::move(folder)), m_parser(parser), m_staging(m_folder)
    {
    }

    /// All parts appear together. @throws CInputError
    ObjSplit Publish()
    {
        m_staging.Publish();
        return std::move(m_split);
    }

    /// @throws CInputError
    void Write(unsigned int material, const std::string& baseName)
    {
        const Surface_mesh mesh = m_parser.GetGrapheneMesh(material, false);
        const auto coords = mesh.GetHalfedgeProperty<TextureCoords>("h:texturecoords");
        const COBJParser::Material* const from =
            material == COBJParser::uiAbsent ? nullptr : &m_parser.GetMaterials()[material];
        const std::optional<Atlas> texture = from && coords ? readTexture(from->map_Kd, m_split.losses) : std::nullopt;

        const Atlas nothing(1, 1, 0xFFFFFFFFU);
        // The writer turns v round, since rows of pictures run downwards; here it stays.
        COBJWriter writer((m_staging / "").string(), baseName, mesh,
                          [&](Surface_mesh::Face) { return texture.has_value(); },
                          [&](Surface_mesh::Halfedge h) { return TextureCoords(coords[h][0], 1.0F - coords[h][1]); },
                          texture ? *texture : nothing);
        COBJWriter::SMaterial& used = texture ? writer.GetMaterialTextured() : writer.GetMaterialUntextured();
        COBJWriter::SMaterial& unused = texture ? writer.GetMaterialUntextured() : writer.GetMaterialTextured();
        if (from) {
            setColours(used, *from);
            used.name = safeName(from->name);
            unused.name = "not_" + used.name;
        }
        write(writer, baseName);
        m_split.parts.push_back(
            {m_folder / (baseName + ".obj"), mesh.GetNumVertices(), mesh.GetNumFaces(), texture.has_value()});
    }

private:
    void write(COBJWriter& writer, const std::string& baseName) const
    {
        if (!writer.Write())
            throw Zorvan::CInputError(m_folder / (baseName + ".obj"), "cannot be written",
                                      "check the folder and the disk");
    }

    std::filesystem::path m_folder;
    const COBJParser& m_parser;
    Zorvan::CStagingFolder m_staging;
    ObjSplit m_split;
};

ObjSplit split(const COBJParser& parser, const std::filesystem::path& file, const std::filesystem::path& folder)
{
    const std::string stem = safeName(file.stem().string());
    const std::set<unsigned int> materials = usedMaterials(parser);
    CConversion conversion(folder, parser);
    std::set<std::string> names;
    for (const unsigned int material : materials) {
        std::string name = materials.size() == 1 ? stem : stem + "_" + nameOf(parser, material);
        while (!names.insert(name).second) name += "_";
        conversion.Write(material, name);
    }
    ObjSplit result = conversion.Publish();
    const std::size_t lost = parser.GetFaces().size() - parser.GetGrapheneMesh(false).GetNumFaces();
    if (lost > 0)
        result.losses.push_back(file.string() + ": left out " + std::to_string(lost) + " of " +
                                std::to_string(parser.GetFaces().size()) +
                                " faces, which do not fit into a surface with two sides");
    return result;
}

} // namespace

ObjSplit SplitByMaterial(const std::filesystem::path& file, const std::filesystem::path& folder)
{
    const std::string bytes = Zorvan::ReadFileBytes(file);
    Zorvan::CObjText text(bytes, Zorvan::CObjText::EMaterials::Read);
    COBJParser parser(text);
    const auto home = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    parser.SetBaseDir(home.string());
    text.Parse(parser, file);
    requireConvertible(parser, file);

    Zorvan::MakeFolder(folder);
    if (std::filesystem::equivalent(home, folder))
        throw Zorvan::CInputError(folder, "the input is there",
                                  "give another folder, so that nothing of it is replaced");
    return split(parser, file, folder);
}

} // namespace tools
