// SPDX-License-Identifier: MIT
#pragma once

#include "zorvan/exchange/surfacemesh.h"
#include "zorvan/platform/export.h"
#include "zorvan/util/astreamparser.h"

#include <cstddef>
#include <istream>
#include <limits>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Zorvan {

class CWideFile;

/// Reads Wavefront OBJ with the MTL libraries that it names: positions, texture coordinates, normals, polygons,
/// materials with their texture maps.
///
///     COBJParser parser("scans/jaw.obj");
///     parser.Parse();                                          // throws CParseError with line, column and reason
///     const graphene::Surface_mesh& mesh = parser.GetGrapheneMesh(false);
///
/// Tokens are those of `AStreamParser`: `#` begins a comment anywhere, a number must have a digit or a point after its
/// sign (`-.5` is refused), and a statement may go on in the next line. Indices count from 1, must not be negative, and
/// must refer to what stands before them. Statements that are not known are passed over with a warning; a line that
/// does not begin with a word ends the reading without one.
///
/// Names and file names are taken byte by byte from files, so that UTF-8 stays UTF-8; a host's own stream may also hold
/// other characters, and then names come out in UTF-8. One thread uses a parser; `GetGrapheneMesh` fills a cache.
class ZORVAN_API COBJParser : public AStreamParser
{
public:
    /// Of the buffer through which files are read, in characters.
    static constexpr unsigned int m_ciBufferSize = 16384;
    /// Stands for an index or a material that is absent.
    static constexpr unsigned int uiAbsent = std::numeric_limits<unsigned int>::max();

    struct Vector
    {
        float x = 0, y = 0, z = 0;
        friend bool operator==(const Vector&, const Vector&) = default;
    };
    struct TexCoords
    {
        float u = 0, v = 0;
        friend bool operator==(const TexCoords&, const TexCoords&) = default;
    };
    /// Indices from 0, or `uiAbsent`.
    struct Corner
    {
        unsigned int vertex = uiAbsent;
        unsigned int textureCoords = uiAbsent;
        unsigned int normal = uiAbsent;
        friend bool operator==(const Corner&, const Corner&) = default;
    };
    struct Face
    {
        unsigned int material = uiAbsent;
        std::vector<Corner> corners;
        friend bool operator==(const Face&, const Face&) = default;
    };
    struct Material
    {
        std::string name;
        Vector Ka, Kd, Ks;                  ///< ambient, diffuse, specular, 0 to 1
        std::string map_Ka, map_Kd, map_Ks; ///< the rest of the line behind the base directory and "/"
    };

    /// Reads from a stream of the host's, with "." as base directory. The stream must outlive the parser.
    explicit COBJParser(std::basic_istream<wchar_t>& stream);
    /// The folder of the file becomes the base directory. @throws CParseError in line -1 when there is no such file
    explicit COBJParser(const std::string& fileName);
    ~COBJParser() override;

    /// Reads everything. What stood before an error stays readable. @throws CParseError
    virtual void Parse();

    [[nodiscard]] const std::vector<Vector>& GetVertices() const { return m_vertices; }
    [[nodiscard]] const std::vector<Vector>& GetNormals() const { return m_normals; }
    [[nodiscard]] const std::vector<TexCoords>& GetTextureCoords() const { return m_textureCoords; }
    [[nodiscard]] const std::vector<Face>& GetFaces() const { return m_faces; }
    [[nodiscard]] const std::vector<Material>& GetMaterials() const { return m_materials; }

    /// One for each material.
    [[nodiscard]] unsigned int GetNumMeshes() const { return static_cast<unsigned int>(m_materials.size()); }

    /// Where libraries and texture maps are looked for.
    [[nodiscard]] const std::string& GetBaseDir() const { return m_baseDir; }
    void SetBaseDir(const std::string& baseDir) { m_baseDir = baseDir; }

    /// The whole file. Vertices carry their index in the file as "v:original_index" (int). When the file has texture
    /// coordinates, halfedges carry those of the corner that they leave as "h:texturecoords" (Vector<float, 2>), and
    /// faces their material as "f:texture" (int, -1 for none). Faces that do not fit into a manifold are left out.
    /// @param mirrored  turns the sign of y
    [[nodiscard]] const graphene::Surface_mesh& GetGrapheneMesh(bool mirrored) const;
    /// The faces of one material, or of none with `uiAbsent`, with their vertices and those that no face of the file
    /// uses. Empty of faces when there is no such material.
    [[nodiscard]] graphene::Surface_mesh GetGrapheneMesh(unsigned int material, bool mirrored) const;
    [[nodiscard]] graphene::Surface_mesh GetGrapheneMesh(const std::string& materialName, bool mirrored) const;

private:
    class MTLParser;
    struct Statement;

    explicit COBJParser(std::unique_ptr<CWideFile> file);

    void parse() override { Parse(); }
    void readStatement();
    void readVertex();
    void readTextureCoords();
    void readNormal();
    void readFace();
    void readLibrary();
    void readUsedMaterial();
    void skipRest();

    Vector readVector();
    float readFloat();
    Corner readCorner();
    unsigned int readIndex(std::size_t count, const wchar_t* message);
    bool takeSlash();
    std::string readName();
    static std::string toName(std::wstring text);
    void parseMTLLIB(const std::string& fileName);
    [[noreturn]] void fail(const std::wstring& message) const;

    void buildMesh(bool mirrored) const;
    void addFaces(const std::vector<graphene::Surface_mesh::Vertex>& vertices) const;
    void setTexture(graphene::Surface_mesh::Face added, const Face& face) const;

    std::vector<Vector> m_vertices;
    std::vector<Vector> m_normals;
    std::vector<TexCoords> m_textureCoords;
    std::vector<Face> m_faces;
    std::vector<Material> m_materials;
    std::unique_ptr<CWideFile> m_file; ///< null on a stream of the host's
    std::string m_baseDir = ".";
    unsigned int m_material = uiAbsent;
    std::vector<Corner> m_corners;                                   ///< of the face that is being read
    std::unordered_map<std::string, unsigned int> m_materialsByName; ///< the first of each name
    std::size_t m_libraryBytes = 0;

    mutable graphene::Surface_mesh m_mesh;
    mutable std::vector<unsigned int> m_meshMaterials; ///< of each face of the mesh
    mutable bool m_meshMirrored = false;
};

} // namespace Zorvan
