// SPDX-License-Identifier: MIT
#include "commands.h"
#include "options.h"

#include "tools/pictures/picture.h"
#include "zorvan/exchange/cobjwriter.h"
#include "zorvan/scans/atomicfile.h"
#include "zorvan/scans/filebytes.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/scans/objtext.h"
#include "zorvan/scans/showntext.h"
#include "zorvan/scans/stagingfolder.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tools {

namespace {

using graphene::Surface_mesh;
using Zorvan::COBJParser;
using Zorvan::COBJWriter;
using Atlas = Zorvan::TImage<unsigned int>;
using TextureCoords = graphene::Vector<float, 2>;

constexpr std::size_t uiMostMaterials = 1000; // each costs a walk over the whole mesh, and three files

struct ConvertOptions
{
    std::filesystem::path file;
    std::filesystem::path folder;
    GeneralOptions general;
};

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

/// What the texture of a material shows; nothing, with a word, when it cannot be read.
std::optional<Atlas> readTexture(const std::string& map)
{
    if (map.empty()) return std::nullopt;
    try {
        return ToImage(ReadPng(map));
    } catch (const Zorvan::CInputError& error) {
        Tell(std::string(error.what()) + "; its faces get the colour of their material instead", false);
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

/// Converts the parts of one file, one after another.
class CConversion
{
public:
    CConversion(const ConvertOptions& options, const COBJParser& parser)
        : m_options(options), m_parser(parser), m_staging(options.folder)
    {
    }

    [[nodiscard]] bool IsComplete() const { return m_isComplete; }

    /// All parts appear together, with a line for each on standard output. @throws CInputError
    void Publish()
    {
        m_staging.Publish();
        std::cout << m_words;
    }

    /// @throws CInputError
    void Write(unsigned int material, const std::string& baseName)
    {
        const Surface_mesh mesh = m_parser.GetGrapheneMesh(material, false);
        const auto coords = mesh.GetHalfedgeProperty<TextureCoords>("h:texturecoords");
        const COBJParser::Material* const from =
            material == COBJParser::uiAbsent ? nullptr : &m_parser.GetMaterials()[material];
        const std::optional<Atlas> texture = from && coords ? readTexture(from->map_Kd) : std::nullopt;
        if (from && coords && !from->map_Kd.empty() && !texture) m_isComplete = false;

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
        m_words += Zorvan::ToShown((m_options.folder / (baseName + ".obj")).string()) + ": vertices " +
                   std::to_string(mesh.GetNumVertices()) + ", faces " + std::to_string(mesh.GetNumFaces()) +
                   (texture ? ", with a texture\n" : ", of one colour\n");
    }

private:
    void write(COBJWriter& writer, const std::string& baseName) const
    {
        if (!writer.Write())
            throw Zorvan::CInputError(m_options.folder / (baseName + ".obj"), "cannot be written",
                                      "check the folder and the disk");
    }

    const ConvertOptions& m_options;
    const COBJParser& m_parser;
    Zorvan::CStagingFolder m_staging;
    std::string m_words;
    bool m_isComplete = true;
};

/// @return whether nothing was lost
bool convertParts(const ConvertOptions& options, const COBJParser& parser)
{
    const std::string stem = safeName(options.file.stem().string());
    const std::set<unsigned int> materials = usedMaterials(parser);
    CConversion conversion(options, parser);
    std::set<std::string> names;
    for (const unsigned int material : materials) {
        std::string name = materials.size() == 1 ? stem : stem + "_" + nameOf(parser, material);
        while (!names.insert(name).second) name += "_";
        conversion.Write(material, name);
    }
    conversion.Publish();
    const std::size_t lost = parser.GetFaces().size() - parser.GetGrapheneMesh(false).GetNumFaces();
    if (lost > 0)
        Tell(options.file.string() + ": left out " + std::to_string(lost) + " of " +
                 std::to_string(parser.GetFaces().size()) + " faces, which do not fit into a surface with two sides",
             false);
    return lost == 0 && conversion.IsComplete();
}

int convert(const ConvertOptions& options)
{
    options.general.Apply();
    const std::string bytes = Zorvan::ReadFileBytes(options.file);
    Zorvan::CObjText text(bytes, Zorvan::CObjText::EMaterials::Read);
    COBJParser parser(text);
    const auto folder = options.file.has_parent_path() ? options.file.parent_path() : std::filesystem::path(".");
    parser.SetBaseDir(folder.string());
    text.Parse(parser, options.file);
    requireConvertible(parser, options.file);

    Zorvan::MakeFolder(options.folder);
    if (std::filesystem::equivalent(folder, options.folder))
        throw Zorvan::CInputError(options.folder, "the input is there",
                                  "give another folder, so that nothing of it is replaced");
    return convertParts(options, parser) ? Done : NotEveryScan;
}

} // namespace

void AddConvert(CCommand app)
{
    const auto options = std::make_shared<ConvertOptions>();
    CCommand command = app.AddCommand("convert", "A mesh in OBJ, split by material, with its textures");
    command.AddOption("IN.obj", options->file, "Mesh in OBJ, with MTL and PNG where it says").Required();
    command.AddOption("-o,--output", options->folder, "Folder for NAME.obj, NAME.mtl and NAME_MATERIAL.png").Required();
    options->general.AddTo(command, "Accepted for all commands; this one uses one");
    command.SetFooter(
        "Each material that has faces becomes a mesh of its own: NAME is that of IN.obj, and with several\n"
        "materials the material's behind it.\n"
        "Exit code 1: some faces or textures could not be taken over, with a line for each kind.\n\n"
        "Examples:\n"
        "  zorvan convert jaw.obj -o out");
    command.SetAction([options] { return convert(*options); });
}

} // namespace tools
