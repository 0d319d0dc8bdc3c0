// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace tools {

/// One material of a mesh, as a mesh of its own.
struct ObjPart
{
    std::filesystem::path file;
    std::size_t uiVertices = 0;
    std::size_t uiFaces = 0;
    bool hasTexture = false;
};

struct ObjSplit
{
    std::vector<ObjPart> parts;
    std::vector<std::string> losses; ///< faces and textures that could not be taken over, a line for each kind
};

/// Splits a mesh in OBJ by its materials: NAME.obj, NAME.mtl and NAME_MATERIAL.png for each that has faces, all at
/// once.
/// @param folder  is made; not the folder of the file. @throws CInputError
[[nodiscard]] ObjSplit SplitByMaterial(const std::filesystem::path& file, const std::filesystem::path& folder);

} // namespace tools
