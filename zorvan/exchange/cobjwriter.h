// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/colour/rgb.h"
#include "zorvan/exchange/surfacemesh.h"
#include "zorvan/exchange/timage.h"
#include "zorvan/platform/export.h"

#include <functional>
#include <string>
#include <vector>

namespace Zorvan {

/// Writes a mesh as Wavefront OBJ with an MTL library of two materials and a picture in PNG. Textured faces come first,
/// under the first material; all others show the flat colour of the second.
///
///     COBJWriter writer("out", "jaw", mesh, isTextured, textureCoordinate, atlas);
///     writer.SetColorUntextured({255, 0, 0});
///     if (!writer.Write()) report(writer.GetOBJFilename());    // out/jaw.obj, out/jaw.mtl, out/jaw_textured.png
///
/// Numbers have six digits, whatever locale the host has set. Indices are those of the mesh, and deleted vertices are
/// left out: collect the garbage of the mesh first. Mesh and atlas are not copied, and must not change meanwhile.
class ZORVAN_API COBJWriter
{
public:
    using Surface_mesh = graphene::Surface_mesh;
    using IsTextured = std::function<bool(Surface_mesh::Face)>;
    /// Of the corner that a halfedge leaves, within its face; v runs downwards, as the rows of the atlas.
    using TextureCoordinate = std::function<graphene::Vector<float, 2>(Surface_mesh::Halfedge)>;

    /// Colours are 0 to 255.
    struct SMaterial
    {
        std::string name;
        cs::RGB ambient;
        cs::RGB diffuse;
        cs::RGB specular;
        double sharpness;
    };

    /// @param directory  exists already
    /// @param atlas      pixels of 0xAARRGGBB
    COBJWriter(const std::string& directory, const std::string& baseName, const Surface_mesh& mesh,
               IsTextured isTextured, TextureCoordinate textureCoordinate, const TImage<unsigned int>& atlas);

    /// Library, picture and mesh, in this order.
    /// @return false when one of them could not be written whole; what was written stays
    /// @throws std::bad_function_call when a function is asked that is empty, std::out_of_range "invalid key" when
    ///         `isTextured` changes its answer
    [[nodiscard]] bool Write();

    [[nodiscard]] SMaterial& GetMaterialTextured() { return m_textured; }
    [[nodiscard]] const SMaterial& GetMaterialTextured() const { return m_textured; }
    [[nodiscard]] SMaterial& GetMaterialUntextured() { return m_untextured; }
    [[nodiscard]] const SMaterial& GetMaterialUntextured() const { return m_untextured; }

    /// The diffuse colour of the untextured material.
    [[nodiscard]] const cs::RGB& GetColorUntextured() const { return m_untextured.diffuse; }
    void SetColorUntextured(const cs::RGB& colour) { m_untextured.diffuse = colour; }

    [[nodiscard]] std::string GetOBJFilename() const;
    [[nodiscard]] std::string GetMTLFilename() const;
    /// Empty when neither material has this name.
    [[nodiscard]] std::string GetAtlasBitmapFilename(const std::string& materialName) const;

private:
    class CTextFile;
    using Numbers = std::vector<int>; ///< of texture coordinates, by halfedge; 0: it has none

    [[nodiscard]] bool writeMTL(const std::string& fileName, const std::string& texture) const;
    static void writeMTL_def(CTextFile& file, const SMaterial& material, const std::string& texture);
    [[nodiscard]] bool writeOBJ(const std::string& fileName, const std::string& library) const;
    [[nodiscard]] bool writeOBJ_vertices(CTextFile& file) const;
    [[nodiscard]] bool writeOBJ_vertexNormals(CTextFile& file) const;
    [[nodiscard]] Numbers writeOBJ_textureCoords(CTextFile& file, int& next) const;
    [[nodiscard]] bool writeOBJ_faces(CTextFile& file, const Numbers& numbers) const;
    [[nodiscard]] bool writeOBJ_untexturedFaces(CTextFile& file, int number) const;
    [[nodiscard]] bool writeAtlasBitmap(const std::string& fileName) const;

    SMaterial m_textured{"textured", cs::RGB(0.0), cs::RGB(255.0), cs::RGB(255.0), 33};
    SMaterial m_untextured{"untextured", cs::RGB(0.0), cs::RGB(255, 234, 143), cs::RGB(255.0), 33};
    std::string m_directory;
    std::string m_baseName;
    const Surface_mesh* m_mesh;
    IsTextured m_isTextured;
    TextureCoordinate m_textureCoordinate;
    const TImage<unsigned int>* m_atlas;
};

} // namespace Zorvan
